#include "engine/safe/Documents.h"

#include "engine/files/RegularFile.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

namespace krl::engine {
namespace {

constexpr uint64_t kVersion = 1;

constexpr char kHexKey[] = "hex";

std::string hexOf(std::string_view bytes) {
    std::string hex;
    for (const char byte : bytes) {
        hex += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return hex;
}

unsigned digitOf(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<unsigned>(digit - '0');
    }
    if (digit >= 'a' && digit <= 'f') {
        return static_cast<unsigned>(digit - 'a') + 10;
    }
    throw BadDocument(fmt::format("\"{}\" is no hexadecimal digit", digit));
}

std::string bytesOfHex(const std::string& hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(digitOf(hex[i]) << 4U | digitOf(hex[i + 1]));
    }
    if (hex.size() % 2 != 0) {
        throw BadDocument("hexadecimal digits come in pairs");
    }
    return bytes;
}

Failure damaged(const std::string& where, const std::string& why) {
    return {FailureKind::NothingKept, fmt::format("{} cannot be used: {}", where, why),
            "It was damaged, or written by a later version. Nothing was changed on the phone."};
}

} // namespace

Json newDocument() {
    return {{"version", kVersion}};
}

Json bytesJson(std::string_view bytes) {
    return isUtf8(bytes) ? Json(bytes) : Json{{kHexKey, hexOf(bytes)}};
}

const Json& valueAt(const Json& object, const char* key) {
    const auto found = object.is_object() ? object.find(key) : object.end();
    if (found == object.end()) {
        throw BadDocument(fmt::format("\"{}\" is missing", key));
    }
    return *found;
}

std::string bytesAt(const Json& object, const char* key) {
    const Json& value = valueAt(object, key);
    return value.is_object() ? bytesOfHex(textAt(value, kHexKey)) : textAt(object, key);
}

std::string textAt(const Json& object, const char* key) {
    const Json& value = valueAt(object, key);
    if (!value.is_string()) {
        throw BadDocument(fmt::format("\"{}\" is no text", key));
    }
    return value.get<std::string>();
}

uint64_t numberAt(const Json& object, const char* key) {
    const Json& value = valueAt(object, key);
    if (!value.is_number_unsigned()) {
        throw BadDocument(fmt::format("\"{}\" is no number", key));
    }
    return value.get<uint64_t>();
}

uint64_t timeAt(const Json& object, const char* key) {
    constexpr uint64_t kEndOfYear9999 = 253402300799;
    const uint64_t seconds = numberAt(object, key);
    if (seconds > kEndOfYear9999) {
        throw BadDocument(fmt::format("\"{}\" is no time", key));
    }
    return seconds;
}

bool boolAt(const Json& object, const char* key) {
    const Json& value = valueAt(object, key);
    if (!value.is_boolean()) {
        throw BadDocument(fmt::format("\"{}\" is neither true nor false", key));
    }
    return value.get<bool>();
}

Digest digestAt(const Json& object, const char* key) {
    const auto digest = Digest::parse(textAt(object, key));
    if (!digest) {
        throw BadDocument(fmt::format("\"{}\" is no digest", key));
    }
    return *digest;
}

std::optional<Digest> optionalDigestAt(const Json& object, const char* key) {
    return valueAt(object, key).is_null() ? std::nullopt : std::optional(digestAt(object, key));
}

Json optionalJson(const std::optional<Digest>& digest) {
    return digest ? Json(digest->hex()) : Json(nullptr);
}

void writeDocument(Disk& disk, const std::filesystem::path& path, const Json& document) {
    replaceFile(disk, path, document.dump(1) + "\n");
}

void readDocumentText(const std::string& text, const std::string& where,
                      const std::function<void(const Json&)>& read) {
    const Json document = Json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (document.is_discarded()) {
        throw damaged(where, "it is no JSON document");
    }
    try {
        if (numberAt(document, "version") != kVersion) {
            throw BadDocument("it is of another version");
        }
        read(document);
    } catch (const BadDocument& bad) {
        throw damaged(where, bad.what());
    }
}

bool readDocument(const std::filesystem::path& path, const std::function<void(const Json&)>& read,
                  size_t most) {
    std::error_code ignored;
    if (!std::filesystem::exists(std::filesystem::symlink_status(path, ignored))) {
        return false;
    }
    const std::string where = fmt::format("\"{}\"", path.string());
    const RegularFile file(path, "Look at its permissions. Nothing was changed on the phone.");
    readDocumentText(file.bytes(most), where, read);
    return true;
}

} // namespace krl::engine
