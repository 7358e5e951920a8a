#include "vesk/commands/Commands.h"

#include "engine/errors/Status.h"
#include "engine/phones/DeviceNews.h"
#include "engine/phones/Discovery.h"
#include "engine/phones/PhoneChoice.h"
#include "engine/state/PhoneState.h"
#include "engine/values/Text.h"
#include "vesk/commands/UnfinishedJob.h"
#include "vesk/terminal/Interrupt.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace vesk {
namespace {

/// What stands in the way of using a device; empty when nothing does.
std::string problemOf(const DeviceDescription& about) {
    if (!about.reachable) {
        return about.connectStatus != 0 ? statusText(about.connectStatus) : "it does not answer";
    }
    if (!about.isIphone()) {
        return "not an iPhone";
    }
    return about.paired ? "" : "not paired";
}

/// What to do about a phone that is not paired; empty for any other device.
std::string pairingHint(const DeviceDescription& about) {
    return about.isIphone() && !about.paired ? fmt::format("vesk pair --udid {}", about.udid) : "";
}

/// The problem as the table has it.
std::string problemWithHint(const DeviceDescription& about) {
    const std::string problem = problemOf(about);
    return pairingHint(about).empty() ? problem : problem + " (vesk pair)";
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

void showEvent(bool arrived, const DeviceDescription& about, Output& output) {
    if (output.json()) {
        Json object{{"event", arrived ? "attached" : "removed"}};
        object.update(deviceJson(about));
        output.objectLine(object);
        return;
    }
    const std::string problem = arrived ? problemOf(about) : "";
    output.line(fmt::format("{} {}  {}  {}  {}{}", arrived ? "attached" : "removed ",
                            orUnknown(about.udid), orUnknown(about.name),
                            orUnknown(about.deviceClass), orUnknown(about.firmware),
                            problem.empty() ? "" : "  (" + problem + ")"));
    output.flush();
}

} // namespace

ExitCode runDevices(const Options& options, Output& output) {
    Discovery discovery;
    Table table({{"UDID"}, {"NAME"}, {"CLASS"}, {"FIRMWARE"}, {"PAIRED"}, {"PROBLEM"}});
    Json devices = Json::array();
    const std::vector<AttachedDevice> attached = discovery.attached(options.phone.wait);
    for (const auto& [device, about] : meantDevices(options.phone, attached)) {
        devices.push_back(deviceJson(about));
        table.add({orUnknown(about.udid), orUnknown(about.name), orUnknown(about.deviceClass),
                   orUnknown(about.firmware), about.paired ? "yes" : "no", problemWithHint(about)});
    }
    if (devices.empty()) {
        discovery.requireMuxDaemon();
        if (!attached.empty()) {
            throw noDeviceMeant(options.phone, attached);
        }
        throw Failure(FailureKind::NoPhone, "no device is attached",
                      "Plug the phone in and wake it; --wait waits longer.");
    }
    output.table(table);
    output.document({{"devices", devices}});
    return ExitCode::Success;
}

ExitCode runInfo(const Options& options, Output& output) {
    OpenPhone phone(options.phone);
    const PhoneState state = readRingtones(phone);
    const PhoneFacts& facts = state.facts;
    uint64_t ringtoneBytes = 0;
    for (const PhoneRingtone& ringtone : state.ringtones) {
        ringtoneBytes += ringtone.size;
    }
    const char* catalogue = !state.catalogueFile            ? "none yet"
                            : state.catalogueIsUnreadable() ? "unreadable"
                                                            : "readable";
    Table table({{""}, {""}});
    table.add({"Name", facts.name});
    table.add({"UDID", facts.udid});
    table.add({"Class", facts.deviceClass});
    table.add({"Firmware", facts.firmware});
    table.add({"Layout", facts.olderLayout ? "older (placeholders, slot order)" : "current"});
    table.add({"Free space", facts.freeBytes ? formatBytes(*facts.freeBytes) : "?"});
    table.add({"Catalogue", catalogue});
    table.add(
        {"Ringtones", fmt::format("{} ({})", state.ringtones.size(), formatBytes(ringtoneBytes))});
    output.table(table);
    noteUnfinishedJob(facts.udid, kNextPutsItRight, output);
    output.document({{"udid", facts.udid},
                     {"name", facts.name},
                     {"class", facts.deviceClass},
                     {"firmware", facts.firmware},
                     {"firmwareNumber", facts.firmwareNumber},
                     {"layout", facts.olderLayout ? "older" : "current"},
                     {"freeBytes", facts.freeBytes ? Json(*facts.freeBytes) : Json(nullptr)},
                     {"catalogue", catalogue},
                     {"ringtones", state.ringtones.size()},
                     {"ringtoneBytes", ringtoneBytes}});
    return ExitCode::Success;
}

ExitCode runWatch(const Options& options, Output& output) {
    const InterruptScope scope(OnInterrupt::EndWatching);
    DeviceNews news;
    output.note("watching for phones; Ctrl-C ends");
    while (output.isWanted()) {
        const DeviceNews::Item item = news.wait();
        if (!meantDevices(options.phone, {item.device}).empty()) {
            showEvent(item.arrived, item.device.description, output);
        }
    }
    return ExitCode::Success;
}

} // namespace vesk
