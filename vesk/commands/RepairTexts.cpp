#include "vesk/commands/RepairTexts.h"

#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace vesk {
namespace {

std::string lineFor(const Repair::Ringtone& ringtone) {
    const bool isRemoved = ringtone.newFile.empty();
    const bool hasMoved = !isRemoved && ringtone.newFile != ringtone.file;
    const bool isRenamed = !ringtone.oldName.empty() && ringtone.oldName != ringtone.name;
    std::string line = fmt::format("\"{}\" ({}{})", ringtone.name, ringtone.file,
                                   hasMoved ? " -> " + ringtone.newFile : "");
    if (isRenamed) {
        line += fmt::format(", which was called \"{}\" too", ringtone.oldName);
    }
    if (ringtone.isTitled) {
        line += ", by its tags or file name";
    }
    return line + (isRemoved ? ", and taken off then, as was asked for" : "");
}

} // namespace

void sayRepair(const PhoneFacts& facts, const Repair& repair, bool wouldHappen, Output& output) {
    std::vector<std::string> mended;
    std::vector<std::string> listed;
    for (const Repair::Ringtone& ringtone : repair.ringtones) {
        (ringtone.wasListed ? mended : listed).push_back(lineFor(ringtone));
    }
    const auto say = [&](const std::vector<std::string>& lines, const char* what) {
        if (!lines.empty()) {
            output.warning(fmt::format("{} on {} {} {} (vesk undo takes it back):",
                                       counted(lines.size(), "ringtone"), facts.label(),
                                       wouldHappen         ? "would be"
                                       : lines.size() == 1 ? "is"
                                                           : "are",
                                       what),
                           lines);
        }
    };
    say(mended, "put right, since a sync would lose what lies there like that");
    say(listed, "listed again");
}

std::string describeRepair(const Repair& repair) {
    const auto listed = static_cast<size_t>(
        std::count_if(repair.ringtones.begin(), repair.ringtones.end(),
                      [](const Repair::Ringtone& ringtone) { return !ringtone.wasListed; }));
    const size_t mended = repair.ringtones.size() - listed;
    return listed == 0   ? fmt::format("{} put right", mended)
           : mended == 0 ? fmt::format("{} listed again", listed)
                         : fmt::format("{} listed again, {} put right", listed, mended);
}

Json repairJson(const Repair& repair) {
    Json ringtones = Json::array();
    for (const Repair::Ringtone& ringtone : repair.ringtones) {
        Json json{{"ringtone", ringtone.name}, {"file", ringtone.file}};
        if (!ringtone.newFile.empty()) {
            json["newFile"] = ringtone.newFile;
        }
        if (!ringtone.oldName.empty()) {
            json["oldName"] = ringtone.oldName;
        }
        json["listed"] = ringtone.wasListed;
        json["titled"] = ringtone.isTitled;
        ringtones.push_back(std::move(json));
    }
    return ringtones;
}

} // namespace vesk
