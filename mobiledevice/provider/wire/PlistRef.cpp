#include "mobiledevice/provider/wire/PlistRef.h"

#include <cstdlib>
#include <new>
#include <string_view>

namespace krl::provider {

namespace {

// The node under a key, borrowed, or null if there is none of that type.
plist_t nodeAt(const PlistRef& dictionary, const char* key, plist_type type) {
    plist_t node = plist_dict_get_item(dictionary.get(), key);
    return node != nullptr && plist_get_node_type(node) == type ? node : nullptr;
}

// libplist also reads an XML document that lacks its end, or goes on behind it.
bool isWhole(std::string_view document) {
    if (document.starts_with("bplist")) {
        return true; // its last bytes say where everything is, so libplist misses none of them
    }
    const size_t last = document.find_last_not_of(" \t\r\n");
    return last != std::string_view::npos && document.substr(0, last + 1).ends_with("</plist>");
}

} // namespace

PlistRef parseDictionary(std::span<const std::byte> bytes) {
    const std::string_view document(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    PlistRef root = isWhole(document) ? plist::readBounded(document) : nullptr;
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT) {
        return nullptr;
    }
    return root;
}

PlistRef newDictionary() {
    PlistRef dictionary(plist_new_dict());
    if (!dictionary) {
        throw std::bad_alloc();
    }
    return dictionary;
}

void setString(const PlistRef& dictionary, const char* key, const std::string& value) {
    plist_dict_set_item(dictionary.get(), key, plist_new_string(value.c_str()));
}

void setUnsigned(const PlistRef& dictionary, const char* key, uint64_t value) {
    plist_dict_set_item(dictionary.get(), key, plist_new_uint(value));
}

void setData(const PlistRef& dictionary, const char* key, const std::string& bytes) {
    plist_dict_set_item(dictionary.get(), key, plist_new_data(bytes.data(), bytes.size()));
}

std::optional<std::string> stringAt(const PlistRef& dictionary, const char* key) {
    plist_t node = nodeAt(dictionary, key, PLIST_STRING);
    if (node == nullptr) {
        return std::nullopt;
    }
    char* text = nullptr;
    plist_get_string_val(node, &text);
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    return owned ? std::optional<std::string>(owned.get()) : std::nullopt;
}

std::optional<uint64_t> unsignedAt(const PlistRef& dictionary, const char* key) {
    plist_t node = nodeAt(dictionary, key, PLIST_UINT);
    if (node == nullptr) {
        return std::nullopt;
    }
    uint64_t value = 0;
    plist_get_uint_val(node, &value);
    return value;
}

std::optional<bool> booleanAt(const PlistRef& dictionary, const char* key) {
    plist_t node = nodeAt(dictionary, key, PLIST_BOOLEAN);
    if (node == nullptr) {
        return std::nullopt;
    }
    uint8_t value = 0;
    plist_get_bool_val(node, &value);
    return value != 0;
}

std::optional<std::string> dataAt(const PlistRef& dictionary, const char* key) {
    plist_t node = nodeAt(dictionary, key, PLIST_DATA);
    if (node == nullptr) {
        return std::nullopt;
    }
    uint64_t length = 0;
    const char* bytes = plist_get_data_ptr(node, &length);
    return bytes == nullptr ? std::string() : std::string(bytes, length);
}

PlistRef dictionaryAt(const PlistRef& dictionary, const char* key) {
    plist_t node = nodeAt(dictionary, key, PLIST_DICT);
    return PlistRef(node == nullptr ? nullptr : plist_copy(node));
}

std::optional<std::vector<PlistRef>> dictionariesAt(const PlistRef& dictionary, const char* key) {
    plist_t array = nodeAt(dictionary, key, PLIST_ARRAY);
    if (array == nullptr) {
        return std::nullopt;
    }
    std::vector<PlistRef> found;
    for (uint32_t i = 0; i < plist_array_get_size(array); ++i) {
        plist_t item = plist_array_get_item(array, i);
        if (plist_get_node_type(item) == PLIST_DICT) {
            found.emplace_back(plist_copy(item));
        }
    }
    return found;
}

std::string xmlOf(const PlistRef& list) {
    char* text = nullptr;
    uint32_t length = 0;
    plist_to_xml(list.get(), &text, &length);
    const std::unique_ptr<char, decltype(&plist_to_xml_free)> owned(text, &plist_to_xml_free);
    return owned ? std::string(owned.get(), length) : std::string();
}

bool hasKey(const PlistRef& dictionary, const char* key) {
    return plist_dict_get_item(dictionary.get(), key) != nullptr;
}

} // namespace krl::provider
