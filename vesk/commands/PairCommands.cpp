#include "vesk/commands/Commands.h"

#include "engine/errors/Status.h"
#include "engine/phones/Discovery.h"
#include "engine/phones/PairedPhones.h"
#include "engine/phones/PhoneChoice.h"

#include <fmt/format.h>

namespace vesk {
namespace {

void requirePairing(const void* function) {
    if (function == nullptr) {
        throw Failure(FailureKind::NoDeviceLayer, "this device layer cannot pair phones",
                      "Pair with the tools that belong to it.");
    }
}

void requireConnection(const Connection& connection, const DeviceDescription& about) {
    if (connection.status() != 0) {
        throw Failure(FailureKind::CannotOpen,
                      fmt::format("{} cannot be connected to: {}", about.label(),
                                  statusText(connection.status())),
                      "Unplug it, plug it in again and try once more.");
    }
}

Json resultJson(const DeviceDescription& about, const char* result) {
    return {{"phone", {{"udid", about.udid}, {"name", about.name}, {"firmware", about.firmware}}},
            {"result", result}};
}

/// 0 when a session can be had on the device's connection.
int32_t trySession(const Device& device) {
    const int32_t status = AMDeviceStartSession(device.get());
    if (status == 0) {
        AMDeviceStopSession(device.get());
    }
    return status;
}

/// Whether a new pairing would mend this status of a session.
bool isAboutPairing(int32_t status) {
    switch (status) {
    case kAMDBadPairRecord:
    case kAMDWrongCertificate:
    case kAMDCertificateExpired:
    case kAMDCertificateRefused:
        return true;
    default:
        return false;
    }
}

/// Whether the phone and this computer both hold to their pairing.
bool isPairedOnBothSides(const AttachedDevice& phone) {
    const Connection connection(phone.device);
    requireConnection(connection, phone.description);
    return phone.description.paired && AMDeviceValidatePairing(phone.device.get()) == 0 &&
           !isAboutPairing(trySession(phone.device));
}

} // namespace

ExitCode runPair(const Options& options, Output& output) {
    Discovery discovery;
    const AttachedDevice phone = chooseDevice(discovery, options.phone);
    const DeviceDescription& about = phone.description;
    requirePairing(reinterpret_cast<const void*>(AMDevicePair));
    if (isPairedOnBothSides(phone)) {
        output.summary(fmt::format("{} is paired with this computer already.", about.label()));
        output.document(resultJson(about, "already-paired"));
        return ExitCode::Success;
    }
    const Connection connection(phone.device);
    requireConnection(connection, about);
    if (const int32_t status = AMDevicePair(phone.device.get())) {
        throw Failure(FailureKind::PairingFailed,
                      fmt::format("{} was not paired: {}", about.label(), statusText(status)),
                      "Unlock the phone, keep it awake and try again. This computer kept "
                      "nothing.");
    }
    if (const int32_t status = trySession(phone.device)) {
        output.warning(fmt::format("{} is paired, but no session can be had: {}", about.label(),
                                   statusText(status)),
                       {"\"vesk doctor\" looks for the reason."});
    }
    rememberPaired(about.udid);
    output.summary(fmt::format("{} is paired with this computer now.", about.label()));
    output.document(resultJson(about, "paired"));
    return ExitCode::Success;
}

ExitCode runUnpair(const Options& options, Output& output) {
    Discovery discovery;
    const AttachedDevice phone = chooseDevice(discovery, options.phone);
    const DeviceDescription& about = phone.description;
    requirePairing(reinterpret_cast<const void*>(AMDeviceUnpair));
    forgetPaired(about.udid);
    if (!about.paired) {
        output.summary(fmt::format("{} is not paired with this computer.", about.label()));
        output.document(resultJson(about, "nothing-to-do"));
        return ExitCode::Success;
    }
    const Connection connection(phone.device);
    requireConnection(connection, about);
    if (const int32_t status = AMDeviceUnpair(phone.device.get())) {
        throw Failure(FailureKind::PairingFailed,
                      fmt::format("{} was not unpaired: {}", about.label(), statusText(status)),
                      "Unlock the phone, keep it awake and try again.");
    }
    output.summary(fmt::format("{} is not paired with this computer any more.", about.label()));
    output.document(resultJson(about, "unpaired"));
    return ExitCode::Success;
}

} // namespace vesk
