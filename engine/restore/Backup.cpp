#include "engine/restore/Backup.h"

#include "engine/files/FileNames.h"
#include "engine/files/RegularFile.h"
#include "engine/state/Catalogue.h"

#include <fmt/format.h>

#include <cerrno>
#include <map>

namespace krl::engine {
namespace {

namespace fs = std::filesystem;

constexpr char kDocument[] = "krlvesk-backup.json";

Failure unusable(const fs::path& folder, const std::string& why) {
    return unreadable(folder, why, "Nothing was changed on the phone.");
}

/// The names that a backup's files have in its folder.
class ReadableNames {
public:
    explicit ReadableNames(const Catalogue& catalogue) {
        names_.reserve(kDocument);
        for (const CatalogueEntry& entry : catalogue.entries) {
            if (!entry.malformed && !entry.name.empty()) {
                titles_[entry.file] = entry.name;
            }
        }
    }

    std::string nameFor(const std::string& file) {
        const size_t point = file.rfind('.');
        const bool hasExtension = point != std::string::npos && point > 0;
        const auto title = titles_.find(file);
        return names_.give(title != titles_.end() ? title->second : file.substr(0, point),
                           hasExtension ? file.substr(point + 1) : "");
    }

private:
    std::map<std::string, std::string> titles_; ///< file on the phone to name
    FileNames names_;
};

void makeEmptyFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (!error && !fs::is_empty(folder, error)) {
        throw unusable(folder, "a backup needs an empty folder, or one that is not there yet");
    }
    if (error) {
        throw unusable(folder, error.message());
    }
}

void writeContent(ContentStore& contents, const Digest& digest, const fs::path& path) {
    Disk& disk = realDisk();
    const Descriptor file = createFile(disk, path);
    contents.read(digest, [&](std::string_view piece) { writeAll(disk, file, path, piece); });
    syncFile(disk, file, path);
}

std::string catalogueBytes(ContentStore& contents, const Snapshot& snapshot) {
    return snapshot.catalogue ? contents.bytes(snapshot.catalogue->digest) : std::string{};
}

/// A file of the folder, into the safe.
Content takeFile(PhoneSafe& safe, const fs::path& folder, const Json& json) {
    const Content content = contentAt(json, "content");
    if (content.size == 0) {
        return safe.contents().put({});
    }
    const std::string name = bytesAt(json, "copy");
    if (!isPlainName(name)) {
        throw BadDocument("a copy has a name that leads elsewhere");
    }
    if (safe.contents().putFile(folder / name) != content) {
        throw BadDocument(fmt::format("\"{}\" is not what was kept", name));
    }
    return content;
}

} // namespace

void writeBackup(PhoneSafe& safe, const Backup& backup, const fs::path& folder) {
    makeEmptyFolder(folder);
    const std::string catalogue = catalogueBytes(safe.contents(), backup.snapshot);
    ReadableNames names(readCatalogue(catalogue));
    Json files = Json::array();
    for (const auto& [file, kept] : backup.snapshot.files) {
        Json json{{"name", bytesJson(file)}, {"content", contentJson(kept.content)}};
        if (kept.content.size > 0) {
            const std::string name = names.nameFor(file);
            writeContent(safe.contents(), kept.content.digest, folder / name);
            json["copy"] = name;
        }
        files.push_back(std::move(json));
    }
    Json document = newDocument();
    document["time"] = backup.time;
    document["udid"] = bytesJson(backup.udid);
    document["phone"] = bytesJson(backup.phoneName);
    document["catalogue"] = backup.snapshot.catalogue ? bytesJson(catalogue) : Json(nullptr);
    document["folder"] = backup.snapshot.hasFolder;
    document["files"] = std::move(files);
    writeDocument(realDisk(), folder / kDocument, document);
    syncFolder(realDisk(), folder);
}

Backup readBackup(PhoneSafe& safe, const fs::path& folder) {
    Backup backup;
    const bool isThere = readDocument(folder / kDocument, [&](const Json& document) {
        backup.time = timeAt(document, "time");
        backup.udid = bytesAt(document, "udid");
        backup.phoneName = bytesAt(document, "phone");
        backup.snapshot.hasFolder = boolAt(document, "folder");
        if (!valueAt(document, "catalogue").is_null()) {
            backup.snapshot.catalogue = safe.contents().put(bytesAt(document, "catalogue"));
        }
        for (const Json& json : valueAt(document, "files")) {
            const std::string name = bytesAt(json, "name");
            if (!isPlainName(name)) {
                throw BadDocument("a file has a name that leads elsewhere");
            }
            backup.snapshot.files.insert_or_assign(
                name, Snapshot::File{takeFile(safe, folder, json), {}});
        }
    });
    if (!isThere) {
        throw unusable(folder, fmt::format("it is no backup: there is no {} in it", kDocument));
    }
    return backup;
}

} // namespace krl::engine
