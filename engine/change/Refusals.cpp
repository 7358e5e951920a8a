#include "engine/change/Refusals.h"

#include "engine/values/Text.h"

#include <fmt/format.h>

namespace krl::engine {

void requireKnownFirmware(const PhoneFacts& facts) {
    if (!isKnownFirmware(facts.firmware)) {
        throw Failure(FailureKind::UnknownFirmware,
                      fmt::format("{} is not of a firmware that this is made for: custom ringtones "
                                  "are for 1.0.x and 1.1.x",
                                  facts.label()),
                      "The phone may not read what would be written. Repeat with --force to write "
                      "all the same. Nothing was changed on the phone.");
    }
}

void requireSpace(const PhoneFacts& facts, const Plan& plan) {
    if (facts.freeBytes && plan.spaceNeeded > *facts.freeBytes) {
        throw Failure(FailureKind::NoSpace,
                      fmt::format("{} has too little space: {} are free, {} are needed",
                                  facts.label(), formatBytes(*facts.freeBytes),
                                  formatBytes(plan.spaceNeeded)),
                      "New files are written before old ones are removed. Remove ringtones first "
                      "(vesk remove), or add fewer. Nothing was changed on the phone.");
    }
}

std::vector<std::string> lossesOf(const Plan& plan) {
    std::vector<std::string> details;
    for (const std::string& name : plan.lost) {
        details.push_back(
            fmt::format("\"{}\": its entry in the new catalogue would not find its file", name));
    }
    for (const HiddenRingtone& hidden : plan.hidden) {
        details.push_back(fmt::format("\"{}\" ({}): the catalogue lists it in a form that is taken "
                                      "for a placeholder, a duplicate or damage",
                                      hidden.name, hidden.file));
    }
    return details;
}

Failure wouldLose(const PhoneFacts& facts, const Plan& plan, const std::string& why) {
    const std::vector<std::string> details = lossesOf(plan);
    return {FailureKind::WouldLoseRingtones,
            fmt::format("this would lose {} that should stay on {}",
                        counted(details.size(), "ringtone"), facts.label()),
            why + " Or repeat with --force to let them go. Nothing was changed on the phone.",
            details};
}

} // namespace krl::engine
