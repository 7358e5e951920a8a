#include "engine/phones/PhoneChoice.h"

#include "engine/errors/Failure.h"
#include "engine/errors/Status.h"
#include "engine/phones/PairedPhones.h"
#include "engine/phones/PairingKeeper.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace krl::engine {
namespace {

std::string unreachableText(const DeviceDescription& about) {
    return fmt::format("{} cannot be reached ({})", about.label(),
                       about.connectStatus != 0 ? statusText(about.connectStatus)
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
std::optional<AttachedDevice> waitForUdid(Discovery& discovery, const PhoneRequest& request,
                                          std::vector<AttachedDevice>& seen) {
    const auto end = std::chrono::steady_clock::now() + request.wait;
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        const auto event = discovery.next(std::max(left, std::chrono::milliseconds{0}));
        if (!event) {
            return std::nullopt;
        }
        if (event->arrived) {
            seen.push_back({event->device, describe(event->device)});
            if (sameUdid(seen.back().description.udid, request.udid)) {
                return seen.back();
            }
        }
    }
}

Failure noPhone(const PhoneRequest& request, const std::string& message,
                const std::vector<AttachedDevice>& others) {
    const double seconds = std::chrono::duration<double>(request.wait).count();
    return {FailureKind::NoPhone,
            fmt::format("{} (asked the usbmux daemon, waited {:g} s)", message, seconds),
            "Plug the phone in, wake it and try again; \"vesk devices\" shows what is attached, "
            "--wait waits longer.",
            described(others)};
}

AttachedDevice onlyPhone(Discovery& discovery, const PhoneRequest& request) {
    std::vector<AttachedDevice> iphones;
    std::vector<AttachedDevice> silent;
    std::vector<AttachedDevice> others;
    for (const AttachedDevice& one : discovery.attached(request.wait)) {
        const DeviceDescription& about = one.description;
        (about.isIphone() ? iphones : about.reachable ? others : silent).push_back(one);
    }
    if (iphones.size() > 1) {
        throw Failure(FailureKind::SeveralPhones,
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
    discovery.requireMuxDaemon();
    throw noPhone(request, "no phone is attached", {});
}

AttachedDevice namedPhone(Discovery& discovery, const PhoneRequest& request) {
    std::vector<AttachedDevice> seen;
    if (const auto phone = waitForUdid(discovery, request, seen)) {
        return *phone;
    }
    discovery.requireMuxDaemon();
    throw noPhone(request, fmt::format("no phone with the UDID {} is attached", request.udid),
                  seen);
}

void requireReachable(const DeviceDescription& about) {
    if (!about.reachable) {
        throw Failure(FailureKind::CannotOpen, unreachableText(about),
                      "Unplug it, plug it in again and try once more.");
    }
}

void requireUsable(const DeviceDescription& about) {
    if (!about.isIphone()) {
        throw Failure(
            FailureKind::NotAnIphone,
            fmt::format("{} is not an iPhone but \"{}\"", about.label(), about.deviceClass),
            "Only iPhones have ringtones. Plug an iPhone in, or say another --udid.");
    }
    // One that was paired when it was last worked on has lost its pairing to another program, and the
    // keeper of pairings sees to it.
    if (!about.paired && !wasPaired(about.udid)) {
        throw Failure(FailureKind::NotPaired,
                      fmt::format("{} is not paired with this computer", about.label()),
                      fmt::format("Unlock the phone and pair it: vesk pair --udid {}", about.udid));
    }
}

} // namespace

AttachedDevice choosePhone(Discovery& discovery, const PhoneRequest& request) {
    const AttachedDevice phone = chooseDevice(discovery, request);
    requireUsable(phone.description);
    keepPairing(phone.device.get());
    rememberPaired(phone.description.udid);
    return phone;
}

AttachedDevice chooseDevice(Discovery& discovery, const PhoneRequest& request) {
    const AttachedDevice phone =
        request.udid.empty() ? onlyPhone(discovery, request) : namedPhone(discovery, request);
    requireReachable(phone.description);
    return phone;
}

} // namespace krl::engine
