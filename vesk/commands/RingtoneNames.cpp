#include "vesk/commands/RingtoneNames.h"

#include "engine/errors/Failure.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <set>

namespace vesk {

std::vector<std::string> foundNames(const PhoneState& state,
                                    const std::vector<std::string>& names) {
    const Spellings spellings(state.ringtones);
    std::vector<std::string> found;
    std::vector<std::string> missing;
    for (const std::string& name : names) {
        const auto spelled = spellings.of(name);
        (spelled ? found : missing).push_back(spelled.value_or(name));
    }
    if (missing.empty()) {
        return found;
    }
    const std::set<std::string> there = namesOf(state.ringtones);
    std::vector<std::string> details;
    for (const std::string& name : missing) {
        const auto close = closeNames(name, {there.begin(), there.end()});
        if (!close.empty()) {
            details.push_back(
                fmt::format("instead of \"{}\", did you mean {}?", name, quotedList(close)));
        }
    }
    throw Failure(FailureKind::NameNotFound,
                  fmt::format("{} {} not on {}", quotedList(missing),
                              missing.size() == 1 ? "is" : "are", state.facts.label()),
                  "\"vesk list\" shows the names. Nothing was changed on the phone.", details);
}

} // namespace vesk
