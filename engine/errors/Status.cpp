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

/// What else is to be said about some of the gate keeper's.
struct Advice {
    int32_t status;
    const char* text;
};

constexpr std::array kAdvice{
    Advice{kAMDPasswordProtected, "unlock the phone with its code first"},
    Advice{kAMDUserDeniedPairing, "somebody refused this computer on the phone"},
    Advice{kAMDPairingDialogResponsePending, "answer the question on the phone"},
    Advice{kAMDInvalidHostID, "the phone does not know this computer any more; pair it again"},
    Advice{kAMDInvalidService, "this firmware does not have the service"},
    Advice{kAMDServiceLimit, "too many connections to the phone"},
    Advice{kAMDMissingPairRecord, "pair the phone again"},
    Advice{kAMDInvalidPairRecord, "pair the phone again"},
};

const char* adviceFor(int32_t status) {
    const auto found = std::find_if(kAdvice.begin(), kAdvice.end(),
                                    [&](const Advice& advice) { return advice.status == status; });
    return found == kAdvice.end() ? nullptr : found->text;
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
    const char* const text = KRTErrorTextForStatus(status);
    if (text == nullptr) {
        return fmt::format("status {}", status);
    }
    const char* const whose = status < 0                   ? "lockdown"
                              : status < kAMDInvalidHandle ? "file service"
                                                           : "device layer";
    const char* const advice = adviceFor(status);
    return fmt::format("{}{}{} ({} status {})", text, advice == nullptr ? "" : ": ",
                       advice == nullptr ? "" : advice, whose, status);
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
