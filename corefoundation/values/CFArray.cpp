#include "corefoundation/values/CallBacks.h"
#include "corefoundation/values/Collections.h"

#include <algorithm>
#include <cstring>

namespace krl::cf {

const void* retainObject(CFAllocatorRef, const void* value) {
    return CFRetain(value);
}

void releaseObject(CFAllocatorRef, const void* value) {
    CFRelease(value);
}

CFStringRef copyObjectDescription(const void* value) {
    return CFCopyDescription(value);
}

Boolean equalObjects(const void* left, const void* right) {
    return CFEqual(left, right);
}

CFHashCode hashObject(const void* value) {
    return value != nullptr ? CFHash(value) : 0;
}

} // namespace krl::cf

const CFArrayCallBacks kCFTypeArrayCallBacks = {0, krl::cf::retainObject, krl::cf::releaseObject,
                                                krl::cf::copyObjectDescription,
                                                krl::cf::equalObjects};

namespace krl::cf {

using ArrayCallBacks = CallBacks<CFArrayCallBacks>;

} // namespace krl::cf

struct __CFArray {
    CFObjectHeader header;
    CFIndex count;
    CFIndex capacity;
    const void** values;
    krl::cf::ArrayCallBacks callBacks;
};

namespace krl::cf {
namespace {

__CFArray& arrayOf(CFTypeRef object) {
    return mutableRecordOf<__CFArray>(object);
}

void releaseValues(const __CFArray& array, const void* const* values, CFIndex count) {
    for (CFIndex i = 0; i < count; ++i) {
        array.callBacks.release(values[i]);
    }
}

void finalizeArray(CFTypeRef object) {
    __CFArray& array = arrayOf(object);
    releaseValues(array, array.values, array.count);
    std::free(array.values);
    array.callBacks.~ArrayCallBacks();
}

bool equalArrays(CFTypeRef left, CFTypeRef right) {
    const __CFArray& one = arrayOf(left);
    const __CFArray& other = arrayOf(right);
    return std::equal(one.values, one.values + one.count, other.values, other.values + other.count,
                      [&](const void* a, const void* b) { return one.callBacks.equal(a, b); });
}

CFHashCode hashArray(CFTypeRef object) {
    return static_cast<CFHashCode>(arrayOf(object).count);
}

CFStringRef copyArrayDescription(CFTypeRef object) {
    const __CFArray& array = arrayOf(object);
    CFMutableStringRef description = CFStringCreateMutable(nullptr, 0);
    CFStringAppend(description, CFSTR("("));
    for (CFIndex i = 0; i < array.count; ++i) {
        auto value = adopt(array.callBacks.copyDescription(array.values[i]));
        CFStringAppendFormat(description, nullptr, i > 0 ? CFSTR(", %@") : CFSTR("%@"),
                             value.get());
    }
    CFStringAppend(description, CFSTR(")"));
    return freeze(description);
}

__CFArray* createArray(CFIndex capacity, const ArrayCallBacks& callBacks) {
    const CFIndex room = std::max<CFIndex>(capacity, 1);
    auto* array = createObject<__CFArray>(kArrayTypeID, 0, CFIndex{0}, room,
                                          static_cast<const void**>(nullptr), callBacks);
    auto owner = adopt(array); // memory may run out
    array->values = static_cast<const void**>(allocate(static_cast<size_t>(room) * sizeof(void*)));
    return owner.leak();
}

void reserve(__CFArray& array, CFIndex count) {
    if (count > array.capacity) {
        array.capacity = std::max(count, array.capacity * 2);
        array.values = static_cast<const void**>(
            reallocate(array.values, static_cast<size_t>(array.capacity) * sizeof(void*)));
    }
}

void appendValues(__CFArray& array, const void* const* values, CFIndex count) {
    reserve(array, array.count + count);
    for (CFIndex i = 0; i < count; ++i) {
        array.values[array.count++] = array.callBacks.retain(values[i]);
    }
}

__CFArray* copyArray(const __CFArray& source) {
    __CFArray* array = createArray(source.count, source.callBacks);
    appendValues(*array, source.values, source.count);
    return array;
}

__CFArray* asMutable(__CFArray* array) {
    array->header.flags |= kMutableFlag;
    return array;
}

/// Moves the values from index from on to index to.
void moveTail(__CFArray& array, CFIndex from, CFIndex to) {
    std::memmove(array.values + to, array.values + from,
                 static_cast<size_t>(array.count - from) * sizeof(void*));
}

} // namespace

constinit const ClassTable kArrayClass{"CFArray", finalizeArray, equalArrays, hashArray,
                                       copyArrayDescription};

CFMutableArrayRef takeIntoArray(std::span<CFRef<CFTypeRef>> values) {
    __CFArray* array = createArray(static_cast<CFIndex>(values.size()),
                                   ArrayCallBacks(&kCFTypeArrayCallBacks, kCFTypeArrayCallBacks));
    for (CFRef<CFTypeRef>& value : values) {
        array->values[array->count++] = value.leak();
    }
    return asMutable(array);
}

} // namespace krl::cf

