#include "torture/Jobs.h"

#include <fstream>

namespace torture {
namespace {

namespace fs = std::filesystem;

/// Sounds are as long as nothing else on the phone, so that none is taken for another.
std::string sound(const std::string& name, size_t bytes) {
    std::string text = "sound of " + name + " ";
    text.resize(bytes, '~');
    return text;
}

const std::map<std::string, std::string>& soundsBefore() {
    static const std::map<std::string, std::string> sounds{
        {"Marimba", sound("Marimba", 3000)},
        {"Horn", sound("Horn", 70'000)}, // more than one write
        {"Glöckchen 🔔", sound("Glöckchen", 900)},
        {"Long", sound("Long", 1200)},
        {"Harp", sound("Harp", 2500)},
    };
    return sounds;
}

std::string entry(const std::string& file, const std::string& name, const std::string& guid,
                  bool isPlaceholder) {
    return "<key>" + file + "</key><dict><key>Name</key><string>" + name +
           "</string><key>GUID</key><string>" + guid + "</string>" +
           (isPlaceholder ? "" : "<key>TrackID</key><integer>7</integer>") + "</dict>\n";
}

std::string localFile(const fs::path& folder, const std::string& name, const std::string& bytes) {
    fs::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary) << bytes;
    return (folder / name).string();
}

} // namespace

Files phoneBefore(bool olderLayout) {
    Files files;
    std::string entries;
    const auto put = [&](const std::string& file, const std::string& name,
                         const std::string& guid) {
        files["iTunes_Control/Ringtones/" + file] = soundsBefore().at(name);
        entries += entry(file, name, guid, /*isPlaceholder=*/false);
        if (olderLayout && !file.ends_with("m4r")) {
            const std::string placeholder = file.substr(0, file.rfind('.')) + ".m4r";
            files["iTunes_Control/Ringtones/" + placeholder] = "";
            entries += entry(placeholder, name, guid, /*isPlaceholder=*/true);
        }
    };
    put("KDAQ.m4r", "Marimba", "1");
    put("PBON.mp3", "Horn", "2");
    put("OHFE.aiff", "Glöckchen 🔔", "3");
    put("Longtone1.m4r", "Long", "4");
    put("QJHE.m4r", "Harp", "5");
    files["iTunes_Control/iTunes/Ringtones.plist"] =
        "<plist version=\"1.0\"><dict><key>Ringtones</key><dict>\n" + entries +
        "</dict></dict></plist>\n";
    files["DCIM/IMG_0001.JPG"] = "not ours";
    return files;
}

std::vector<Job> makeJobs(const fs::path& folder) {
    const auto& before = soundsBefore();

    Job add{"add", {}, {"add", "--unchecked"}, before, Job::Others::Stay};
    for (const auto& [file, name] : std::map<std::string, std::string>{
             {"New one.mp3", "New one"}, {"New two.m4r", "New two"}}) {
        add.wanted[name] = sound(name, name == "New one" ? 66'000 : 1111);
        add.arguments.push_back(localFile(folder / "add", file, add.wanted[name]));
    }

    Job remove{"remove", {}, {"remove", "Marimba", "Glöckchen 🔔"}, before, Job::Others::Stay};
    remove.wanted.erase("Marimba");
    remove.wanted.erase("Glöckchen 🔔");

    // Of one that has a placeholder.
    Job rename{"rename", {}, {"rename", "Horn", "Trumpet"}, before, Job::Others::Stay};
    rename.wanted["Trumpet"] = rename.wanted.at("Horn");
    rename.wanted.erase("Horn");

    // Of one that has a placeholder, by one of another type that has none.
    Job replace{"replace", {}, {"replace", "--unchecked", "Horn"}, before, Job::Others::Stay};
    replace.wanted["Horn"] = sound("New horn", 2100);
    replace.arguments.push_back(
        localFile(folder / "replace", "New horn.m4r", replace.wanted["Horn"]));

    // One stays, one is another size, one is new; the rest goes, and its names are used again.
    Job sync{"sync", {}, {"sync", "--unchecked", (folder / "sync").string()}, {}, Job::Others::Go};
    sync.wanted["Horn"] = before.at("Horn");
    sync.wanted["Harp"] = sound("Harp", 2600);
    sync.wanted["Bells"] = sound("Bells", 1300);
    localFile(folder / "sync", "Horn.mp3", sync.wanted["Horn"]);
    localFile(folder / "sync", "Harp.m4r", sync.wanted["Harp"]);
    localFile(folder / "sync", "Bells.wav", sync.wanted["Bells"]);

    const Job undo{"undo", {sync.arguments}, {"undo"}, before};

    const std::string backup = (folder / "backup").string();
    const Job restore{"restore",
                      {sync.arguments, {"backup", backup}, {"undo"}},
                      {"restore", backup},
                      sync.wanted};
    return {add, remove, rename, replace, sync, undo, restore};
}

Addition makeAddition(const fs::path& folder, const std::string& name) {
    Addition addition{name, sound(name, 1700), {}};
    addition.arguments = {"add", "--unchecked",
                          localFile(folder / "others", name + ".m4r", addition.sound)};
    return addition;
}

} // namespace torture
