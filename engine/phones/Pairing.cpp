#include "engine/phones/Pairing.h"

#include "engine/errors/Failure.h"
#include "engine/errors/Status.h"
#include "engine/phones/PairedPhones.h"
#include "engine/phones/PairingKeeper.h"

#include <fmt/format.h>

namespace krl::engine {
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

Pairing pair(const AttachedDevice& phone) {
    requirePairing(reinterpret_cast<const void*>(AMDevicePair));
    if (isPairedOnBothSides(phone)) {
        return {.wasPaired = true};
    }
    const Connection connection(phone.device);
    requireConnection(connection, phone.description);
    if (const int32_t status = AMDevicePair(phone.device.get())) {
        throw Failure(
            FailureKind::PairingFailed,
            fmt::format("{} was not paired: {}", phone.description.label(), statusText(status)),
            "Unlock the phone, keep it awake and try again. This computer kept "
            "nothing.");
    }
    const Pairing pairing{.sessionStatus = trySession(phone.device)};
    rememberPaired(phone.description.udid);
    return pairing;
}

bool unpair(const AttachedDevice& phone) {
    requirePairing(reinterpret_cast<const void*>(AMDeviceUnpair));
    forgetPaired(phone.description.udid);
    letPairingGo(phone.device.get());
    if (!phone.description.paired) {
        return false;
    }
    const Connection connection(phone.device);
    requireConnection(connection, phone.description);
    if (const int32_t status = AMDeviceUnpair(phone.device.get())) {
        throw Failure(
            FailureKind::PairingFailed,
            fmt::format("{} was not unpaired: {}", phone.description.label(), statusText(status)),
            "Unlock the phone, keep it awake and try again.");
    }
    return true;
}

} // namespace krl::engine
