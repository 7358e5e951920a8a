#include "corefoundation/propertylists/XMLEncoding.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <iconv.h>
#include <new>

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

/// The number behind a prefix, when a name is made of these two; 0 when it is not.
unsigned numberBehind(std::string_view name, std::string_view prefix) {
    unsigned number = 0;
    if (!name.starts_with(prefix)) {
        return 0;
    }
    const char* const last = name.data() + name.size();
    const auto [end, error] = std::from_chars(name.data() + prefix.size(), last, number);
    return error == std::errc() && end == last ? number : 0;
}

/// The part of ISO-8859 that a name stands for, by any of the names that it is registered under; 0
/// for another encoding.
unsigned partOfIso8859(std::string_view name) {
    // The alphabets are numbered otherwise than the parts of the standard.
    constexpr unsigned kPartOfAlphabet[] = {0, 1, 2, 3, 4, 9, 10, 13, 14, 15, 16};
    // As in "iso_8859-1:1987".
    const std::string_view withoutYear = name.substr(0, name.find(':'));
    for (const auto prefix : {"iso-8859-", "iso_8859-", "iso8859-", "iso8859"}) {
        if (const unsigned part = numberBehind(withoutYear, prefix)) {
            return part <= 16 && part != 12 ? part : 0;
        }
    }
    for (const auto prefix : {"latin", "latin-", "l", "csisolatin"}) {
        if (const unsigned alphabet = numberBehind(name, prefix)) {
            return alphabet < std::size(kPartOfAlphabet) ? kPartOfAlphabet[alphabet] : 0;
        }
    }
    const bool isFirst = name == "iso-ir-100" || name == "ibm819" || name == "cp819";
    return isFirst ? 1 : 0;
}

bool isNameOfAscii(std::string_view name) {
    constexpr std::string_view kNames[] = {"us-ascii", "ascii",  "ansi_x3.4-1968", "iso646-us",
                                           "us",       "ibm367", "cp367",          "csascii"};
    return std::find(std::begin(kNames), std::end(kNames), name) != std::end(kNames);
}

/// What a declared name means to the converter; empty when it is not one of ours. The converter
/// knows many more encodings, but a document from outside shall not choose among all its code.
std::string converterName(const std::string& declared) {
    if (declared == kUtf8 || declared == "utf8") {
        return std::string(kUtf8);
    }
    if (isNameOfAscii(declared)) {
        return "iso-8859-1";
    }
    if (const unsigned part = partOfIso8859(declared)) {
        return "iso-8859-" + std::to_string(part);
    }
    for (const auto prefix : {"windows-", "cp"}) {
        const unsigned page = numberBehind(declared, prefix);
        if (page >= 1250 && page <= 1258) {
            return "windows-" + std::to_string(page);
        }
    }
    return {};
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
    explicit Converter(const std::string& from) : handle_(iconv_open("UTF-8", from.c_str())) {
        if (!isOpen() && errno == ENOMEM) {
            throw std::bad_alloc();
        }
    }

    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    ~Converter() {
        if (isOpen()) {
            iconv_close(handle_);
        }
    }

    std::optional<std::string> convert(std::string_view bytes) {
        if (!isOpen()) {
            return std::nullopt;
        }
        std::string result;
        result.reserve(bytes.size());
        std::array<char, 65536> piece;
        // iconv only reads, whatever its declaration says.
        char* in = const_cast<char*>(bytes.data());
        for (size_t inLeft = bytes.size(); inLeft > 0;) {
            char* out = piece.data();
            size_t outLeft = piece.size();
            const size_t converted = iconv(handle_, &in, &inLeft, &out, &outLeft);
            if (converted == static_cast<size_t>(-1) && errno != E2BIG) {
                return std::nullopt;
            }
            result.append(piece.data(), out);
        }
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
