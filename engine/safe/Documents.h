#pragma once

#include "engine/safe/Disk.h"
#include "engine/values/Digest.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace krl::engine {

// The documents that the safe and backups are made of: JSON with a version. What is read is
// believed nothing: whoever can write into the folder, or a disk that is failing, may have made it.

using Json = nlohmann::ordered_json;

/// A document is not what it should be.
class BadDocument : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An empty document of the current version.
Json newDocument();

/// Any bytes; as text where they are UTF-8, so that people can read them.
Json bytesJson(std::string_view bytes);

// What stands under a key of an object.
// @throw BadDocument when there is nothing, or something else

const Json& valueAt(const Json& object, const char* key);
std::string bytesAt(const Json& object, const char* key);
std::string textAt(const Json& object, const char* key);
uint64_t numberAt(const Json& object, const char* key);
uint64_t timeAt(const Json& object, const char* key); ///< seconds since 1970, up to the year 9999
bool boolAt(const Json& object, const char* key);
Digest digestAt(const Json& object, const char* key);

/// The same, none for null.
std::optional<Digest> optionalDigestAt(const Json& object, const char* key);

Json optionalJson(const std::optional<Digest>& digest);

/// Writes a document so that whatever happens the old or the new one is there, whole.
void writeDocument(Disk& disk, const std::filesystem::path& path, const Json& document);

/// Reads what a text says.
/// @param where  how to call it in a message
/// @throw Failure when it is damaged or of a later version, or when `read` throws BadDocument
void readDocumentText(const std::string& text, const std::string& where,
                      const std::function<void(const Json&)>& read);

/// The largest document would be that of some hundred thousand files.
inline constexpr size_t kMostDocumentBytes = size_t{128} * 1024 * 1024;

/// The same of a file.
/// @param most  bytes that it may have; a document takes many times as much memory
/// @return whether it is there
bool readDocument(const std::filesystem::path& path, const std::function<void(const Json&)>& read,
                  size_t most = kMostDocumentBytes);

} // namespace krl::engine
