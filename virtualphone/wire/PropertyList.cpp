#include "virtualphone/wire/PropertyList.h"

#include <cstdlib>

namespace virtualphone {

namespace {

std::string taken(char* bytes, uint64_t length) {
    std::string copy(bytes == nullptr ? "" : bytes, bytes == nullptr ? 0 : length);
    std::free(bytes);
    return copy;
}

} // namespace

Plist newDictionary() {
    return Plist(plist_new_dict());
}

Plist newArray() {
    return Plist(plist_new_array());
}

Plist newString(const std::string& text) {
    return Plist(plist_new_string(text.c_str()));
}

Plist newInteger(uint64_t number) {
    return Plist(plist_new_uint(number));
}

Plist newBoolean(bool value) {
    return Plist(plist_new_bool(value ? 1 : 0));
}

Plist newData(const std::string& bytes) {
    return Plist(plist_new_data(bytes.data(), bytes.size()));
}

void setItem(const Plist& dictionary, const std::string& key, Plist value) {
    plist_dict_set_item(dictionary.get(), key.c_str(), value.release());
}

void setItem(const Plist& dictionary, const std::string& key, const std::string& text) {
    setItem(dictionary, key, newString(text));
}

void appendItem(const Plist& array, Plist value) {
    plist_array_append_item(array.get(), value.release());
}

plist_t itemOf(const Plist& dictionary, const std::string& key) {
    return plist_dict_get_item(dictionary.get(), key.c_str());
}

std::optional<std::string> stringOf(plist_t node) {
    if (node == nullptr || plist_get_node_type(node) != PLIST_STRING) {
        return std::nullopt;
    }
    uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    return std::string(text == nullptr ? "" : text, length);
}

std::optional<uint64_t> integerOf(plist_t node) {
    if (node == nullptr || plist_get_node_type(node) != PLIST_UINT) {
        return std::nullopt;
    }
    uint64_t number = 0;
    plist_get_uint_val(node, &number);
    return number;
}

std::optional<std::string> dataOf(plist_t node) {
    if (node == nullptr || plist_get_node_type(node) != PLIST_DATA) {
        return std::nullopt;
    }
    uint64_t length = 0;
    const char* bytes = plist_get_data_ptr(node, &length);
    return std::string(bytes == nullptr ? "" : bytes, length);
}

bool isDictionary(plist_t node) {
    return node != nullptr && plist_get_node_type(node) == PLIST_DICT;
}

std::string toXml(const Plist& list) {
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_xml(list.get(), &bytes, &length);
    return taken(bytes, length);
}

std::string toBinary(const Plist& list) {
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(list.get(), &bytes, &length);
    return taken(bytes, length);
}

Plist fromBytes(std::span<const char> bytes) {
    return krl::plist::readBounded({bytes.data(), bytes.size()});
}

} // namespace virtualphone
