#include "engine/diagnosis/Diagnosis.h"

#include "engine/diagnosis/MuxSocket.h"
#include "engine/diagnosis/OtherPrograms.h"
#include "engine/errors/Status.h"
#include "engine/state/Catalogue.h"
#include "engine/state/OpenPhone.h"
#include "engine/state/SyncLock.h"
#include "engine/values/Cf.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <utility>

namespace krl::engine {
namespace {

constexpr const char* kFileService = "com.apple.afc";
constexpr uint64_t kLeastFreeBytes = 1024 * 1024; // about one ringtone

Finding good(const char* check, std::string text) {
    return {check, true, std::move(text), ""};
}

Finding problem(const char* check, std::string text, std::string advice) {
    return {check, false, std::move(text), std::move(advice)};
}

std::string pairAdvice(const DeviceDescription& about) {
    return fmt::format("Unlock the phone and pair it: vesk pair --udid {}", about.udid);
}

// ---------------------------------------------------------------- this computer

Finding muxFinding() {
    constexpr const char* kCheck = "mux-daemon";
    const MuxSocket mux = tryMuxSocket();
    switch (mux.state) {
    case MuxSocket::State::Answers:
        return good(kCheck, fmt::format("the usbmux daemon listens on {}", mux.address));
    case MuxSocket::State::NotTried:
        return good(kCheck, fmt::format("the usbmux daemon is looked for at {}", mux.address));
    case MuxSocket::State::Absent:
        return problem(kCheck, fmt::format("there is no usbmux daemon: {} is missing", mux.address),
                       "Install the package usbmuxd and plug the phone in, which starts it: sudo "
                       "apt install usbmuxd");
    case MuxSocket::State::Deserted:
        return problem(
            kCheck, fmt::format("nobody listens on {}: the usbmux daemon has ended", mux.address),
            "Start it anew: sudo systemctl restart usbmuxd");
    case MuxSocket::State::Silent:
        return problem(kCheck, fmt::format("the usbmux daemon on {} does not answer", mux.address),
                       "Start it anew: sudo systemctl restart usbmuxd");
    case MuxSocket::State::Forbidden:
        return problem("mux-permission",
                       fmt::format("you may not connect to {}: {}", mux.address, mux.reason),
                       fmt::format("Look at its permissions (ls -l {}); the daemon makes it "
                                   "writable for everyone: sudo systemctl restart usbmuxd",
                                   mux.address));
    case MuxSocket::State::Broken:
        break;
    }
    return problem(kCheck, fmt::format("{} cannot be connected to: {}", mux.address, mux.reason),
                   "Look at the daemon's messages: journalctl -u usbmuxd");
}

Finding deviceLayerFinding() {
    constexpr const char* kCheck = "device-layer";
    if (AMDeviceNotificationSubscribe == nullptr) {
        return problem(kCheck, "the device layer (MobileDevice.so) is missing or cannot be loaded",
                       "Install libplist3 and libnss3, and keep MobileDevice.so beside "
                       "libKRLVesk.so.");
    }
    return good(kCheck, "the device layer is loaded");
}

Finding encryptionFinding() {
    constexpr const char* kCheck = "encryption";
    const int32_t status =
        AMDeviceCheckSessionSupport == nullptr ? 0 : AMDeviceCheckSessionSupport();
    switch (status) {
    case 0:
        return good(kCheck, "sessions can be had from SSL 3.0 to TLS 1.2");
    case kAMDNoSsl3:
        return problem(kCheck,
                       "the NSS library of this computer does not speak SSL 3.0 any more, which "
                       "phones of firmware 1.x ask for",
                       "Use libnss3 as Debian 12 has it (3.87), and check that no policy of the "
                       "system forbids SSL 3.0.");
    default:
        return problem(kCheck,
                       fmt::format("no encrypted session can be had: {}", statusText(status)),
                       "Install libnss3, or a build of this program with NSS (libnss3-dev).");
    }
}

Finding unpairingFinding(const RunningProgram& program) {
    return problem(
        "other-programs",
        fmt::format("{} runs (process {}): opened in a file manager, a phone with "
                    "firmware 1.x loses its pairing, because gvfs does not speak SSL 3.0 "
                    "and takes that for a stale pairing",
                    program.name, program.process),
        "Keep phones out of file managers, for this person and all phones alike (it "
        "knows no exceptions): systemctl --user mask --now "
        "gvfs-afc-volume-monitor.service");
}

// ---------------------------------------------------------------- a phone

std::string sessionAdvice(const DeviceDescription& about, int32_t status) {
    switch (status) {
    case kAMDNoSsl3:
        return "Use libnss3 as Debian 12 has it (3.87).";
    case kAMDSessionNotSupported:
        return "Install libnss3, or a build of this program with NSS (libnss3-dev).";
    case kAMDCertificateExpired:
        return "Check this computer's clock; if it is right, " + pairAdvice(about);
    case kAMDBadPairRecord:
    case kAMDWrongCertificate:
    case kAMDCertificateRefused:
        return pairAdvice(about);
    default:
        return "Unplug the phone, restart it, plug it in again and try once more.";
    }
}

Finding pairingFinding(const DeviceDescription& about, int32_t status) {
    constexpr const char* kCheck = "pairing";
    if (status == 0) {
        return good(kCheck, "the phone knows this computer");
    }
    if (status == kAMDInvalidHostID) {
        return problem(kCheck,
                       "the pair record is stale: the phone does not know this computer any more",
                       pairAdvice(about));
    }
    return problem(kCheck,
                   fmt::format("the phone does not take the pair record: {}", statusText(status)),
                   pairAdvice(about));
}

/// A file-service connection for the length of a scope.
class Files {
public:
    explicit Files(am_service* service) : status_(AFCConnectionOpen(service, 0, &connection_)) {}

