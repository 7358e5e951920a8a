#include "nss/Pem.h"

#include "nss/Owners.h"

#include <nssb64.h>

#include <algorithm>
#include <limits>

namespace krl::nss {

namespace {

constexpr size_t kLineLength = 64;

std::string beginOf(std::string_view label) {
    return "-----BEGIN " + std::string(label) + "-----";
}

std::string endOf(std::string_view label) {
    return "-----END " + std::string(label) + "-----";
}

std::string base64(std::string_view bytes) {
    std::string owned(bytes);
    SECItem item{siBuffer, reinterpret_cast<unsigned char*>(owned.data()),
                 static_cast<unsigned>(owned.size())};
    char* encoded = NSSBase64_EncodeItem(nullptr, nullptr, 0, &item);
    std::string text = encoded == nullptr ? "" : encoded;
    PORT_Free(encoded);
    std::erase_if(text, [](char c) { return c == '\r' || c == '\n'; });
    return text;
}

} // namespace

std::string toPem(std::string_view label, std::string_view der) {
    const std::string text = base64(der);
    std::string pem = beginOf(label) + "\n";
    for (size_t at = 0; at < text.size(); at += kLineLength) {
        pem += text.substr(at, kLineLength) + "\n";
    }
    return pem + endOf(label) + "\n";
}

std::optional<Bytes> fromPem(std::string_view label, std::string_view text) {
    const std::string begin = beginOf(label);
    const size_t from = text.find(begin);
    if (from == std::string_view::npos) {
        return std::nullopt;
    }
    text.remove_prefix(from + begin.size());
    const std::string_view body = text.substr(0, text.find(endOf(label)));
    if (body.size() == text.size() || body.size() > std::numeric_limits<unsigned>::max()) {
        return std::nullopt;
    }
    const Item decoded(
        NSSBase64_DecodeBuffer(nullptr, nullptr, body.data(), static_cast<unsigned>(body.size())));
    if (!decoded || decoded->len == 0) {
        return std::nullopt;
    }
    return Bytes(reinterpret_cast<const char*>(decoded->data), decoded->len);
}

} // namespace krl::nss
