#include "library/startup/BinaryPropertyList.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace krl::plugin {

using cf::adopt;
using cf::CFRef;

namespace {

constexpr std::string_view kMagic = "bplist0";
constexpr size_t kHeaderBytes = 8;
constexpr size_t kTrailerBytes = 32;

/// Kinds of objects: the upper half of the first byte. The lower half is the count, or says that
/// the count follows.
enum Kind : uint8_t { kInteger = 0x1, kAsciiString = 0x5, kUtf16String = 0x6, kDictionary = 0xD };

constexpr uint8_t kCountFollows = 0xF;

std::string_view bytesOf(CFDataRef data) {
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
            static_cast<size_t>(CFDataGetLength(data))};
}

/// Header, objects, a table of where each object begins, and a trailer that says where the table
/// is and how wide its numbers and the references to objects are.
class Document {
public:
    explicit Document(std::string_view bytes) : bytes_(bytes) {}

    CFRef<CFStringRef> stringUnder(CFStringRef key) {
        if (!readTrailer()) {
            return nullptr;
        }
        const auto root = objectAt(topObject_);
        if (!root || root->kind != kDictionary) {
            return nullptr;
        }
        // All keys, then all values. No file has room for more references than bytes.
        if (root->count > bytes_.size()) {
            return nullptr;
        }
        for (uint64_t i = 0; i < root->count; ++i) {
            if (isEqual(objectAt(referenceAt(*root, i)), key)) {
                return stringOf(objectAt(referenceAt(*root, root->count + i)));
            }
        }
        return nullptr;
    }

private:
    struct Object {
        uint8_t kind;
        uint64_t count;
        uint64_t contents; ///< where they begin
    };

    bool readTrailer() {
        if (bytes_.size() < kHeaderBytes + kTrailerBytes) {
            return false;
        }
        const uint64_t trailer = bytes_.size() - kTrailerBytes;
        offsetBytes_ = byteAt(trailer + 6);
        referenceBytes_ = byteAt(trailer + 7);
        objectCount_ = *numberAt(trailer + 8, 8);
        topObject_ = *numberAt(trailer + 16, 8);
        table_ = *numberAt(trailer + 24, 8);
        return table_ <= trailer;
    }

    uint8_t byteAt(uint64_t position) const { return static_cast<uint8_t>(bytes_[position]); }

    bool isInside(uint64_t position, uint64_t count) const {
        return position <= bytes_.size() && count <= bytes_.size() - position;
    }

    /// A big-endian number of 1 to 8 bytes.
    std::optional<uint64_t> numberAt(uint64_t position, uint64_t width) const {
        if (width < 1 || width > 8 || !isInside(position, width)) {
            return std::nullopt;
        }
        uint64_t number = 0;
        for (uint64_t i = 0; i < width; ++i) {
            number = number << 8 | byteAt(position + i);
        }
        return number;
    }

    std::optional<Object> objectAt(std::optional<uint64_t> reference) const {
        if (!reference || *reference >= objectCount_ || *reference > bytes_.size()) {
            return std::nullopt;
        }
        const auto position = numberAt(table_ + *reference * offsetBytes_, offsetBytes_);
        if (!position || !isInside(*position, 1)) {
            return std::nullopt;
        }
        const uint8_t marker = byteAt(*position);
        Object object{static_cast<uint8_t>(marker >> 4), marker & 0xFU, *position + 1};
        return object.count == kCountFollows ? withCount(object) : object;
    }

    /// The count of an object that has no room for it in its first byte is a number before the
    /// contents.
    std::optional<Object> withCount(Object object) const {
        if (!isInside(object.contents, 1) || byteAt(object.contents) >> 4 != kInteger) {
            return std::nullopt;
        }
        const uint64_t width = uint64_t{1} << (byteAt(object.contents) & 0xFU);
        const auto count = numberAt(object.contents + 1, width);
        if (!count) {
            return std::nullopt;
        }
        return Object{object.kind, *count, object.contents + 1 + width};
    }

    std::optional<uint64_t> referenceAt(const Object& dictionary, uint64_t index) const {
        return numberAt(dictionary.contents + index * referenceBytes_, referenceBytes_);
    }

    /// Looks at the length first, so that long keys cost nothing.
    bool isEqual(const std::optional<Object>& object, CFStringRef key) const {
        if (!isString(object) || object->count != static_cast<uint64_t>(CFStringGetLength(key))) {
            return false;
        }
        const auto string = stringOf(object);
        return string && CFEqual(string.get(), key);
    }

    static bool isString(const std::optional<Object>& object) {
        return object && (object->kind == kAsciiString || object->kind == kUtf16String);
    }

    /// Null for what is no string.
    CFRef<CFStringRef> stringOf(const std::optional<Object>& object) const {
        if (!isString(object) || object->count > bytes_.size()) {
            return nullptr;
        }
        return object->kind == kAsciiString ? asciiString(*object) : wideString(*object);
    }

    CFRef<CFStringRef> asciiString(const Object& object) const {
        if (!isInside(object.contents, object.count)) {
            return nullptr;
        }
        return adopt(CFStringCreateWithBytes(
            nullptr, reinterpret_cast<const UInt8*>(bytes_.data() + object.contents),
            static_cast<CFIndex>(object.count), kCFStringEncodingASCII, false));
    }

    CFRef<CFStringRef> wideString(const Object& object) const {
        constexpr uint64_t kUnitBytes = 2;
        if (!isInside(object.contents, object.count * kUnitBytes)) {
            return nullptr;
        }
        std::vector<UniChar> units;
        for (uint64_t i = 0; i < object.count; ++i) {
            units.push_back(
                static_cast<UniChar>(*numberAt(object.contents + i * kUnitBytes, kUnitBytes)));
        }
        return adopt(CFStringCreateWithCharacters(nullptr, units.data(),
                                                  static_cast<CFIndex>(units.size())));
    }

    const std::string_view bytes_;
    uint64_t offsetBytes_ = 0;
    uint64_t referenceBytes_ = 0;
    uint64_t objectCount_ = 0;
    uint64_t topObject_ = 0;
    uint64_t table_ = 0;
};

} // namespace

bool isBinaryPropertyList(CFDataRef data) {
    return bytesOf(data).starts_with(kMagic);
}

CFRef<CFStringRef> stringInBinaryPropertyList(CFDataRef data, CFStringRef key) {
    return Document(bytesOf(data)).stringUnder(key);
}

} // namespace krl::plugin
