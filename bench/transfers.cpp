// The provider against libimobiledevice, both on the same virtual phone in this process.

#include "bench/Comparison.h"
#include "bench/PhoneOnTheWire.h"

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>
#include <MobileDevice/Provider.h>
#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <plist/plist.h>
#include <usbmuxd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace bench {
namespace {

constexpr size_t kPieceBytes = 4 * 1024 * 1024;
constexpr size_t kEarlyPieceBytes = 64 * 1024;
constexpr char kRemotePath[] = "/tone.m4r";

// ---------------------------------------------------------------------- ours

/// The steps that a file operation makes on a phone that is closed; null when one fails.
afc_connection* reconnect(am_device* device) {
    const MobileDeviceTable& md = provider();
    am_service* service = nullptr;
    afc_connection* connection = nullptr;
    const bool isOpen =
        md.AMDeviceConnect(device) == 0 && md.AMDeviceIsPaired(device) != 0 &&
        md.AMDeviceValidatePairing(device) == 0 && md.AMDeviceStartSession(device) == 0 &&
        md.AMDeviceStartService(device, CFSTR("com.apple.afc"), &service, nullptr) == 0 &&
        md.AMDeviceStopSession(device) == 0 && md.AFCConnectionOpen(service, 0, &connection) == 0;
    return isOpen ? connection : nullptr;
}

bool uploadOurs(afc_connection* connection, const std::vector<char>& bytes) {
    const MobileDeviceTable& md = provider();
    afc_file_ref file = 0;
    if (md.AFCFileRefOpen(connection, kRemotePath, kAFCOpenWrite, &file) != 0) {
        return false;
    }
    for (size_t at = 0; at < bytes.size(); at += kPieceBytes) {
        const auto count = static_cast<uint32_t>(std::min(kPieceBytes, bytes.size() - at));
        if (md.AFCFileRefWrite(connection, file, bytes.data() + at, count) != 0) {
            return false;
        }
    }
    return md.AFCFileRefClose(connection, file) == 0;
}

// ---------------------------------------------------------------------- the peer

struct PeerConnection {
    idevice_t device = nullptr;
    lockdownd_client_t lockdown = nullptr;
    afc_client_t files = nullptr;

    PeerConnection() = default;
    PeerConnection(const PeerConnection&) = delete;
    PeerConnection& operator=(const PeerConnection&) = delete;