    ~Files() {
        if (connection_ != nullptr) {
            AFCConnectionClose(connection_);
        }
    }

    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

    int32_t status() const { return status_; }

    afc_connection* get() const { return connection_; }

private:
    afc_connection* connection_ = nullptr;
    int32_t status_;
};

/// A value of an information dictionary; none when it is missing.
std::optional<uint64_t> numberOf(afc_dictionary* info, const std::string& wanted) {
    std::optional<uint64_t> found;
    char* key = nullptr;
    char* value = nullptr;
    while (AFCKeyValueRead(info, &key, &value) == 0 && key != nullptr && value != nullptr) {
        uint64_t number = 0;
        const std::string text = value;
        if (key == wanted &&
            std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc()) {
            found = number;
        }
    }
    AFCKeyValueClose(info);
    return found;
}

Finding spaceFinding(afc_connection* files) {
    constexpr const char* kCheck = "free-space";
    afc_dictionary* info = nullptr;
    const int32_t status = AFCDeviceInfoOpen(files, &info);
    const auto free = status == 0 ? numberOf(info, "FSFreeBytes") : std::nullopt;
    if (!free) {
        return problem(
            kCheck,
            fmt::format("the phone does not say how much space is free: {}", statusText(status)),
            "Restart the phone and try once more.");
    }
    if (*free < kLeastFreeBytes) {
        return problem(kCheck, fmt::format("the phone is full: {} free", formatBytes(*free)),
                       "Remove music, pictures or ringtones (vesk remove) from the phone.");
    }
    return good(kCheck, fmt::format("{} free", formatBytes(*free)));
}

Finding lockFinding(afc_connection* files) {
    constexpr const char* kCheck = "sync-lock";
    const int32_t status = trySyncLock(files);
    if (status == 0) {
        return good(kCheck, "nobody holds the sync lock");
    }
    if (status == kAFCWouldBlock) {
        return problem(kCheck, "another program holds the sync lock: a sync is going on",
                       "Wait until it is over, or end the other program, then try again.");
    }
    return problem(kCheck, fmt::format("the sync lock cannot be looked at: {}", statusText(status)),
                   "Unplug the phone, plug it in again and try once more.");
}

/// The bytes of a file, or the status that stands in the way.
int32_t readFile(afc_connection* files, const char* path, std::string& bytes) {
    afc_dictionary* info = nullptr;
    if (const int32_t status = AFCFileInfoOpen(files, path, &info)) {
        return status;
    }
    bytes.resize(std::min<uint64_t>(numberOf(info, "st_size").value_or(0), kMostCatalogueBytes));
    afc_file_ref file = 0;
    if (const int32_t status = AFCFileRefOpen(files, path, kAFCOpenRead, &file)) {
        return status;
    }
    auto length = static_cast<uint32_t>(bytes.size());
    const int32_t status = AFCFileRefRead(files, file, bytes.data(), &length);
    AFCFileRefClose(files, file);
    bytes.resize(length);
    return status;
}

Finding catalogueFinding(afc_connection* files) {
    constexpr const char* kCheck = "catalogue";
    std::string bytes;
    const int32_t status = readFile(files, kCataloguePath, bytes);
    if (status == kAFCObjectNotFound) {
        return good(kCheck, "the phone has no ringtone catalogue yet");
    }
    if (status != 0) {
        return problem(kCheck,
                       fmt::format("the ringtone catalogue cannot be read: {}", statusText(status)),
                       "Restart the phone and try once more.");
    }
    const Catalogue catalogue = readCatalogue(bytes);
    if (!catalogue.usable) {
        return problem(
            kCheck,
            fmt::format("the ringtone catalogue ({}) is no property list with "
                        "\"Ringtones\"",
                        kCataloguePath),
            "\"vesk rebuild\" makes a new one that lists the ringtones that are there. add, "
            "remove and sync delete them instead with --force.");
    }
    if (const auto keys = strangeKeys(catalogue); !keys.empty()) {
        return problem(kCheck,
                       fmt::format("the ringtone catalogue has {} whose key is not the name of one "
                                   "file: {}",
                                   counted(keys.size(), "entry", "entries"), quotedList(keys)),
                       "Nothing is done with those files; the next add, remove or sync drops the "
                       "entries.");
    }
    const auto ringtones = std::count_if(
        catalogue.entries.begin(), catalogue.entries.end(),
        [](const CatalogueEntry& entry) { return !entry.malformed && !entry.isPlaceholder(); });
    return good(kCheck, fmt::format("the ringtone catalogue has {}",
                                    counted(static_cast<size_t>(ringtones), "ringtone")));
}

Finding firmwareFinding(const DeviceDescription& about) {
    constexpr const char* kCheck = "firmware";
    if (isKnownFirmware(about.firmware)) {
        return good(kCheck, fmt::format("firmware {}", about.firmware));
    }
    return problem(kCheck,
                   about.firmware.empty()
                       ? "the phone does not say its firmware"
                       : fmt::format("firmware {} is unknown: custom ringtones are for 1.0.x and "
                                     "1.1.x",
                                     about.firmware),
                   "Do not sync: the phone may not read what would be written.");
}

void examineFiles(const AttachedDevice& phone, am_service* service, Findings& findings) {
    const Files files(service);
    if (files.status() != 0) {
        findings.push_back(problem("file-service",
                                   fmt::format("the phone's file service cannot be reached: {}",
                                               statusText(files.status())),
                                   sessionAdvice(phone.description, files.status())));
        return;
    }
    findings.push_back(good("file-service", "the file service answers"));
    findings.push_back(lockFinding(files.get()));
    findings.push_back(spaceFinding(files.get()));
    findings.push_back(catalogueFinding(files.get()));
}

void examineSession(const AttachedDevice& phone, Findings& findings) {
    am_device* device = phone.device.get();
    const DeviceDescription& about = phone.description;
    if (const int32_t status = AMDeviceStartSession(device)) {
        findings.push_back(
            problem("session", fmt::format("the phone gives no session: {}", statusText(status)),
                    sessionAdvice(about, status)));
        return;
    }
    findings.push_back(good("session", "a session can be had"));
    am_service* service = nullptr;
    const auto name = cf::string(kFileService);
    const int32_t status = AMDeviceStartService(device, name.get(), &service, nullptr);
    AMDeviceStopSession(device);
    if (status != 0) {
        findings.push_back(
            problem("file-service",
                    fmt::format("the phone refuses its file service: {}", statusText(status)),
                    "Restart the phone and try once more."));
        return;
    }
    examineFiles(phone, service, findings);
}

} // namespace

bool allGood(const Findings& findings) {
    return std::all_of(findings.begin(), findings.end(),
                       [](const Finding& finding) { return finding.good; });
}

Findings examineComputer() {
    Findings findings = {muxFinding(), deviceLayerFinding(), encryptionFinding()};
    for (const RunningProgram& program : programsThatUnpair()) {
        findings.push_back(unpairingFinding(program));
    }
    return findings;
}

Findings examinePhone(const AttachedDevice& phone) {
    const DeviceDescription& about = phone.description;
    if (!about.reachable) {
        const std::string reason =
            about.connectStatus != 0 ? statusText(about.connectStatus) : "it does not answer";
        return {problem("connection", fmt::format("the phone cannot be reached: {}", reason),
                        "Wake it, unplug it, plug it in again and try once more.")};
    }
    Findings findings = {good("connection", "the phone answers")};
    if (!about.isIphone()) {
        findings.push_back(problem("kind",
                                   fmt::format("it is no iPhone but \"{}\"", about.deviceClass),
                                   "Only iPhones have ringtones. Plug an iPhone in."));
        return findings;
    }
    findings.push_back(firmwareFinding(about));
    if (!about.paired) {
        findings.push_back(problem("pair-record",
                                   "the phone is not paired: this computer holds no pair record",
                                   pairAdvice(about)));
        return findings;
    }
    findings.push_back(good("pair-record", "this computer holds a pair record"));
    const Connection connection(phone.device);
    const int32_t status = connection.status() != 0 ? connection.status()
                                                    : AMDeviceValidatePairing(phone.device.get());
    findings.push_back(pairingFinding(about, status));
    if (status == 0) {
        examineSession(phone, findings);
    }
    return findings;
}

} // namespace krl::engine
