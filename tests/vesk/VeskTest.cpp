#include "tests/vesk/VeskTest.h"

#include <fstream>
#include <iterator>
#include <optional>
#include <utility>

namespace vesk::testing {
namespace {

namespace fs = std::filesystem;

std::string read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string lastPart(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

} // namespace

std::string catalogueText(const std::vector<Listed>& entries) {
    std::string text = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict><key>Ringtones</key><dict>)";
    for (const Listed& entry : entries) {
        text += "<key>" + entry.file + "</key><dict><key>Name</key><string>" + entry.name +
                "</string><key>GUID</key><string>" + entry.guid + "</string>";
        for (const std::string& key : entry.moreKeys) {
            text += "<key>" + key + "</key><string>x</string>";
        }
        text += "</dict>";
    }
    return text + "</dict></dict></plist>\n";
}

std::string VeskTest::local(const std::string& name, const std::string& contents) const {
    fs::create_directories(localFolder());
    const fs::path path = fs::path(localFolder()) / name;
    std::ofstream(path, std::ios::binary) << contents;
    return path.string();
}

std::string VeskTest::localFolder() const {
    return (temporaryFolder() / "music").string();
}

void VeskTest::putRingtones(const std::vector<Listed>& entries) {
    put(kCatalogue, catalogueText(entries));
    for (const Listed& entry : entries) {
        put(std::string(kFolder) + "/" + entry.file, "sound of " + entry.name);
    }
}

std::map<std::string, std::string> VeskTest::everything() const {
    std::map<std::string, std::string> result;
    for (const auto& entry : fs::recursive_directory_iterator(options.root)) {
        result[entry.path().string()] = entry.is_regular_file() ? read(entry.path()) : "";
    }
    return result;
}

std::set<std::string> VeskTest::ringtoneFolder() const {
    std::set<std::string> names;
    const fs::path folder = onDisk(kFolder);
    if (fs::exists(folder)) {
        for (const auto& entry : fs::directory_iterator(folder)) {
            names.insert(entry.path().filename().string());
        }
    }
    return names;
}

std::set<std::string> VeskTest::listedNames() {
    std::set<std::string> names;
    const nlohmann::json list = vesk({"list", "--json"}).json();
    for (const auto& ringtone : list.at("ringtones")) {
        names.insert(ringtone.at("name").get<std::string>());
    }
    return names;
}

std::vector<std::string> VeskTest::changesInLog() {
    constexpr uint64_t kOpenForWriting = 3;

    struct Change {
        std::string text;
        std::optional<uint64_t> bytes;
    };

    std::vector<Change> changes;
    std::map<std::pair<uint64_t, uint64_t>, size_t> indexOfOpenFile;
    for (const virtualphone::LogEntry& entry : log().entries()) {
        if (entry.service != "afc" || entry.status.value_or(0) != 0) {
            continue;
        }
        if (entry.request == "Rename") {
            changes.push_back(
                {"rename " + lastPart(entry.path) + " " + lastPart(entry.newPath), {}});
        } else if (entry.request == "RemovePath") {
            changes.push_back({"remove " + lastPart(entry.path), {}});
        } else if (entry.request == "MakeDirectory") {
            changes.push_back({"folder " + entry.path, {}});
        } else if (entry.request == "Open" && entry.mode == kOpenForWriting) {
            indexOfOpenFile[{entry.connection, entry.handle.value()}] = changes.size();
            changes.push_back({"write " + lastPart(entry.path), 0});
        } else if (entry.request == "Write") {
            const auto file = indexOfOpenFile.at({entry.connection, entry.handle.value()});
            *changes[file].bytes += entry.size.value();
        }
    }
    std::vector<std::string> texts;
    for (const Change& change : changes) {
        texts.push_back(change.text);
        if (change.bytes) {
            texts.back().append(" ").append(std::to_string(*change.bytes));
        }
    }
    return texts;
}

std::vector<std::string> VeskTest::changesIn(const nlohmann::json& operations) {
    std::vector<std::string> changes;
    for (const auto& operation : operations) {
        const auto kind = operation.at("operation").get<std::string>();
        const auto file = operation.value("file", std::string{});
        const auto bytes = std::to_string(operation.value("bytes", 0));
        if (kind == "create-folder") {
            changes.push_back("folder " + file);
        } else if (kind == "remove-catalogue") {
            changes.emplace_back("remove Ringtones.plist");
        } else if (kind == "rename") {
            changes.push_back("rename " + file + " " + operation.at("newFile").get<std::string>());
        } else if (kind == "remove" || kind == "delete") {
            changes.push_back("remove " + file);
        } else if (kind == "write-catalogue") {
            // One that takes the old one's place whole was uploaded under its own name before.
            changes.push_back(file.empty() ? "write Ringtones.plist " + bytes
                                           : "rename " + file + " Ringtones.plist");
        } else {
            changes.push_back("write " + file + " " + bytes);
        }
    }
    return changes;
}

VeskResult VeskTest::dryThenReal(const std::vector<std::string>& arguments) {
    std::vector<std::string> dry = arguments;
    dry.insert(dry.end(), {"--dry-run", "--json"});
    const auto before = everything();
    const VeskResult planned = vesk(dry);
    EXPECT_THAT(planned, ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before) << "a dry run changed the phone";
    EXPECT_EQ(planned.json().at("result"), "dry-run");

    std::vector<std::string> real = arguments;
    real.push_back("--json");
    log().clear();
    VeskResult done = vesk(real);
    EXPECT_THAT(done, ExitsWith(ExitCode::Success));
    EXPECT_EQ(done.json().at("result"), "done");
    EXPECT_EQ(changesInLog(), changesIn(planned.json().at("operations")));
    EXPECT_EQ(done.json().at("operations"), planned.json().at("operations"));
    return done;
}

} // namespace vesk::testing