    ~PeerConnection() {
        afc_client_free(files);
        lockdownd_client_free(lockdown);
        idevice_free(device);
    }
};

std::string hostIdOf(const std::string& udid) {
    char* record = nullptr;
    uint32_t size = 0;
    if (usbmuxd_read_pair_record(udid.c_str(), &record, &size) != 0) {
        return {};
    }
    plist_t tree = nullptr;
    plist_from_memory(record, size, &tree);
    std::free(record);
    char* id = nullptr;
    plist_get_string_val(plist_dict_get_item(tree, "HostID"), &id);
    std::string result = id != nullptr ? id : "";
    std::free(id);
    plist_free(tree);
    return result;
}

/// The same steps with libimobiledevice.
bool reconnectPeer(PeerConnection& peer, const std::string& udid) {
    if (idevice_new(&peer.device, udid.c_str()) != IDEVICE_E_SUCCESS ||
        lockdownd_client_new(peer.device, &peer.lockdown, "bench") != LOCKDOWN_E_SUCCESS) {
        return false;
    }
    const std::string hostId = hostIdOf(udid);
    if (lockdownd_validate_pair(peer.lockdown, nullptr) != LOCKDOWN_E_SUCCESS) {
        return false;
    }
    char* session = nullptr;
    int ssl = 0;
    if (lockdownd_start_session(peer.lockdown, hostId.c_str(), &session, &ssl) !=
        LOCKDOWN_E_SUCCESS) {
        return false;
    }
    const std::unique_ptr<char, decltype(&std::free)> sessionOwner(session, std::free);
    lockdownd_service_descriptor_t service = nullptr;
    if (lockdownd_start_service(peer.lockdown, "com.apple.afc", &service) != LOCKDOWN_E_SUCCESS) {
        return false;
    }
    lockdownd_stop_session(peer.lockdown, session);
    const bool isOpen = afc_client_new(peer.device, service, &peer.files) == AFC_E_SUCCESS;
    lockdownd_service_descriptor_free(service);
    return isOpen;
}

/// One request for each piece, one after the other.
bool uploadPeer(afc_client_t files, const std::vector<char>& bytes, size_t pieceBytes) {
    uint64_t file = 0;
    if (afc_file_open(files, kRemotePath, AFC_FOPEN_WRONLY, &file) != AFC_E_SUCCESS) {
        return false;
    }
    for (size_t at = 0; at < bytes.size(); at += pieceBytes) {
        const auto count = static_cast<uint32_t>(std::min(pieceBytes, bytes.size() - at));
        uint32_t written = 0;
        errno = 0;
        if (afc_file_write(files, file, bytes.data() + at, count, &written) != AFC_E_SUCCESS) {
            return false;
        }
    }
    return afc_file_close(files, file) == AFC_E_SUCCESS;
}

// ---------------------------------------------------------------------- comparisons

struct Uploads {
    size_t bytes;
    const char* title;
    PhoneIndex phone = kClear;
    size_t peerPieceBytes = kPieceBytes; ///< ours sends what early firmware bears, always
    const char* does;
};

void compareUploads(const std::shared_ptr<World>& world, const Uploads& uploads) {
    const auto bytes = std::make_shared<std::vector<char>>(uploads.bytes, 'x');
    compare({.title = uploads.title,
             .ours =
                 [world, bytes, uploads](benchmark::State& state) {
                     const Subscription subscription;
                     am_device* device = subscription.device(uploads.phone);
                     afc_connection* connection = reconnect(device);
                     for (auto _ : state) {
                         if (!uploadOurs(connection, *bytes)) {
                             state.SkipWithError("an upload failed");
                             break;
                         }
                     }
                     provider().AFCConnectionClose(connection);
                     provider().AMDeviceDisconnect(device);
                 },
             .peer =
                 [world, bytes, uploads](benchmark::State& state) {
                     PeerConnection peer;
                     if (!reconnectPeer(peer, world->udid(uploads.phone))) {
                         state.SkipWithError("the peer did not connect");
                         return;
                     }
                     for (auto _ : state) {
                         if (!uploadPeer(peer.files, *bytes, uploads.peerPieceBytes)) {
                             state.SkipWithError("an upload failed");
                             break;
                         }
                     }
                 }},
            uploads.does);
}

Body reconnections(const std::shared_ptr<World>& world, PhoneIndex phone) {
    return [world, phone](benchmark::State& state) {
        const Subscription subscription;
        am_device* device = subscription.device(phone);
        for (auto _ : state) {
            afc_connection* connection = reconnect(device);
            if (connection == nullptr) {
                state.SkipWithError("a reconnection failed");
                break;
            }
            provider().AFCConnectionClose(connection);
            provider().AMDeviceDisconnect(device);
        }
    };
}

Body peerReconnections(const std::shared_ptr<World>& world, PhoneIndex phone) {
    return [world, phone](benchmark::State& state) {
        for (auto _ : state) {
            PeerConnection peer;
            if (!reconnectPeer(peer, world->udid(phone))) {
                state.SkipWithError("a reconnection failed");
                break;
            }
        }
    };
}

void compareReconnections(const std::shared_ptr<World>& world) {
    compare({.title = "one reconnection",
             .ours = reconnections(world, kClear),
             .peer = peerReconnections(world, kClear)},
            "connect, pairing, session, service, files; peer libimobiledevice");
    compare({.title = "reconnection, modern",
             .ours = reconnections(world, kModern),
             .peer = peerReconnections(world, kModern)},
            "the same with a handshake: TLS 1.2, the peer TLS 1.0");
    compare({.title = "reconnection, SSL 3.0",
             .ours = reconnections(world, kSsl3),
             .peer = reconnections(world, kClear)},
            "no peer speaks it: ours over our own in clear");
}

} // namespace

void registerTransfers(const std::shared_ptr<World>& world) {
    constexpr size_t kKiB = 1024;
    constexpr size_t kMiB = 1024 * kKiB;
    const char* const whole = "peer a bare libimobiledevice loop, 4 MiB a request";
    const char* const early = "the peer too sends the 64 KiB a request that early firmware bears";
    const char* const far = "the same, with 1 ms of wire each way";
    for (const Uploads& uploads : {
             Uploads{.bytes = 300 * kKiB, .title = "upload, 300 KiB", .does = whole},
             Uploads{.bytes = 4 * kMiB, .title = "upload, 4 MiB", .does = whole},
             Uploads{.bytes = 32 * kMiB, .title = "upload, 32 MiB", .does = whole},
             Uploads{.bytes = 300 * kKiB,
             .title = "upload in pieces, 300 KiB",
             .peerPieceBytes = kEarlyPieceBytes,
             .does = early},
             Uploads{.bytes = 4 * kMiB,
             .title = "upload in pieces, 4 MiB",
             .peerPieceBytes = kEarlyPieceBytes,
             .does = early},
             Uploads{.bytes = 32 * kMiB,
             .title = "upload in pieces, 32 MiB",
             .peerPieceBytes = kEarlyPieceBytes,
             .does = early},
             Uploads{.bytes = 300 * kKiB,
             .title = "upload, long wire, 300 KiB",
             .phone = kLongWire,
             .peerPieceBytes = kEarlyPieceBytes,
             .does = far},
             Uploads{.bytes = 4 * kMiB,
             .title = "upload, long wire, 4 MiB",
             .phone = kLongWire,
             .peerPieceBytes = kEarlyPieceBytes,
             .does = far},
         }) {
        compareUploads(world, uploads);
    }
    compareReconnections(world);
}

} // namespace bench
