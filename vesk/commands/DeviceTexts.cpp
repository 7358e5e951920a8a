#include "vesk/commands/DeviceTexts.h"

#include "engine/errors/Status.h"

#include <fmt/format.h>

namespace vesk {

std::string problemOf(const DeviceDescription& about) {
    if (!about.reachable) {
        return about.connectStatus != 0 ? statusText(about.connectStatus) : "it does not answer";
    }
    if (!about.isIphone()) {
        return "not an iPhone";
    }
    return about.paired ? "" : "not paired";
}

std::string pairingHint(const DeviceDescription& about) {
    return about.isIphone() && !about.paired ? fmt::format("vesk pair --udid {}", about.udid) : "";
}

Json deviceJson(const DeviceDescription& about) {
    const std::string problem = problemOf(about);
    Json json{{"udid", about.udid},         {"name", about.name},     {"class", about.deviceClass},
              {"firmware", about.firmware}, {"paired", about.paired}, {"usable", problem.empty()}};
    if (!problem.empty()) {
        json["problem"] = problem;
    }
    if (const std::string hint = pairingHint(about); !hint.empty()) {
        json["hint"] = hint;
    }
    return json;
}

std::string orUnknown(const std::string& text) {
    return text.empty() ? "?" : text;
}

} // namespace vesk
