#include "corefoundation/propertylists/XMLEncoding.h"

#include <algorithm>
#include <cstdint>
#include <iconv.h>

namespace krl::cf {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view kUtf8 = "utf-8";

struct ByteOrderMark {
    std::string_view mark;
    std::string_view encoding;
};

// The mark of UTF-32 begins like that of UTF-16 and is therefore looked for first.
constexpr ByteOrderMark kByteOrderMarks[] = {
    {"\xEF\xBB\xBF"sv, kUtf8},        {"\xFF\xFE\0\0"sv, "utf-32le"sv},
    {"\0\0\xFE\xFF"sv, "utf-32be"sv}, {"\xFF\xFE"sv, "utf-16le"sv},
    {"\xFE\xFF"sv, "utf-16be"sv},
};

std::string lowercase(std::string_view text) {
    std::string result(text);
    for (char& character : result) {
        if (character >= 'A' && character <= 'Z') {
            character = static_cast<char>(character - 'A' + 'a');
        }
    }
    return result;
}

bool isNumberedSet(std::string_view name, std::string_view prefix) {
    if (!name.starts_with(prefix)) {
        return false;
    }
    name.remove_prefix(prefix.size());
    return !name.empty() && name.size() <= 2 &&
           std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// What a declared name means to the converter; empty when it is not one of ours. The converter
/// knows many more encodings, but a document from outside shall not choose among all its code.
std::string converterName(const std::string& declared) {
    if (declared == kUtf8 || declared == "utf8") {
        return std::string(kUtf8);
    }
    if (declared == "us-ascii" || declared == "ascii") {
        return "iso-8859-1";
    }
    const bool known =
        isNumberedSet(declared, "iso-8859-") || isNumberedSet(declared, "windows-125");
    return known ? declared : std::string();
}

/// The encoding that the declaration at the document's start names; empty when it names none.
std::string declaredEncoding(std::string_view text) {
    if (!text.starts_with("<?xml")) {
        return {};
    }
    constexpr std::string_view kAttribute = "encoding=";
    const std::string_view declaration = text.substr(0, text.find("?>"));
    const size_t start = declaration.find(kAttribute);
    if (start == std::string_view::npos) {
        return {};
    }
    std::string_view value = declaration.substr(start + kAttribute.size());
    if (value.empty() || (value.front() != '"' && value.front() != '\'')) {
        return {};
    }
    const size_t end = value.find(value.front(), 1);
    return end == std::string_view::npos ? std::string() : lowercase(value.substr(1, end - 1));
}

/// The system's converter, which closes itself.
class Converter {
public:
    explicit Converter(const std::string& from) : handle_(iconv_open("UTF-8", from.c_str())) {}

    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    ~Converter() {
        if (isOpen()) {
            iconv_close(handle_);
        }
    }

    std::optional<std::string> convert(std::string_view bytes) {
        constexpr size_t kLargestGrowth = 4; // no unit of any encoding gives more bytes of UTF-8
        if (!isOpen()) {
            return std::nullopt;
        }
        std::string result(bytes.size() * kLargestGrowth, '\0');
        char* in =
            const_cast<char*>(bytes.data()); // iconv only reads, whatever its declaration says
        size_t inLeft = bytes.size();
        char* out = result.data();
        size_t outLeft = result.size();
        if (iconv(handle_, &in, &inLeft, &out, &outLeft) == static_cast<size_t>(-1)) {
            return std::nullopt;
        }
        result.resize(result.size() - outLeft);
        return result;
    }

private:
    bool isOpen() const { return handle_ != reinterpret_cast<iconv_t>(static_cast<intptr_t>(-1)); }

    iconv_t handle_;
};

std::optional<Utf8Document> convertFrom(const std::string& encoding, std::string_view bytes) {
    if (encoding == kUtf8) {
        return Utf8Document::borrowing(bytes);
    }
    auto converted = Converter(encoding).convert(bytes);
    if (!converted) {
        return std::nullopt;
    }
    return Utf8Document::owning(std::move(*converted));
}

} // namespace

std::optional<Utf8Document> convertToUtf8(std::string_view bytes) {
    for (const ByteOrderMark& candidate : kByteOrderMarks) {
        if (bytes.starts_with(candidate.mark)) {
            return convertFrom(std::string(candidate.encoding),
                               bytes.substr(candidate.mark.size()));
        }
    }
    const std::string declared = declaredEncoding(bytes);
    const std::string encoding = declared.empty() ? std::string(kUtf8) : converterName(declared);
    if (encoding.empty()) {
        return std::nullopt;
    }
    return convertFrom(encoding, bytes);
}

} // namespace krl::cf
