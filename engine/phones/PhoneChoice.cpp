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

/// What comes or goes next, before a time.
std::optional<Discovery::Event> nextUntil(Discovery& discovery,
                                          std::chrono::steady_clock::time_point end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    return discovery.next(std::max(left, std::chrono::milliseconds{0}));
}

/// The device with this UDID as soon as it is there; all devices in `seen`.
std::optional<AttachedDevice> waitForUdid(Discovery& discovery, const PhoneRequest& request,
                                          std::vector<AttachedDevice>& seen) {
    const auto end = std::chrono::steady_clock::now() + request.wait;
    discovery.awaitList(request.wait);
    while (true) {
        const auto event = nextUntil(discovery, end);
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

/// How a text says which device is meant, the surest last.
enum class Meaning { None, NameInOtherCase, Name, BeginningOfUdid, Udid };

Meaning meaningOf(const std::string& text, const DeviceDescription& about) {
    constexpr size_t kFewest = 4;
    if (!about.udid.empty() && sameUdid(text, about.udid)) {
        return Meaning::Udid;
    }
    if (text.size() >= kFewest && sameUdid(text, about.udid.substr(0, text.size()))) {
        return Meaning::BeginningOfUdid;
    }
    if (about.name.empty() || caseless(text) != caseless(about.name)) {
        return Meaning::None;
    }
    return text == about.name ? Meaning::Name : Meaning::NameInOtherCase;
}

/// The devices that a text means in the surest of the ways in which it means any.
std::vector<AttachedDevice> surest(const std::string& text,
                                   const std::vector<AttachedDevice>& devices) {
    Meaning best = Meaning::NameInOtherCase;
    std::vector<AttachedDevice> result;
    for (const AttachedDevice& device : devices) {
        const Meaning meaning = meaningOf(text, device.description);
        if (meaning > best) {
            best = meaning;
            result.clear();
        }
        if (meaning == best) {
            result.push_back(device);
        }
    }
    return result;
}

/// The name as a phone tells it over a session; empty when there can be none.
std::string nameOverSession(const Device& device) {
    const Connection connection(device);
    if (connection.status() != 0 || AMDeviceValidatePairing(device.get()) != 0 ||
        AMDeviceStartSession(device.get()) != 0) {
        return {};
    }
    const std::string name = nameOf(device);
    AMDeviceStopSession(device.get());
    return name;
}

/// Waits for a device that is meant; all that is attached then in `seen`.
std::optional<AttachedDevice> waitForMeant(Discovery& discovery, const PhoneRequest& request,
                                           std::vector<AttachedDevice>& seen) {
    const auto end = std::chrono::steady_clock::now() + request.wait;
    seen = discovery.attached(request.wait);
    for (;;) {
        const auto phones = meantDevices(request, seen);
        if (phones.size() > 1) {
            throw Failure(FailureKind::SeveralPhones,
                          fmt::format("\"{}\" means {} devices that are attached", request.udid,
                                      phones.size()),
                          "Say more of the UDID of the one that is meant: --udid UDID.",
                          described(phones));
        }
        if (!phones.empty()) {
            return phones.front();
        }
        const auto event = nextUntil(discovery, end);
        if (!event) {
            return std::nullopt;
        }
        if (event->arrived) {
            seen.push_back({event->device, describe(event->device)});
        } else {
            std::erase_if(seen, [&](const auto& one) { return one.device == event->device; });
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
        throw Failure(
            FailureKind::SeveralPhones, fmt::format("{} phones are attached", iphones.size()),
            "Say which one is meant with --udid: its UDID, the beginning of it, or its name.",
            described(iphones));
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
    const auto phone = isWholeUdid(request.udid) ? waitForUdid(discovery, request, seen)
                                                 : waitForMeant(discovery, request, seen);
    if (phone) {
        return *phone;
    }
    discovery.requireMuxDaemon();
    throw noDeviceMeant(request, seen);
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

std::vector<AttachedDevice> meantDevices(const PhoneRequest& request,
                                         std::vector<AttachedDevice> devices) {
    if (request.udid.empty()) {
        return devices;
    }
    auto meant = surest(request.udid, devices);
    if (!meant.empty()) {
        return meant;
    }
    for (AttachedDevice& device : devices) {
        DeviceDescription& about = device.description;
        if (about.reachable && about.paired && about.name.empty()) {
            about.name = nameOverSession(device.device);
        }
    }
    return surest(request.udid, devices);
}

Failure noDeviceMeant(const PhoneRequest& request, const std::vector<AttachedDevice>& others) {
    return noPhone(request,
                   request.udid.empty() ? "no device is attached"
                   : isWholeUdid(request.udid)
                       ? fmt::format("no phone with the UDID {} is attached", request.udid)
                       : fmt::format("no phone is attached that is called \"{}\" or whose UDID "
                                     "begins so (four characters or more)",
                                     request.udid),
                   others);
}

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
