// Statuses of the device layer in words.

#include <KRLVesk/KRTError.h>
#include <MobileDevice/MobileDevice.h>

#include <algorithm>
#include <array>

namespace {

struct Meaning {
    int32_t status;
    const char* text;
};

#define KRL_LOCKDOWN_MEANING(name, status) Meaning{status, #name},
constexpr std::array kLockdown{MOBILEDEVICE_LOCKDOWN_ERRORS(KRL_LOCKDOWN_MEANING)};
#undef KRL_LOCKDOWN_MEANING

// Of the provider itself.
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

} // namespace

const char* KRTErrorTextForStatus(int32_t status) {
    for (const char* text :
         {find(kLockdown, status), find(kFile, status), find(kProvider, status)}) {
        if (text != nullptr) {
            return text;
        }
    }
    return nullptr;
}
