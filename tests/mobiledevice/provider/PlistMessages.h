// Messages of lockdown and the notification proxy byte by byte.
#pragma once

#include "mobiledevice/provider/wire/PlistRef.h"
#include "tests/mobiledevice/provider/SocketPair.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace krl::provider::testing {

inline std::string framed(const std::string& body) {
    const auto size = static_cast<uint32_t>(body.size());
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) {
        bytes.push_back(static_cast<char>(size >> shift));
    }
    return bytes + body;
}

inline std::string xmlDocument(const std::string& value) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + value +
           "</plist>\n";
}

/// A dictionary; the values are XML.
inline std::string xmlDictionary(const std::vector<std::pair<std::string, std::string>>& entries) {
    std::string text = "<dict>";
    for (const auto& [key, value] : entries) {
        text += "<key>" + key + "</key>" + value;
    }
    return text + "</dict>";
}

inline std::string xmlString(const std::string& text) {
    return "<string>" + text + "</string>";
}

inline std::string message(const std::vector<std::pair<std::string, std::string>>& entries) {
    return framed(xmlDocument(xmlDictionary(entries)));
}

inline std::string binary(const std::string& xml) {
    plist_t node = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &node);
    const PlistRef owned(node);
    char* bytes = nullptr;
    uint32_t size = 0;
    plist_to_bin(node, &bytes, &size);
    std::string result(bytes, size);
    plist_to_bin_free(bytes);
    return result;
}

/// The next message that the client has sent; null if it is none.
inline PlistRef heardMessage(const SocketPair& pair) {
    const std::string header = pair.hear(4);
    uint32_t size = 0;
    for (const char byte : header) {
        size = size << 8 | static_cast<uint8_t>(byte);
    }
    const std::string body = pair.hear(size);
    return parseDictionary(std::as_bytes(std::span(body)));
}

} // namespace krl::provider::testing
