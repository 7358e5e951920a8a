#include "plist/Bounded.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

namespace krl::plist {

namespace {

constexpr std::string_view kBinaryMagic = "bplist00";

/// Counts values as they are met.
class Tally {
public:
    /// False when there are too many by now, or this one is too deep.
    bool meet(size_t depth) { return ++values_ <= kMostValues && depth <= kMostDepth; }

    bool addContent(uint64_t bytes) {
        content_ += bytes;
        return bytes <= kMostContentBytes && content_ <= kMostContentBytes;
    }

private:
    size_t values_ = 0;
    uint64_t content_ = 0;
};

// ------------------------------------------------------------------ binary

/// What stands in the last 32 bytes.
struct Trailer {
    size_t offsetBytes;
    size_t referenceBytes;
    uint64_t objects;
    uint64_t root;
    uint64_t table;
};

constexpr size_t kTrailerBytes = 32;

/// A value, and where its parts stand if it is a collection.
struct Object {
    uint64_t references = 0; ///< where they begin
    uint64_t parts = 0;      ///< how many there are
    uint64_t keys = 0;       ///< the first of them, which are keys
    uint64_t content = 0;    ///< bytes of text or data
};

class BinaryWalk {
public:
    explicit BinaryWalk(std::string_view document) : document_(document) {}

    bool isBounded() { return readTrailer() && descend(trailer_.root) && walk(); }

private:
    /// A collection on the way from the root, and its next part.
    struct Level {
        Object object;
        uint64_t next = 0;
    };

    bool readTrailer() {
        if (document_.size() < kBinaryMagic.size() + kTrailerBytes) {
            return false;
        }
        const size_t at = document_.size() - kTrailerBytes;
        trailer_ = {byteAt(at + 6), byteAt(at + 7), *numberAt(at + 8, 8), *numberAt(at + 16, 8),
                    *numberAt(at + 24, 8)};
        // Each object takes a byte at least, and so does its place in the table.
        return trailer_.objects <= document_.size() && trailer_.offsetBytes <= 8 &&
               trailer_.referenceBytes <= 8 && trailer_.table < document_.size();
    }

    bool walk() {
        while (!path_.empty()) {
            Level& level = path_.back();
            if (level.next == level.object.parts) {
                path_.pop_back();
                continue;
            }
            const uint64_t part = level.next++;
            const bool isKey = part < level.object.keys;
            const auto reference = numberAt(
                level.object.references + part * trailer_.referenceBytes, trailer_.referenceBytes);
            if (!reference || !(isKey ? meetKey(*reference) : descend(*reference))) {
                return false;
            }
        }
        return true;
    }

    bool meetKey(uint64_t number) {
        const std::optional<Object> key = objectAt(number);
        return key && key->parts == 0 && tally_.addContent(key->content);
    }

    bool descend(uint64_t number) {
        const std::optional<Object> object = objectAt(number);
        if (!object || !tally_.meet(path_.size() + 1) || !tally_.addContent(object->content)) {
            return false;
        }
        if (object->parts > 0) {
            path_.push_back({*object});
        }
        return true;
    }

    std::optional<Object> objectAt(uint64_t number) const {
        if (number >= trailer_.objects) {
            return std::nullopt;
        }
        const auto place =
            numberAt(trailer_.table + number * trailer_.offsetBytes, trailer_.offsetBytes);
        if (!place || *place >= document_.size()) {
            return std::nullopt;
        }
        return objectOf(*place);
    }

    std::optional<Object> objectOf(uint64_t place) const {
        constexpr unsigned kData = 0x4;
        constexpr unsigned kText = 0x5;
        constexpr unsigned kWideText = 0x6;
        constexpr unsigned kArray = 0xA;
        constexpr unsigned kOrderedSet = 0xB;
        constexpr unsigned kSet = 0xC;
        constexpr unsigned kDictionary = 0xD;
        const unsigned kind = byteAt(place) >> 4;
        switch (kind) {
        case kData:
        case kText:
        case kWideText:
        case kArray:
        case kOrderedSet:
        case kSet:
        case kDictionary:
            break;
        default:
            return Object{};
        }
        uint64_t count = byteAt(place) & 0xF;
        uint64_t after = place + 1;
        if (count == 0xF && !readLongCount(after, count)) {
            return std::nullopt;
        }
        if (count > document_.size()) {
            return std::nullopt;
        }
        switch (kind) {
        case kData:
            return Object{.content = count};
        case kText:
            return textAt(after, count, 1);
        case kWideText:
            return textAt(after, count, 2);
        case kDictionary:
            return Object{.references = after, .parts = 2 * count, .keys = count};
        default:
            return Object{.references = after, .parts = count};
        }
    }

    /// None if it holds a zero or does not stand within the document.
    std::optional<Object> textAt(uint64_t place, uint64_t count, size_t unitBytes) const {
        if (place > document_.size() || count * unitBytes > document_.size() - place) {
            return std::nullopt;
        }
        for (uint64_t i = 0; i < count; ++i) {
            if (numberAt(place + i * unitBytes, unitBytes) == 0) {
                return std::nullopt;
            }
        }
        return Object{.content = count * unitBytes};
    }

