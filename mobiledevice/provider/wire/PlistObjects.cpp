#include "mobiledevice/provider/wire/PlistObjects.h"

#include <bit>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace krl::provider {
namespace {

using cf::adopt;
using cf::CFRef;

constexpr int kDepthLimit = 512;

struct FreeMemory {
    void operator()(char* memory) const { std::free(memory); }
};

using OwnedText = std::unique_ptr<char, FreeMemory>;

CFRef<CFTypeRef> objectAt(plist_t node, int depth);

/// The value of a number or date as a binary property list of its own holds it. libplist's
/// functions tell no negative number from a large one, and cut the fraction off an early date.
struct BinaryValue {
    size_t size;
    uint64_t bits; ///< the last eight bytes
};

BinaryValue binaryValue(plist_t node) {
    constexpr size_t kHeaderSize = 8; // "bplist00"; then a byte of kind and size, then the value
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(node, &bytes, &length);
    const OwnedText owner(bytes);
    if (length <= kHeaderSize) {
        return {0, 0};
    }
    const size_t size = size_t{1} << (bytes[kHeaderSize] & 0x0F);
    BinaryValue value{size, 0};
    for (size_t i = 0; i < size && kHeaderSize + 1 + i < length; ++i) {
        value.bits = value.bits << 8 | static_cast<UInt8>(bytes[kHeaderSize + 1 + i]);
    }
    return value;
}

CFRef<CFTypeRef> booleanOf(plist_t node) {
    uint8_t value = 0;
    plist_get_bool_val(node, &value);
    return cf::retain(value != 0 ? kCFBooleanTrue : kCFBooleanFalse);
}

/// A number beyond the signed range, which only a document can express.
CFRef<CFTypeRef> unsignedNumber(uint64_t value) {
    const std::string xml = "<integer>" + std::to_string(value) + "</integer>";
    const auto data = adopt(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(xml.data()),
                                         static_cast<CFIndex>(xml.size())));
    return adopt(CFPropertyListCreateFromXMLData(nullptr, data.get(), 0, nullptr));
}

CFRef<CFTypeRef> integerOf(plist_t node) {
    uint64_t bits = 0;
    plist_get_uint_val(node, &bits);
    if (bits > INT64_MAX && binaryValue(node).size > sizeof bits) {
        return unsignedNumber(bits);
    }
    return adopt(CFNumberCreate(nullptr, kCFNumberSInt64Type, &bits));
}

CFRef<CFTypeRef> realOf(plist_t node) {
    double value = 0;
    plist_get_real_val(node, &value);
    return adopt(CFNumberCreate(nullptr, kCFNumberFloat64Type, &value));
}

CFRef<CFTypeRef> dateOf(plist_t node) {
    return adopt(CFDateCreate(nullptr, std::bit_cast<double>(binaryValue(node).bits)));
}

CFRef<CFTypeRef> dataOf(plist_t node) {
    uint64_t length = 0;
    const auto* bytes = reinterpret_cast<const UInt8*>(plist_get_data_ptr(node, &length));
    auto data = adopt(CFDataCreateMutable(nullptr, 0));
    CFDataAppendBytes(data.get(), bytes, static_cast<CFIndex>(length));
    return data;
}

/// Null when the text is not valid UTF-8.
CFRef<CFStringRef> textOf(const char* utf8) {
    return adopt(
        CFStringCreateWithCString(nullptr, utf8 != nullptr ? utf8 : "", kCFStringEncodingUTF8));
}

CFRef<CFTypeRef> stringOf(plist_t node) {
    const auto text = textOf(plist_get_string_ptr(node, nullptr));
    return text ? adopt(CFStringCreateMutableCopy(nullptr, 0, text.get())) : nullptr;
}

CFRef<CFTypeRef> arrayOf(plist_t node, int depth) {
    auto array = adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    plist_array_iter iterator = nullptr;
    plist_array_new_iter(node, &iterator);
    const OwnedText owner(static_cast<char*>(iterator));
    for (;;) {
        plist_t item = nullptr;
        plist_array_next_item(node, iterator, &item);
        if (item == nullptr) {
            return array;
        }
        const auto value = objectAt(item, depth + 1);
        if (!value) {
            return nullptr;
        }
        CFArrayAppendValue(array.get(), value.get());
    }
}

CFRef<CFTypeRef> dictionaryOf(plist_t node, int depth) {
    auto dictionary = adopt(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                      &kCFTypeDictionaryValueCallBacks));
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    const OwnedText owner(static_cast<char*>(iterator));
    for (;;) {
        char* keyText = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator, &keyText, &item);
        const OwnedText keyOwner(keyText);
        if (item == nullptr) {
            return dictionary;
        }
        const auto key = textOf(keyText);
        const auto value = objectAt(item, depth + 1);
        if (!key || !value) {
            return nullptr;
        }
        CFDictionarySetValue(dictionary.get(), key.get(), value.get());
    }
}

CFRef<CFTypeRef> objectAt(plist_t node, int depth) {
    if (depth > kDepthLimit) {
        return nullptr;
    }
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
        return booleanOf(node);
    case PLIST_UINT:
        return integerOf(node);
    case PLIST_REAL:
        return realOf(node);
    case PLIST_STRING:
        return stringOf(node);
    case PLIST_ARRAY:
        return arrayOf(node, depth);
    case PLIST_DICT:
        return dictionaryOf(node, depth);
    case PLIST_DATE:
        return dateOf(node);
    case PLIST_DATA:
        return dataOf(node);
    default:
        return nullptr;
    }
}

} // namespace

CFRef<CFTypeRef> objectsOf(plist_t node) {
    return node != nullptr ? objectAt(node, 1) : nullptr;
}

} // namespace krl::provider
