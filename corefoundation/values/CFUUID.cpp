#include <CoreFoundation/CFUUID.h>

#include "corefoundation/values/CFStringInternal.h"

#include <array>
#include <cstring>
#include <sys/random.h>

struct __CFUUID {
    CFObjectHeader header;
    CFUUIDBytes bytes;
};

namespace krl::cf {
namespace {

using Bytes = std::array<UInt8, sizeof(CFUUIDBytes)>;

Bytes bytesOf(CFTypeRef object) {
    Bytes bytes;
    std::memcpy(bytes.data(), &recordOf<__CFUUID>(object).bytes, bytes.size());
    return bytes;
}

bool equalUUIDs(CFTypeRef left, CFTypeRef right) {
    return bytesOf(left) == bytesOf(right);
}

CFHashCode hashUUID(CFTypeRef object) {
    CFHashCode halves[2];
    std::memcpy(halves, &recordOf<__CFUUID>(object).bytes, sizeof halves);
    return halves[0] ^ halves[1];
}

CFStringRef copyUUIDDescription(CFTypeRef object) {
    return CFUUIDCreateString(nullptr, static_cast<CFUUIDRef>(object));
}

CFUUIDRef createUUID(const Bytes& bytes) {
    auto* uuid = createObject<__CFUUID>(kUUIDTypeID, 0, CFUUIDBytes{});
    std::memcpy(&uuid->bytes, bytes.data(), bytes.size());
    return uuid;
}

Bytes randomBytes() {
    Bytes bytes{};
    for (size_t filled = 0; filled < bytes.size();) {
        const ssize_t count = getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        filled += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return bytes;
}

/// The value of a hexadecimal digit, or -1.
int digitValue(UniChar unit) {
    if (unit >= '0' && unit <= '9') {
        return unit - '0';
    }
    if (unit >= 'a' && unit <= 'f') {
        return unit - 'a' + 10;
    }
    return unit >= 'A' && unit <= 'F' ? unit - 'A' + 10 : -1;
}

} // namespace

constinit const ClassTable kUUIDClass{"CFUUID", nullptr, equalUUIDs, hashUUID, copyUUIDDescription};

} // namespace krl::cf

using namespace krl::cf;

CFTypeID CFUUIDGetTypeID() noexcept {
    return kUUIDTypeID;
}

CFUUIDRef CFUUIDCreate(CFAllocatorRef) {
    Bytes bytes = randomBytes();
    bytes[6] = static_cast<UInt8>((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = static_cast<UInt8>((bytes[8] & 0x3F) | 0x80); // the standard variant
    return createUUID(bytes);
}

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef, CFUUIDBytes bytes) {
    return createObject<__CFUUID>(kUUIDTypeID, 0, bytes);
}

CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef, CFStringRef uuidStr) {
    Text text(uuidStr);
    if (text.length() > 0 && text[0] == '{') {
        text = text.from(1);
    }
    if (text.length() == 0) {
        return nullptr;
    }
    Bytes bytes{};
    CFIndex at = 0;
    for (size_t i = 0; i < bytes.size() && at + 2 <= text.length(); ++i) {
        const int high = digitValue(text[at]);
        const int low = digitValue(text[at + 1]);
        if (high < 0 || low < 0) {
            return nullptr;
        }
        bytes[i] = static_cast<UInt8>(high << 4 | low);
        // One character stands between the groups, whatever it is.
        const bool endsGroup = i == 3 || i == 5 || i == 7 || i == 9;
        at += endsGroup ? 3 : 2;
    }
    return createUUID(bytes);
}

CFStringRef CFUUIDCreateString(CFAllocatorRef, CFUUIDRef uuid) {
    const Bytes bytes = bytesOf(uuid);
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) {
        constexpr char kDigits[] = "0123456789ABCDEF";
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0x0F];
    }
    return createStringFromUtf8(text);
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) noexcept {
    return uuid->bytes;
}
