#include <CoreFoundation/CFData.h>

#include "corefoundation/values/ByteBuffer.h"

#include <CoreFoundation/CFRef.h>
#include <algorithm>
#include <functional>

/// The bytes follow the record in the same allocation, or stand in one of their own, or are the
/// caller's.
struct __CFData {
    CFObjectHeader header;
    CFIndex length;
    CFIndex capacity;
    UInt8* bytes;
};

namespace krl::cf {
namespace {

constexpr uint16_t kOwnBytesFlag = kFirstTypeFlag;

__CFData& dataOf(CFTypeRef object) {
    return mutableRecordOf<__CFData>(object);
}

void finalizeData(CFTypeRef object) {
    __CFData& data = dataOf(object);
    if ((data.header.flags & kOwnBytesFlag) != 0) {
        std::free(data.bytes);
    }
}

bool equalData(CFTypeRef left, CFTypeRef right) {
    const __CFData& one = dataOf(left);
    const __CFData& other = dataOf(right);
    return std::equal(one.bytes, one.bytes + one.length, other.bytes, other.bytes + other.length);
}

CFHashCode hashData(CFTypeRef object) {
    constexpr CFIndex kHashedLength = 80;
    const __CFData& data = dataOf(object);
    uint32_t hash = 0;
    for (CFIndex i = 0; i < std::min(data.length, kHashedLength); ++i) {
        hash = (hash << 4) + data.bytes[i];
        const uint32_t high = hash & 0xF0000000;
        hash ^= high >> 24;
        hash &= ~high;
    }
    return hash;
}

CFStringRef copyDataDescription(CFTypeRef object) {
    constexpr CFIndex kShownLength = 24;
    const __CFData& data = dataOf(object);
    CFMutableStringRef description = CFStringCreateMutable(nullptr, 0);
    CFStringAppendFormat(description, nullptr, CFSTR("{length = %ld, bytes = 0x"), data.length);
    for (CFIndex i = 0; i < std::min(data.length, kShownLength); ++i) {
        CFStringAppendFormat(description, nullptr, CFSTR("%02x"), unsigned{data.bytes[i]});
    }
    CFStringAppend(description, data.length > kShownLength ? CFSTR("...}") : CFSTR("}"));
    return freeze(description);
}

__CFData* createData(const UInt8* bytes, CFIndex length, uint16_t flags) {
    auto* data = createObject<__CFData>(kDataTypeID, static_cast<size_t>(length), length, length,
                                        static_cast<UInt8*>(nullptr));
    data->header.flags = flags;
    data->bytes = reinterpret_cast<UInt8*>(data + 1);
    std::copy_n(bytes, length, data->bytes);
    return data;
}

void reserve(__CFData& data, CFIndex length) {
    if (length <= data.capacity) {
        return;
    }
    const CFIndex capacity = std::max(length, data.capacity * 2);
    const bool owned = (data.header.flags & kOwnBytesFlag) != 0;
    auto* bytes = static_cast<UInt8*>(
        reallocate(owned ? data.bytes : nullptr, static_cast<size_t>(capacity)));
    if (!owned) {
        std::copy_n(data.bytes, data.length, bytes);
    }
    data.bytes = bytes;
    data.capacity = capacity;
    data.header.flags |= kOwnBytesFlag;
}

bool pointsInto(const __CFData& data, const UInt8* bytes) {
    const std::less_equal<> notAfter;
    return notAfter(data.bytes, bytes) && notAfter(bytes, data.bytes + data.length);
}

} // namespace

constinit const ClassTable kDataClass{"CFData", finalizeData, equalData, hashData,
                                      copyDataDescription};

CFMutableDataRef ByteBuffer::takeIntoData() {
    const auto size = static_cast<CFIndex>(size_);
    bytes_ = static_cast<char*>(reallocate(bytes_, std::max<size_t>(size_, 1)));
    auto* data =
        createObject<__CFData>(kDataTypeID, 0, size, size, reinterpret_cast<UInt8*>(bytes_));
    data->header.flags = kMutableFlag | kOwnBytesFlag;
    bytes_ = nullptr;
    size_ = 0;
    capacity_ = 0;
    return data;
}

} // namespace krl::cf

using namespace krl::cf;

CFTypeID CFDataGetTypeID() noexcept {
    return kDataTypeID;
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
    return createData(bytes, length, 0);
}

CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef, const UInt8* bytes, CFIndex length,
                                      CFAllocatorRef bytesDeallocator) {
    auto* data = createObject<__CFData>(kDataTypeID, 0, length, length, const_cast<UInt8*>(bytes));
    if (bytesDeallocator != kCFAllocatorNull) {
        data->header.flags = kOwnBytesFlag;
    }
    return data;
}

CFDataRef CFDataCreateCopy(CFAllocatorRef, CFDataRef data) {
    if (!isMutable(data)) {
        return retain(data).leak();
    }
    return createData(data->bytes, data->length, 0);
}

CFMutableDataRef CFDataCreateMutable(CFAllocatorRef, CFIndex) {
    return createData(nullptr, 0, kMutableFlag);
}

CFMutableDataRef CFDataCreateMutableCopy(CFAllocatorRef, CFIndex, CFDataRef data) {
    return createData(data->bytes, data->length, kMutableFlag);
}

CFIndex CFDataGetLength(CFDataRef data) noexcept {
    return data->length;
}

const UInt8* CFDataGetBytePtr(CFDataRef data) noexcept {
    return data->bytes;
}

UInt8* CFDataGetMutableBytePtr(CFMutableDataRef data) noexcept {
    return data->bytes;
}

void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* buffer) noexcept {
    std::copy_n(data->bytes + range.location, range.length, buffer);
}

void CFDataSetLength(CFMutableDataRef data, CFIndex length) {
    reserve(*data, length);
    if (length > data->length) {
        std::fill(data->bytes + data->length, data->bytes + length, UInt8{0});
    }
    data->length = length;
}

void CFDataAppendBytes(CFMutableDataRef data, const UInt8* bytes, CFIndex length) {
    // Growing may move the bytes that are to be appended.
    const bool own = pointsInto(*data, bytes);
    const CFIndex offset = own ? bytes - data->bytes : 0;
    reserve(*data, data->length + length);
    std::copy_n(own ? data->bytes + offset : bytes, length, data->bytes + data->length);
    data->length += length;
}
