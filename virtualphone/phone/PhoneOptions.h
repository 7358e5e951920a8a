/// What a phone is like. The defaults make a healthy phone of early firmware.
#pragma once

#include "virtualphone/phone/Unplayable.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace virtualphone {

class SessionKeys;

enum class SessionKind {
    Clear,  ///< not encrypted
    Modern, ///< TLS 1.0 to 1.2
    Ssl3    ///< SSL 3.0 with AES-128, 3DES or RC4, as the first phones have it
};

struct PhoneOptions {
    /// The media partition: made when it is not there, with the folders a fresh phone has.
    std::filesystem::path root{};

    /// "ProductVersion". Also decides what came with later firmware: modification times in file
    /// information and setting them (3.1), lockdown answers without "Result" (5.0), removing a
    /// folder with its contents (6.0).
    std::string firmware = "1.1.1";

    /// "DeviceName".
    std::string name = "Virtual Phone";

    /// "DeviceClass": "iPhone" or "iPod".
    std::string deviceClass = "iPhone";

    /// "UniqueDeviceID", 40 hex digits. Empty: derived from the folder, the same on every run.
    std::string udid{};

    /// Free space at the start, enforced: a write that needs more stores what fits and is answered
    /// with status 18. Not set: the free space of the file system under the folder.
    std::optional<uint64_t> freeBytes{};

    /// Size of the partition. Not set: the file system's, and never less than freeBytes.
    std::optional<uint64_t> totalBytes{};

    /// Speed at which file contents travel, all connections together; 0 is as fast as it goes.
    uint64_t linkBytesPerSecond = 0;

    /// How long the phone thinks before each answer; a day at most.
    std::chrono::microseconds replyLatency{0};

    /// How much later bytes arrive, to the phone and from it, a day at most. Those that are on their
    /// way together arrive together.
    std::chrono::microseconds wireDelay{0};

    /// A host's pair record exists and the phone trusts it; otherwise neither.
    bool paired = true;

    /// The host must have been validated on a connection before it may start a session there.
    bool sessionNeedsValidation = true;

    /// How lockdown sessions travel. Encrypted ones take a client with the keys of its pair record.
    SessionKind session = SessionKind::Clear;

    /// Keys, and who speaks for the phone in encrypted sessions. Null: NSS, as `session` wants it.
    std::shared_ptr<const SessionKeys> keys{};

    /// Services are encrypted as sessions are, as on later firmware.
    bool secureServices = false;

    /// The phone's certificate is not valid any more.
    bool expiredCertificate = false;

    /// Locked with a passcode: pairing is refused with "PasswordProtected".
    bool passwordProtected = false;

    /// A lockdown connection without a request for this long, a day at most, is closed; 0 never.
    std::chrono::milliseconds lockdownIdleTimeout{10'000};

    /// Lockdown answers and notifications as binary instead of XML property lists.
    bool binaryReplies = false;

    /// Making a directory makes its missing parents, as on later firmware; otherwise status 8.
    bool makeDirectoryMakesParents = false;

    /// Making a directory that exists is a success, as on later firmware; otherwise status 16.
    bool makeDirectoryAcceptsExisting = false;

    /// A read that asks for more than this is answered with wrong bytes, as early firmware did
    /// above 65536; 0 is no limit.
    uint64_t soundReadBytes = 0;

    /// A closed file's handle number is given out again; otherwise numbers only go up.
    bool reuseFileHandles = false;

    /// Set: a file in the ringtone folder is judged when what was written to it is closed or it is
    /// moved there, before that is answered, and told to this when the phone would not play it.
    /// Called on the phone's threads.
    std::function<void(const Unplayable& ringtone)> onUnplayable{};
};

} // namespace virtualphone
