#include "engine/errors/Status.h"

#include "engine/values/Cf.h"

#include <KRLVesk/KRTError.h>
#include <MobileDevice/MobileDevice.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace krl::engine {
namespace {

struct Meaning {
    int32_t status;
    const char* text;
};

#define VESK_LOCKDOWN_MEANING(name, status) Meaning{status, #name},
constexpr std::array kLockdown{MOBILEDEVICE_LOCKDOWN_ERRORS(VESK_LOCKDOWN_MEANING)};
#undef VESK_LOCKDOWN_MEANING

// What else is to be said about some of them.
constexpr std::array kLockdownAdvice{
    Meaning{kAMDPasswordProtected, "unlock the phone with its code first"},
    Meaning{kAMDUserDeniedPairing, "somebody refused this computer on the phone"},
    Meaning{kAMDPairingDialogResponsePending, "answer the question on the phone"},
    Meaning{kAMDInvalidHostID, "the phone does not know this computer any more; pair it again"},
    Meaning{kAMDInvalidService, "this firmware does not have the service"},
    Meaning{kAMDServiceLimit, "too many connections to the phone"},
    Meaning{kAMDMissingPairRecord, "pair the phone again"},
    Meaning{kAMDInvalidPairRecord, "pair the phone again"},
};

constexpr std::array kProvider{
    Meaning{kAMDInvalidHandle, "the handle is not valid any more"},
    Meaning{kAMDNotConnected, "no connection: the phone is gone or has closed it"},
    Meaning{kAMDTimedOut, "timed out: the phone does not answer"},
    Meaning{kAMDBadReply, "the phone's answer makes no sense"},
    Meaning{kAMDNotPaired, "not paired: this computer holds no pair record for the phone"},
    Meaning{kAMDNoSession, "there is no session"},
    Meaning{kAMDSessionNotSupported,
            "encryption is needed, and this computer or this build has no NSS for it"},
    Meaning{kAMDRefused, "the phone refused"},
    Meaning{kAMDNoResources, "memory or descriptors have run out on this computer"},
    Meaning{kAMDBadPairRecord, "the pair record has no keys that can be read; pair the phone anew"},
    Meaning{kAMDHandshakeFailed, "phone and computer did not agree on an encrypted session"},
    Meaning{kAMDWrongCertificate,
            "the phone shows another key than it was paired with; pair it anew if it is yours"},
    Meaning{
        kAMDCertificateExpired,
        "a certificate of the pairing is not valid now; check the clock or pair the phone anew"},
    Meaning{kAMDCertificateRefused, "the phone refuses this computer's certificate; pair it anew"},
    Meaning{kAMDNoSsl3, "the phone asks for SSL 3.0, which this computer's NSS does not speak"},
    Meaning{kAMDPairRecordNotKept, "the usbmuxd daemon does not save or delete the pair record"},
    Meaning{kAMDNoMuxDaemon, "no usbmuxd daemon can be reached"},
    Meaning{kAMDCancelled, "cancelled"},
    Meaning{kAMDWrongDevice, "the phone says that it is another one than was plugged in"},
};

constexpr std::array kFile{
    Meaning{1, "unknown error"},
    Meaning{2, "bad header"},
    Meaning{3, "no resources"},
    Meaning{4, "read error"},
    Meaning{5, "write error"},
    Meaning{6, "unknown packet type"},
    Meaning{7, "invalid argument"},
    Meaning{8, "object not found"},
    Meaning{9, "object is a directory"},
    Meaning{10, "permission denied"},
    Meaning{11, "not connected: the phone is gone or has closed the connection"},
    Meaning{12, "timed out: the phone does not answer"},
    Meaning{13, "too much data"},
    Meaning{14, "end of data"},
    Meaning{15, "operation not supported"},
    Meaning{16, "object exists"},
    Meaning{17, "object busy"},
    Meaning{18, "no space left on the phone"},
    Meaning{19, "operation would block"},
    Meaning{20, "I/O error on the phone"},
    Meaning{21, "interrupted"},
    Meaning{22, "in progress"},
    Meaning{23, "internal error"},
};

template <size_t N>
const char* find(const std::array<Meaning, N>& meanings, int32_t status) {
    const auto found = std::find_if(meanings.begin(), meanings.end(), [&](const Meaning& meaning) {
        return meaning.status == status;
    });
    return found == meanings.end() ? nullptr : found->text;
}

std::string textOf(int32_t code, std::string_view module) {
    // The phone's module reports statuses of the device layer and, at 0 and below -100, codes of
    // its own.
    if (module == "KRTPhoneInternal" && code != 0 && code > -100) {
        return statusText(code);
    }
    return fmt::format("{}, code {}", module, code);
}

} // namespace

std::string statusText(int32_t status) {
    if (const char* text = find(kLockdown, status)) {
        const char* advice = find(kLockdownAdvice, status);
        return fmt::format("{}{}{} (lockdown status {})", text, advice == nullptr ? "" : ": ",
                           advice == nullptr ? "" : advice, status);
    }
    if (const char* text = find(kFile, status)) {
        return fmt::format("{} (file service status {})", text, status);
    }
    if (const char* text = find(kProvider, status)) {
        return fmt::format("{} (device layer status {})", text, status);
    }
    return fmt::format("status {}", status);
}

std::string lastFailureText() {
    if (KRTErrorGetLine() == 0) {
        return "no reason was given";
    }
    return textOf(KRTErrorGetCode(), KRTErrorGetFile() != nullptr ? KRTErrorGetFile() : "");
}

std::string failureText(CFErrorRef error) {
    const auto information = cf::adopt(CFErrorCopyUserInfo(error));
    return textOf(static_cast<int32_t>(CFErrorGetCode(error)),
                  cf::textAt(information.get(), CFSTR("file")));
}

} // namespace krl::engine