using namespace krl::cf;

CFTypeID CFArrayGetTypeID() noexcept {
    return kArrayTypeID;
}

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex numValues,
                         const CFArrayCallBacks* callBacks) {
    __CFArray* array = createArray(numValues, ArrayCallBacks(callBacks, kCFTypeArrayCallBacks));
    appendValues(*array, values, numValues);
    return array;
}

CFArrayRef CFArrayCreateCopy(CFAllocatorRef, CFArrayRef array) {
    if (!isMutable(array)) {
        return retain(array).leak();
    }
    return copyArray(*array);
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks) {
    constexpr CFIndex kLargestHint = 1024;
    return asMutable(createArray(std::min(capacity, kLargestHint),
                                 ArrayCallBacks(callBacks, kCFTypeArrayCallBacks)));
}

CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef, CFIndex, CFArrayRef array) {
    return asMutable(copyArray(*array));
}

CFIndex CFArrayGetCount(CFArrayRef array) noexcept {
    return array->count;
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex idx) noexcept {
    return array->values[idx];
}

void CFArrayGetValues(CFArrayRef array, CFRange range, const void** values) noexcept {
    std::copy_n(array->values + range.location, range.length, values);
}

Boolean CFArrayContainsValue(CFArrayRef array, CFRange range, const void* value) noexcept {
    return CFArrayGetFirstIndexOfValue(array, range, value) != kCFNotFound;
}

CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef array, CFRange range, const void* value) noexcept {
    for (CFIndex i = range.location; i < range.location + range.length; ++i) {
        if (array->callBacks.equal(array->values[i], value)) {
            return i;
        }
    }
    return kCFNotFound;
}

void CFArrayApplyFunction(CFArrayRef array, CFRange range, CFArrayApplierFunction applier,
                          void* context) {
    for (CFIndex i = range.location; i < range.location + range.length; ++i) {
        applier(array->values[i], context);
    }
}

void CFArrayAppendValue(CFMutableArrayRef array, const void* value) {
    CFArrayInsertValueAtIndex(array, array->count, value);
}

void CFArrayAppendArray(CFMutableArrayRef array, CFArrayRef otherArray, CFRange otherRange) {
    reserve(*array, array->count + otherRange.length);
    appendValues(*array, otherArray->values + otherRange.location, otherRange.length);
}

void CFArrayInsertValueAtIndex(CFMutableArrayRef array, CFIndex idx, const void* value) {
    reserve(*array, array->count + 1);
    moveTail(*array, idx, idx + 1);
    array->values[idx] = array->callBacks.retain(value);
    ++array->count;
}

void CFArraySetValueAtIndex(CFMutableArrayRef array, CFIndex idx, const void* value) {
    if (idx == array->count) {
        CFArrayAppendValue(array, value);
        return;
    }
    const void* old = array->values[idx];
    array->values[idx] = array->callBacks.retain(value);
    array->callBacks.release(old);
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex idx) noexcept {
    const void* old = array->values[idx];
    moveTail(*array, idx + 1, idx);
    --array->count;
    array->callBacks.release(old);
}

void CFArrayRemoveAllValues(CFMutableArrayRef array) noexcept {
    // Releasing the last reference of a value may run code that looks at this array.
    const CFIndex count = array->count;
    const void** values = array->values;
    array->values = static_cast<const void**>(allocate(sizeof(void*)));
    array->count = 0;
    array->capacity = 1;
    releaseValues(*array, values, count);
    std::free(values);
}

void CFArraySortValues(CFMutableArrayRef array, CFRange range, CFComparatorFunction comparator,
                       void* context) noexcept {
    const void** first = array->values + range.location;
    std::stable_sort(first, first + range.length, [&](const void* left, const void* right) {
        return comparator(left, right, context) == kCFCompareLessThan;
    });
}
