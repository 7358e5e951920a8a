// Binary property lists written by hand, so that they can be what no writer makes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace krl::plist::testing {

/// Objects are numbered in the order in which they are added; a reference takes two bytes.
class BinaryList {
public:
    /// An array, or with `kind` 0xD a dictionary, whose references are keys and then values.
    void addCollection(const std::vector<uint16_t>& references, unsigned kind = 0xA) {
        const size_t parts = kind == 0xD ? references.size() / 2 : references.size();
        std::string object = head(kind, parts);
        for (const uint16_t reference : references) {
            object += bigEndian(reference, 2);
        }
        add(object);
    }

    void addText(const std::string& text) { add(head(0x5, text.size()) + text); }

    /// Units of two bytes.
    void addWideText(const std::string& units) { add(head(0x6, units.size() / 2) + units); }

    void addTrue() { add("\x09"); }

    /// The document; the object of this number is the root.
    std::string bytes(uint64_t root = 0) const {
        std::string all = "bplist00";
        std::string table;
        for (const std::string& object : objects_) {
            table += bigEndian(all.size(), 4);
            all += object;
        }
        const uint64_t tablePlace = all.size();
        return all + table + std::string(6, '\0') + "\x04\x02" + bigEndian(objects_.size(), 8) +
               bigEndian(root, 8) + bigEndian(tablePlace, 8);
    }

    /// Arrays of arrays, each level naming the next one so many times: a few bytes that stand for
    /// breadth to the power of depth values.
    static std::string bomb(size_t depth, size_t breadth) {
        BinaryList list;
        for (size_t level = 1; level < depth; ++level) {
            list.addCollection(std::vector<uint16_t>(breadth, static_cast<uint16_t>(level)));
        }
        list.addTrue();
        return list.bytes();
    }

private:
    static std::string bigEndian(uint64_t number, size_t size) {
        std::string text(size, '\0');
        for (size_t i = size; i-- > 0; number >>= 8) {
            text[i] = static_cast<char>(number);
        }
        return text;
    }

    static std::string head(unsigned kind, size_t count) {
        if (count < 15) {
            return std::string(1, static_cast<char>(kind << 4 | count));
        }
        return std::string(1, static_cast<char>(kind << 4 | 0xF)) + "\x12" + bigEndian(count, 4);
    }

    void add(const std::string& object) { objects_.push_back(object); }

    std::vector<std::string> objects_;
};

} // namespace krl::plist::testing
