#include "corefoundation/propertylists/PlistNode.h"

#include "corefoundation/values/CFNumberInternal.h"
#include "corefoundation/values/CFStringInternal.h"
#include "corefoundation/values/Decimal.h"

#include <CoreFoundation/CFPropertyList.h>
#include <bit>

namespace krl::cf {
namespace {

struct FreeMemory {
    void operator()(char* memory) const { std::free(memory); }
};

using OwnedText = std::unique_ptr<char, FreeMemory>;

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

/// Turns nodes into objects.
class Reader {
public:
    Reader(CFOptionFlags mutability, const Placeholders& placeholders)
        : containersMutable_(mutability >= kCFPropertyListMutableContainers),
          leavesMutable_(mutability >= kCFPropertyListMutableContainersAndLeaves),
          placeholders_(placeholders) {}

    CFRef<CFTypeRef> read(plist_t node, int depth) const {
        if (depth > kDepthLimit) {
            return nullptr;
        }
        switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN:
            return readBoolean(node);
        case PLIST_UINT:
            return readInteger(node);
        case PLIST_REAL:
            return readReal(node);
        case PLIST_STRING:
            return readString(node);
        case PLIST_ARRAY:
            return readArray(node, depth);
        case PLIST_DICT:
            return readDictionary(node, depth);
        case PLIST_DATE:
            return readDate(node);
        case PLIST_DATA:
            return readData(node);
        default:
            return nullptr;
        }
    }

private:
    static CFRef<CFTypeRef> readBoolean(plist_t node) {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return retain(value != 0 ? kCFBooleanTrue : kCFBooleanFalse);
    }

    static CFRef<CFTypeRef> readInteger(plist_t node) {
        uint64_t bits = 0;
        plist_get_uint_val(node, &bits);
        const bool beyondSigned = bits > INT64_MAX && binaryValue(node).size > sizeof bits;
        if (beyondSigned) {
            return adopt(createUnsignedNumber(bits));
        }
        return adopt(CFNumberCreate(nullptr, kCFNumberSInt64Type, &bits));
    }

    static CFRef<CFTypeRef> readReal(plist_t node) {
        double value = 0;
        plist_get_real_val(node, &value);
        return adopt(CFNumberCreate(nullptr, kCFNumberFloat64Type, &value));
    }

    static CFRef<CFTypeRef> readDate(plist_t node) {
        return adopt(CFDateCreate(nullptr, std::bit_cast<double>(binaryValue(node).bits)));
    }

    CFRef<CFTypeRef> readData(plist_t node) const {
        uint64_t length = 0;
        const auto* bytes = reinterpret_cast<const UInt8*>(plist_get_data_ptr(node, &length));
        auto data = adopt(CFDataCreate(nullptr, bytes, static_cast<CFIndex>(length)));
        if (leavesMutable_) {
            return adopt(CFDataCreateMutableCopy(nullptr, 0, data.get()));
        }
        return data;
    }

    CFRef<CFTypeRef> readString(plist_t node) const {
        const char* text = plist_get_string_ptr(node, nullptr);
        const std::string_view utf8 = text != nullptr ? text : "";
        if (CFTypeRef value = placeholders_.find(utf8)) {
            auto string = cast<CFStringRef>(value);
            if (string == nullptr || !leavesMutable_) {
                return retain(value);
            }
            return adopt(CFStringCreateMutableCopy(nullptr, 0, string));
        }
        if (leavesMutable_) {
            return adopt(createMutableStringFromUtf8(utf8));
        }
        return adopt(createStringFromUtf8(utf8));
    }

    CFRef<CFStringRef> readKey(const char* key) const {
        if (CFTypeRef value = placeholders_.find(key)) {
            return retain(cast<CFStringRef>(value));
        }
        return adopt(createStringFromUtf8(key));
    }

    CFRef<CFTypeRef> readArray(plist_t node, int depth) const {
        auto array = adopt(
            CFArrayCreateMutable(nullptr, plist_array_get_size(node), &kCFTypeArrayCallBacks));
        plist_array_iter iterator = nullptr;
        plist_array_new_iter(node, &iterator);
        const OwnedText owner(static_cast<char*>(iterator));
        for (;;) {
            plist_t item = nullptr;
            plist_array_next_item(node, iterator, &item);
            if (item == nullptr) {
                return finished(std::move(array));
            }
            auto value = read(item, depth + 1);
            if (!value) {
                return nullptr;
            }
            CFArrayAppendValue(array.get(), value.get());
        }
    }

    CFRef<CFTypeRef> readDictionary(plist_t node, int depth) const {
        auto dictionary = adopt(CFDictionaryCreateMutable(nullptr, plist_dict_get_size(node),
                                                          &kCFTypeDictionaryKeyCallBacks,
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
                return finished(std::move(dictionary));
            }
            auto key = readKey(keyText);
            auto value = read(item, depth + 1);
            if (!key || !value) {
                return nullptr;
            }
            CFDictionarySetValue(dictionary.get(), key.get(), value.get());
        }
    }

    template <typename T>
    CFRef<CFTypeRef> finished(CFRef<T> container) const {
        return containersMutable_ ? std::move(container) : adopt(freeze(container.leak()));
    }

