#include "mobiledevice/provider/devices/AfcLists.h"

#include <cstring>

namespace krl::provider {

namespace {

// The text at a position, which moves behind it; null at the end. The row must end with a zero.
char* nextText(std::vector<char>& row, size_t& position) {
    if (position == row.size()) {
        return nullptr;
    }
    char* text = row.data() + position;
    position += std::strlen(text) + 1;
    return text;
}

// Whether the bytes are groups of `groupSize` texts, the first of each not empty: no file and no
// key lacks a name, but a value may be empty.
bool areTexts(std::vector<char>& row, size_t groupSize) {
    if (!row.empty() && row.back() != '\0') {
        return false;
    }
    size_t position = 0;
    size_t count = 0;
    while (const char* text = nextText(row, position)) {
        if (count % groupSize == 0 && *text == '\0') {
            return false;
        }
        ++count;
    }
    return count % groupSize == 0;
}

} // namespace

Directory::Directory(std::vector<char> bytes) : bytes_(std::move(bytes)) {}

std::shared_ptr<Directory> Directory::parse(std::vector<char> bytes) {
    if (!areTexts(bytes, 1)) {
        return nullptr;
    }
    return std::shared_ptr<Directory>(new Directory(std::move(bytes)));
}

char* Directory::next() {
    return nextText(bytes_, position_);
}

KeyValues::KeyValues(std::vector<char> bytes) : bytes_(std::move(bytes)) {}

std::shared_ptr<KeyValues> KeyValues::parse(std::vector<char> bytes) {
    if (!areTexts(bytes, 2)) {
        return nullptr;
    }
    return std::shared_ptr<KeyValues>(new KeyValues(std::move(bytes)));
}

std::pair<char*, char*> KeyValues::next() {
    char* key = nextText(bytes_, position_);
    char* value = nextText(bytes_, position_);
    return {key, value};
}

} // namespace krl::provider
