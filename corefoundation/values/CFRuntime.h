/// How objects are made, counted and destroyed. Internal.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>
#include <cstdlib>
#include <new>
#include <utility>

namespace krl::cf {

enum TypeID : uint16_t {
    kNotATypeID,
    kAllocatorTypeID,
    kNullTypeID,
    kStringTypeID,
    kBooleanTypeID,
    kNumberTypeID,
    kDateTypeID,
    kDataTypeID,
    kArrayTypeID,
    kDictionaryTypeID,
    kURLTypeID,
    kUUIDTypeID,
    kErrorTypeID,
    kRunLoopTypeID,
    kRunLoopSourceTypeID,
    kRunLoopTimerTypeID,
    kNotificationCenterTypeID,
    kBundleTypeID,
    kTypeCount
};

/// Bits of CFObjectHeader::flags; those from kFirstTypeFlag on belong to each type.
constexpr uint16_t kImmortalFlag = 1;
constexpr uint16_t kMutableFlag = 2;
constexpr uint16_t kFirstTypeFlag = 4;

static_assert(int{kStringTypeID} == int{kCFStringConstantTypeID});
static_assert(kImmortalFlag == kCFStringConstantFlags);

/// What the objects of one type have in common.
struct ClassTable {
    const char* name;
    /// Gives back what the object holds, but not its own memory; null: it holds nothing.
    void (*finalize)(CFTypeRef object);
    /// Null: an object equals only itself.
    bool (*equal)(CFTypeRef left, CFTypeRef right);
    /// Null: the address.
    CFHashCode (*hash)(CFTypeRef object);
    /// Null: name and address.
    CFStringRef (*copyDescription)(CFTypeRef object);
};

extern const ClassTable kStringClass;
extern const ClassTable kBooleanClass;
extern const ClassTable kNumberClass;
extern const ClassTable kDateClass;
extern const ClassTable kDataClass;
extern const ClassTable kArrayClass;
extern const ClassTable kDictionaryClass;
extern const ClassTable kURLClass;
extern const ClassTable kUUIDClass;
extern const ClassTable kErrorClass;
extern const ClassTable kRunLoopClass;
extern const ClassTable kRunLoopSourceClass;
extern const ClassTable kRunLoopTimerClass;
extern const ClassTable kNotificationCenterClass;
extern const ClassTable kBundleClass;

/// malloc and realloc that throw std::bad_alloc where those would return null. The functions for the
/// outside are noexcept, so that there it ends the process, except where one says that it catches.
void* allocate(size_t size);
void* reallocate(void* memory, size_t size);

/// A fresh object with one reference, followed by extraBytes of its own.
template <typename Record, typename... Fields>
Record* createObject(TypeID type, size_t extraBytes, Fields&&... fields) {
    void* memory = allocate(sizeof(Record) + extraBytes);
    return new (memory) Record{{type, 0, 1}, std::forward<Fields>(fields)...};
}

/// Retains an object that may be on its end on another thread just now, as long as something else
/// makes sure that its memory is still there. @return whether it lives.
bool tryRetain(CFTypeRef object);

/// The record behind a reference.
template <typename Record>
const Record& recordOf(CFTypeRef object) {
    return *static_cast<const Record*>(object);
}

template <typename Record>
Record& mutableRecordOf(CFTypeRef object) {
    return *const_cast<Record*>(static_cast<const Record*>(object));
}

inline bool isMutable(CFTypeRef object) {
    return (static_cast<const CFObjectHeader*>(object)->flags & kMutableFlag) != 0;
}

/// Makes an object that nobody else has seen yet immutable.
template <typename Reference>
Reference freeze(Reference object) {
    auto& header = mutableRecordOf<CFObjectHeader>(object);
    header.flags = static_cast<uint16_t>(header.flags & ~kMutableFlag);
    return object;
}

} // namespace krl::cf
