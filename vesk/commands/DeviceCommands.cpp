#include "vesk/commands/Commands.h"

#include "engine/phones/Discovery.h"
#include "engine/phones/PhoneChoice.h"
#include "engine/state/PhoneState.h"
#include "engine/values/Text.h"
#include "vesk/commands/DeviceTexts.h"
#include "vesk/commands/UnfinishedJob.h"

#include <fmt/format.h>

namespace vesk {
namespace {

/// The problem as the table has it.
std::string problemWithHint(const DeviceDescription& about) {
    const std::string problem = problemOf(about);
    return pairingHint(about).empty() ? problem : problem + " (vesk pair)";
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

} // namespace vesk
