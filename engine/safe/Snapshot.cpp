#include "engine/safe/Snapshot.h"

#include <algorithm>

namespace krl::engine {

bool sameContents(const Snapshot& left, const Snapshot& right) {
    return left.catalogue == right.catalogue &&
           std::equal(left.files.begin(), left.files.end(), right.files.begin(), right.files.end(),
                      [](const auto& one, const auto& other) {
                          return one.first == other.first &&
                                 one.second.content == other.second.content;
                      });
}

bool isPlainName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

Json contentJson(const Content& content) {
    return {{"bytes", content.size}, {"sha256", content.digest.hex()}};
}

Content contentAt(const Json& object, const char* key) {
    const Json& value = valueAt(object, key);
    return {digestAt(value, "sha256"), numberAt(value, "bytes")};
}

namespace {

Json filesJson(const std::map<std::string, Snapshot::File>& files) {
    Json result = Json::array();
    for (const auto& [name, file] : files) {
        Json json{{"name", bytesJson(name)}, {"content", contentJson(file.content)}};
        if (!file.modified.empty()) {
            json["modified"] = bytesJson(file.modified);
        }
        result.push_back(std::move(json));
    }
    return result;
}

std::map<std::string, Snapshot::File> filesAt(const Json& document) {
    std::map<std::string, Snapshot::File> files;
    for (const Json& json : valueAt(document, "files")) {
        const std::string name = bytesAt(json, "name");
        if (!isPlainName(name)) {
            throw BadDocument("a file has a name that leads elsewhere");
        }
        Snapshot::File file{contentAt(json, "content"), {}};
        if (json.contains("modified")) {
            file.modified = bytesAt(json, "modified");
        }
        files.insert_or_assign(name, std::move(file));
    }
    return files;
}

Json catalogueJson(const std::optional<Content>& catalogue) {
    Json json;
    json["catalogue"] = catalogue ? contentJson(*catalogue) : Json(nullptr);
    return json;
}

std::optional<Content> catalogueAt(const Json& object) {
    return valueAt(object, "catalogue").is_null() ? std::nullopt
                                                  : std::optional(contentAt(object, "catalogue"));
}

} // namespace

Index indexOf(const Snapshot& snapshot) {
    return {snapshot.files, {snapshot.catalogue}};
}

Json indexJson(const Index& index) {
    Json catalogues = Json::array();
    for (const auto& catalogue : index.catalogues) {
        catalogues.push_back(catalogueJson(catalogue));
    }
    Json document = newDocument();
    document["catalogues"] = std::move(catalogues);
    document["files"] = filesJson(index.files);
    return document;
}

Index indexOf(const Json& document) {
    Index index{filesAt(document), {}};
    for (const Json& json : valueAt(document, "catalogues")) {
        index.catalogues.insert(catalogueAt(json));
    }
    return index;
}

Json snapshotJson(const Snapshot& snapshot) {
    Json document = newDocument();
    document.update(catalogueJson(snapshot.catalogue));
    document["folder"] = snapshot.hasFolder;
    document["files"] = filesJson(snapshot.files);
    return document;
}

Snapshot snapshotOf(const Json& document) {
    return {catalogueAt(document), boolAt(document, "folder"), filesAt(document)};
}

} // namespace krl::engine
