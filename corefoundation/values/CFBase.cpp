#include "corefoundation/values/CFRuntime.h"

#include <CoreFoundation/CFRef.h>
#include <cstdio>
#include <string>

struct __CFAllocator {
    CFObjectHeader header;
};

struct __CFNull {
    CFObjectHeader header;
};

namespace krl::cf {
namespace {

constexpr __CFAllocator kSystemDefault{{kAllocatorTypeID, kImmortalFlag, 0}};
constexpr __CFAllocator kMalloc{{kAllocatorTypeID, kImmortalFlag, 0}};
constexpr __CFAllocator kNoAllocator{{kAllocatorTypeID, kImmortalFlag, 0}};
constexpr __CFNull kNull{{kNullTypeID, kImmortalFlag, 0}};

CFStringRef copyNullDescription(CFTypeRef) {
    return CFSTR("<null>");
}

constexpr ClassTable kAllocatorClass{"CFAllocator", nullptr, nullptr, nullptr, nullptr};
constexpr ClassTable kNullClass{"CFNull", nullptr, nullptr, nullptr, copyNullDescription};

/// By TypeID.
const ClassTable* const kClasses[kTypeCount] = {
    nullptr,
    &kAllocatorClass,
    &kNullClass,
    &kStringClass,
    &kBooleanClass,
    &kNumberClass,
    &kDateClass,
    &kDataClass,
    &kArrayClass,
    &kDictionaryClass,
    &kURLClass,
    &kUUIDClass,
    &kErrorClass,
    &kRunLoopClass,
    &kRunLoopSourceClass,
    &kRunLoopTimerClass,
    &kNotificationCenterClass,
    &kBundleClass,
};

const CFObjectHeader& headerOf(CFTypeRef object) {
    return recordOf<CFObjectHeader>(object);
}

const ClassTable& classOf(CFTypeRef object) {
    return *kClasses[headerOf(object).typeID];
}

bool isImmortal(CFTypeRef object) {
    return (headerOf(object).flags & kImmortalFlag) != 0;
}

uint32_t* retainCountOf(CFTypeRef object) {
    return &mutableRecordOf<CFObjectHeader>(object).retainCount;
}

void* checkedMemory(void* memory) {
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

bool tryRetain(CFTypeRef object) {
    uint32_t* count = retainCountOf(object);
    uint32_t seen = __atomic_load_n(count, __ATOMIC_RELAXED);
    while (seen != 0) {
        if (__atomic_compare_exchange_n(count, &seen, seen + 1, /*weak=*/true, __ATOMIC_ACQUIRE,
                                        __ATOMIC_RELAXED)) {
            return true;
        }
    }
    return false;
}

void* allocate(size_t size) {
    return checkedMemory(std::malloc(size));
}

void* reallocate(void* memory, size_t size) {
    return checkedMemory(std::realloc(memory, size));
}

} // namespace krl::cf

using namespace krl::cf;

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFAllocatorRef kCFAllocatorSystemDefault = &kSystemDefault;
const CFAllocatorRef kCFAllocatorMalloc = &kMalloc;
const CFAllocatorRef kCFAllocatorNull = &kNoAllocator;
const CFNullRef kCFNull = &kNull;

CFTypeID CFAllocatorGetTypeID() noexcept {
    return kAllocatorTypeID;
}

CFTypeID CFNullGetTypeID() noexcept {
    return kNullTypeID;
}

CFTypeID CFGetTypeID(CFTypeRef object) noexcept {
    return headerOf(object).typeID;
}

CFTypeRef CFRetain(CFTypeRef object) noexcept {
    if (object != nullptr && !isImmortal(object)) {
        __atomic_fetch_add(retainCountOf(object), 1, __ATOMIC_RELAXED);
    }
    return object;
}

void CFRelease(CFTypeRef object) noexcept {
    if (object == nullptr || isImmortal(object)) {
        return;
    }
    // Releasing orders this thread's use of the object before its end, acquiring orders the end
    // after every other thread's use.
    if (__atomic_fetch_sub(retainCountOf(object), 1, __ATOMIC_ACQ_REL) != 1) {
        return;
    }
    if (auto* finalize = classOf(object).finalize) {
        finalize(object);
    }
    std::free(&mutableRecordOf<CFObjectHeader>(object));
}

CFIndex CFGetRetainCount(CFTypeRef object) noexcept {
    if (isImmortal(object)) {
        return INT64_MAX;
    }
    return __atomic_load_n(retainCountOf(object), __ATOMIC_RELAXED);
}

Boolean CFEqual(CFTypeRef object1, CFTypeRef object2) noexcept {
    if (object1 == object2) {
        return true;
    }
    if (object1 == nullptr || object2 == nullptr || CFGetTypeID(object1) != CFGetTypeID(object2)) {
        return false;
    }
    auto* equal = classOf(object1).equal;
    return equal != nullptr && equal(object1, object2);
}

CFHashCode CFHash(CFTypeRef object) noexcept {
    auto* hash = classOf(object).hash;
    return hash != nullptr ? hash(object) : reinterpret_cast<CFHashCode>(object);
}

CFStringRef CFCopyDescription(CFTypeRef object) noexcept {
    const ClassTable& table = classOf(object);
    if (table.copyDescription != nullptr) {
        return table.copyDescription(object);
    }
    return CFStringCreateWithFormat(nullptr, nullptr, CFSTR("<%s %p>"), table.name, object);
}

void CFShow(CFTypeRef object) noexcept {
    CFRef<CFStringRef> description =
        object != nullptr ? adopt(CFCopyDescription(object)) : retain(CFSTR("(null)"));
    std::string line;
    const CFRange all = CFRangeMake(0, CFStringGetLength(description.get()));
    CFIndex size = 0;
    CFStringGetBytes(description.get(), all, kCFStringEncodingUTF8, '?', false, nullptr, 0, &size);
    line.resize(static_cast<size_t>(size));
    CFStringGetBytes(description.get(), all, kCFStringEncodingUTF8, '?', false,
                     reinterpret_cast<UInt8*>(line.data()), size, nullptr);
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}