    bool containersMutable_;
    bool leavesMutable_;
    const Placeholders& placeholders_;
};

// ---------------------------------------------------------------------------- nodes from objects

/// The text for libplist, or nothing when a node cannot hold it.
bool nodeText(CFStringRef string, std::string& utf8) {
    return appendUtf8(utf8, Text(string)) && utf8.find('\0') == std::string::npos;
}

void appendBigEndian(std::string& bytes, uint64_t value, size_t size) {
    for (size_t i = size; i > 0; --i) {
        bytes += static_cast<char>(value >> (8 * (i - 1)) & 0xFF);
    }
}

plist_t stringNode(CFStringRef string) {
    std::string utf8;
    return nodeText(string, utf8) ? plist_new_string(utf8.c_str()) : nullptr;
}

plist_t numberNode(CFNumberRef number) {
    if (CFNumberIsFloatType(number)) {
        double value = 0;
        CFNumberGetValue(number, kCFNumberFloat64Type, &value);
        return plist_new_real(value);
    }
    uint64_t bits = 0;
    CFNumberGetValue(number, kCFNumberSInt64Type, &bits);
    if (isBeyondSigned(number)) { // from a number plist_new_uint makes a negative one then
        return parseXML("<integer>" + std::to_string(bits) + "</integer>").release();
    }
    return plist_new_uint(bits);
}

/// By way of a binary property list of this one date: plist_new_date takes 32-bit seconds.
plist_t dateNode(CFDateRef date) {
    constexpr char kDateMarker = 0x33;
    const auto bits = std::bit_cast<uint64_t>(CFDateGetAbsoluteTime(date));
    std::string binary = "bplist00";
    const size_t object = binary.size();
    binary += kDateMarker;
    appendBigEndian(binary, bits, sizeof bits);
    const size_t offsetTable = binary.size();
    appendBigEndian(binary, object, 1);
    appendBigEndian(binary, 0, 6);
    appendBigEndian(binary, 1, 1); // bytes of an offset
    appendBigEndian(binary, 1, 1); // bytes of a reference
    appendBigEndian(binary, 1, 8); // objects
    appendBigEndian(binary, 0, 8); // the root object
    appendBigEndian(binary, offsetTable, 8);
    plist_t node = nullptr;
    plist_from_bin(binary.data(), static_cast<uint32_t>(binary.size()), &node);
    return node;
}

plist_t dataNode(CFDataRef data) {
    return plist_new_data(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                          static_cast<uint64_t>(CFDataGetLength(data)));
}

plist_t createNode(CFTypeRef object, int depth);

plist_t arrayNode(CFArrayRef array, int depth) {
    PlistOwner node(plist_new_array());
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        plist_t item = createNode(CFArrayGetValueAtIndex(array, i), depth + 1);
        if (item == nullptr) {
            return nullptr;
        }
        plist_array_append_item(node.get(), item);
    }
    return node.release();
}

struct PairsContext {
    plist_t node;
    int depth;
    bool complete;
};

void appendPair(const void* key, const void* value, void* context) {
    auto* pairs = static_cast<PairsContext*>(context);
    std::string keyText;
    auto string = cast<CFStringRef>(key);
    plist_t item = nullptr;
    if (pairs->complete && string != nullptr && nodeText(string, keyText)) {
        item = createNode(value, pairs->depth + 1);
    }
    if (item == nullptr) {
        pairs->complete = false;
        return;
    }
    plist_dict_set_item(pairs->node, keyText.c_str(), item);
}

plist_t dictionaryNode(CFDictionaryRef dictionary, int depth) {
    PlistOwner node(plist_new_dict());
    PairsContext context{node.get(), depth, true};
    CFDictionaryApplyFunction(dictionary, appendPair, &context);
    return context.complete ? node.release() : nullptr;
}

plist_t createNode(CFTypeRef object, int depth) {
    if (object == nullptr || depth > kDepthLimit) {
        return nullptr;
    }
    if (auto string = cast<CFStringRef>(object)) {
        return stringNode(string);
    }
    if (auto number = cast<CFNumberRef>(object)) {
        return numberNode(number);
    }
    if (auto boolean = cast<CFBooleanRef>(object)) {
        return plist_new_bool(CFBooleanGetValue(boolean));
    }
    if (auto data = cast<CFDataRef>(object)) {
        return dataNode(data);
    }
    if (auto date = cast<CFDateRef>(object)) {
        return dateNode(date);
    }
    if (auto array = cast<CFArrayRef>(object)) {
        return arrayNode(array, depth);
    }
    if (auto dictionary = cast<CFDictionaryRef>(object)) {
        return dictionaryNode(dictionary, depth);
    }
    return nullptr;
}

/// Makes numbers have a point in this thread while it lives: libplist reads them by the locale.
class NumbersWithPoints {
public:
    NumbersWithPoints() : before_(uselocale(cLocale())) {}

    ~NumbersWithPoints() { uselocale(before_); }

    NumbersWithPoints(const NumbersWithPoints&) = delete;
    NumbersWithPoints& operator=(const NumbersWithPoints&) = delete;

private:
    locale_t before_;
};

} // namespace

PlistOwner parseXML(std::string_view xml) {
    const NumbersWithPoints numbersWithPoints;
    plist_t node = nullptr;
    if (xml.size() <= UINT32_MAX) {
        plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &node);
    }
    return PlistOwner(node);
}

CFRef<CFTypeRef> readPlistNode(plist_t node, CFOptionFlags mutability,
                               const Placeholders& placeholders) {
    return Reader(mutability, placeholders).read(node, 1);
}

} // namespace krl::cf

using namespace krl::cf;

CFTypeRef CFPropertyListCreateFromPlistNode(plist_t node) noexcept {
    if (node == nullptr) {
        return nullptr;
    }
    return readPlistNode(node, kCFPropertyListMutableContainersAndLeaves, Placeholders()).leak();
}

plist_t CFPropertyListCreatePlistNode(CFTypeRef propertyList) noexcept {
    return createNode(propertyList, 1);
}