    /// A count that does not fit beside the kind is an integer behind it.
    bool readLongCount(uint64_t& after, uint64_t& count) const {
        constexpr unsigned kInteger = 0x1;
        constexpr unsigned kMostPower = 3;
        const auto head = numberAt(after, 1);
        if (!head || *head >> 4 != kInteger || (*head & 0xF) > kMostPower) {
            return false;
        }
        const size_t bytes = size_t{1} << (*head & 0xF);
        const auto number = numberAt(after + 1, bytes);
        count = number.value_or(0);
        after += 1 + bytes;
        return number.has_value();
    }

    unsigned byteAt(uint64_t place) const { return static_cast<unsigned char>(document_[place]); }

    /// Big-endian; none when it does not stand within the document.
    std::optional<uint64_t> numberAt(uint64_t place, size_t bytes) const {
        if (bytes == 0 || place > document_.size() || bytes > document_.size() - place) {
            return std::nullopt;
        }
        uint64_t number = 0;
        for (size_t i = 0; i < bytes; ++i) {
            number = number << 8 | byteAt(place + i);
        }
        return number;
    }

    const std::string_view document_;
    Trailer trailer_{};
    std::vector<Level> path_;
    Tally tally_;
};

// ------------------------------------------------------------------ XML

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/// Follows the markup alone. No "<" is passed over, so whatever libplist takes for an element has
/// been counted here.
class XmlWalk {
public:
    explicit XmlWalk(std::string_view document) : rest_(document) {}

    bool isBounded() {
        if (rest_.find('\0') != std::string_view::npos) {
            return false;
        }
        for (size_t at = rest_.find('<'); at != std::string_view::npos; at = rest_.find('<')) {
            rest_.remove_prefix(at);
            if (!passMarkup()) {
                return false;
            }
        }
        return true;
    }

private:
    bool passMarkup() {
        if (rest_.starts_with("<!--")) {
            return take(4, "-->").has_value();
        }
        if (rest_.starts_with("<?")) {
            return take(2, "?>").has_value();
        }
        if (rest_.starts_with("<!")) {
            const auto declaration = take(2, ">");
            return declaration && declaration->starts_with("DOCTYPE") &&
                   declaration->find('[') == std::string_view::npos;
        }
        const auto tag = take(1, ">");
        return tag && passTag(*tag);
    }

    bool passTag(std::string_view tag) {
        if (tag.starts_with('/')) {
            return depth_ > 0 && depth_-- > 0;
        }
        size_t end = 0;
        while (end < tag.size() && !isBlank(tag[end]) && tag[end] != '/') {
            ++end;
        }
        const std::string_view name = tag.substr(0, end);
        const bool isEmpty = tag.ends_with('/');
        if (name != "plist" && tag.find_first_of("\"'=") != std::string_view::npos) {
            return false;
        }
        if (!isEmpty) {
            ++depth_;
        }
        // The document itself is no value.
        return name == "plist" || name == "key" ? depth_ <= kMostDepth + 1
                                                : tally_.meet(isEmpty ? depth_ : depth_ - 1);
    }

    /// What stands between a beginning of so many characters and a mark; both are taken as well.
    /// None if it holds another "<", or a quotation that could hide the mark.
    std::optional<std::string_view> take(size_t beginning, std::string_view mark) {
        const size_t at = rest_.find(mark, beginning);
        if (at == std::string_view::npos) {
            return std::nullopt;
        }
        const std::string_view between = rest_.substr(beginning, at - beginning);
        rest_.remove_prefix(at + mark.size());
        const bool isPlain = between.find('<') == std::string_view::npos && isEven(between, '"') &&
                             isEven(between, '\'');
        return isPlain ? std::optional(between) : std::nullopt;
    }

    static bool isEven(std::string_view text, char quote) {
        return std::count(text.begin(), text.end(), quote) % 2 == 0;
    }

    std::string_view rest_;
    size_t depth_ = 0;
    Tally tally_;
};

} // namespace

bool isBounded(std::string_view document) {
    if (document.size() > kMostBytes) {
        return false;
    }
    return document.starts_with(kBinaryMagic) ? BinaryWalk(document).isBounded()
                                              : XmlWalk(document).isBounded();
}

Owned readBounded(std::string_view document) {
    static_assert(kMostBytes <= std::numeric_limits<uint32_t>::max());
    if (document.empty() || !isBounded(document)) {
        return nullptr;
    }
    plist_t node = nullptr;
    const auto length = static_cast<uint32_t>(document.size());
    if (document.starts_with(kBinaryMagic)) {
        plist_from_bin(document.data(), length, &node);
    } else {
        plist_from_xml(document.data(), length, &node);
    }
    return Owned(node);
}

} // namespace krl::plist
