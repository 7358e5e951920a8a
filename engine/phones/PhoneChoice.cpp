#include "engine/phones/PhoneChoice.h"

#include "engine/errors/Failure.h"
#include "engine/errors/Status.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace vesk {
namespace {

std::string unreachableText(const DeviceDescription& about) {
    return fmt::format("a device that cannot be reached ({})", about.connectStatus != 0
                                                                   ? statusText(about.connectStatus)
                                                                   : "it does not answer");
}

std::vector<std::string> described(const std::vector<AttachedDevice>& phones) {
    std::vector<std::string> lines;
    for (const AttachedDevice& phone : phones) {
        const DeviceDescription& about = phone.description;
        lines.push_back(about.reachable ? fmt::format("{}  {}, {}, firmware {}", about.udid,
                                                      about.name, about.deviceClass, about.firmware)
                                        : unreachableText(about));
    }
    return lines;
}

/// The device with this UDID as soon as it is there; all devices in `seen`.
std::optional<AttachedDevice> waitForUdid(Discovery& discovery, const Options& options,
                                          std::vector<AttachedDevice>& seen) {
    const auto end = std::chrono::steady_clock::now() + options.wait;
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        const auto event = discovery.next(std::max(left, std::chrono::milliseconds{0}));
        if (!event) {
            return std::nullopt;
        }
        if (event->arrived) {
            seen.push_back({event->device, describe(event->device)});
            if (sameUdid(seen.back().description.udid, options.udid)) {
                return seen.back();
            }
        }
    }
}

Failure noPhone(const Options& options, const std::string& message,
                const std::vector<AttachedDevice>& others) {
    const double seconds = std::chrono::duration<double>(options.wait).count();
    return {ExitCode::NoPhone,
            fmt::format("{} (asked the usbmux daemon, waited {:g} s)", message, seconds),
            "Plug the phone in, wake it and try again; \"vesk devices\" shows what is attached, "
            "--wait waits longer. Is the usbmuxd daemon running?",
            described(others)};
}

AttachedDevice onlyPhone(Discovery& discovery, const Options& options) {
    std::vector<AttachedDevice> iphones;
    std::vector<AttachedDevice> silent;
    std::vector<AttachedDevice> others;
    for (const AttachedDevice& one : discovery.attached(options.wait)) {
        const DeviceDescription& about = one.description;
        (about.isIphone() ? iphones : about.reachable ? others : silent).push_back(one);
    }
    if (iphones.size() > 1) {
        throw Failure(ExitCode::SeveralPhones,
                      fmt::format("{} phones are attached", iphones.size()),
                      "Say which one is meant with --udid UDID.", described(iphones));
    }
    if (iphones.size() == 1) {
        return iphones.front();
    }
    if (!silent.empty()) {
        return silent.front();
    }
    if (!others.empty()) {
        return others.front();
    }
    throw noPhone(options, "no phone is attached", {});
}

AttachedDevice namedPhone(Discovery& discovery, const Options& options) {
    std::vector<AttachedDevice> seen;
    if (const auto phone = waitForUdid(discovery, options, seen)) {
        return *phone;
    }
    throw noPhone(options, fmt::format("no phone with the UDID {} is attached", options.udid),
                  seen);
}

void requireReachable(const DeviceDescription& about) {
    if (!about.reachable) {
        throw Failure(ExitCode::CannotOpen,
                      fmt::format("the only phone is {}", unreachableText(about)),
                      "Unplug it, plug it in again and try once more.");
    }
}

void requireUsable(const DeviceDescription& about) {
    if (!about.isIphone()) {
        throw Failure(ExitCode::NotAnIphone,
                      fmt::format("{} is not an iPhone but \"{}\"", about.label(),
                                  about.deviceClass.empty() ? "unknown" : about.deviceClass),
                      "Only iPhones have ringtones. Plug an iPhone in, or say another --udid.");
    }
    if (!about.paired) {
        throw Failure(ExitCode::NotPaired,
                      fmt::format("{} is not paired with this computer", about.label()),
                      fmt::format("Unlock the phone and pair it: vesk pair --udid {}", about.udid));
    }
}

} // namespace

AttachedDevice choosePhone(Discovery& discovery, const Options& options) {
    const AttachedDevice phone = chooseDevice(discovery, options);
    requireUsable(phone.description);
    return phone;
}

AttachedDevice chooseDevice(Discovery& discovery, const Options& options) {
    const AttachedDevice phone =
        options.udid.empty() ? onlyPhone(discovery, options) : namedPhone(discovery, options);
    requireReachable(phone.description);
    return phone;
}

} // namespace vesk
