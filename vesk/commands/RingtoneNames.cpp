#include "vesk/commands/RingtoneNames.h"

#include "engine/errors/Failure.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <set>

namespace vesk {

void requireNamesFound(const PhoneState& state, const std::vector<std::string>& names) {
    const std::set<std::string> there = namesOf(state.ringtones);
    std::vector<std::string> missing;
    std::vector<std::string> details;
    for (const std::string& name : names) {
        if (!there.contains(name)) {
            missing.push_back(name);
            const auto close = closeNames(name, {there.begin(), there.end()});
            if (!close.empty()) {
                details.push_back(
                    fmt::format("instead of \"{}\", did you mean {}?", name, quotedList(close)));
            }
        }
    }
    if (!missing.empty()) {
        throw Failure(FailureKind::NameNotFound,
                      fmt::format("{} {} not on {}", quotedList(missing),
                                  missing.size() == 1 ? "is" : "are", state.facts.label()),
                      "\"vesk list\" shows the names. Nothing was changed on the phone.", details);
    }
}

} // namespace vesk
