#pragma once

#include "engine/state/OpenPhone.h"
#include "vesk/terminal/Output.h"

#include <string>
#include <utility>
#include <vector>

namespace vesk {

/// "phone" in the documents of commands that work on one.
inline Json phoneJson(const PhoneFacts& facts) {
    return {{"udid", facts.udid}, {"name", facts.name}, {"firmware", facts.firmware}};
}

/// "renamed" in the documents of commands that change names.
/// @param renamed  old names and new ones
inline Json renamedJson(const std::vector<std::pair<std::string, std::string>>& renamed) {
    Json json = Json::array();
    for (const auto& [from, to] : renamed) {
        json.push_back({{"from", from}, {"to", to}});
    }
    return json;
}

} // namespace vesk
