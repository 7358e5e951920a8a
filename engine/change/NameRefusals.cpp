#include "engine/change/NameRefusals.h"

#include "engine/errors/Failure.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <set>

namespace krl::engine {

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

void requireNamesFree(const PhoneState& state, const std::vector<std::string>& names) {
    const std::set<std::string> there = namesOf(state.ringtones);
    std::vector<std::string> taken;
    std::copy_if(names.begin(), names.end(), std::back_inserter(taken),
                 [&](const std::string& name) { return there.contains(name); });
    if (!taken.empty()) {
        throw Failure(FailureKind::NameTaken,
                      fmt::format("{} already has {}", state.facts.label(), quotedList(taken)),
                      "Add it under another name (--name), or in place of the old one "
                      "(--replace). Nothing was changed on the phone.");
    }
}

void requireNameFree(const PhoneState& state, const std::string& from, const std::string& name) {
    const auto taken = Spellings(state.ringtones).of(name);
    if (taken && *taken != from) {
        throw Failure(FailureKind::NameTaken,
                      fmt::format("{} already has \"{}\"", state.facts.label(), *taken),
                      "Choose another name, or remove or rename that ringtone first. Nothing was "
                      "changed on the phone.");
    }
}

void requireYes(const PhoneState& state, const std::string& what) {
    if (!state.ringtones.empty()) {
        throw Failure(FailureKind::NeedsYes,
                      fmt::format("{} would remove all {} from {}", what,
                                  counted(state.ringtones.size(), "ringtone"), state.facts.label()),
                      "If that is what you want, repeat with --yes. Nothing was changed on the "
                      "phone.");
    }
}

} // namespace krl::engine
