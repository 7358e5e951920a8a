#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace krl::engine {

/// What kind of thing stands in the way. A program makes of it what it likes: an exit code, an icon.
enum class FailureKind {
    Unexpected,

    // Which phone
    NoPhone,
    SeveralPhones,
    NotPaired,
    CannotOpen,
    NotAnIphone,
    NoDeviceLayer,
    PairingFailed,

    // What was asked for
    UnsupportedType,
    UnreadableFile,
    EmptyFile,
    FileTooLarge,
    BadName,
    NameTaken,
    SameNameTwice,
    NameNotFound,
    NeedsYes,
    NotACatalogue,

    // What the phone's state forbids
    NoSpace,
    CatalogueUnreadable,
    WouldLoseRingtones,
    UnknownFirmware,
    CannotKeep,
    NothingKept,
    ChangedByOthers,

    // How a sync went
    SyncFailed,
    PhoneGone,
    NotAsWanted,
    CannotBegin,
    Cancelled
};

/// Why something was not done: what happened, on which phone or file; what to do next; and, one a
/// line, the phones or names that it is about. Holds names as they are: whoever shows them makes
/// them safe.
class Failure : public std::runtime_error {
public:
    Failure(FailureKind kind, const std::string& sentence, std::string advice = {},
            std::vector<std::string> details = {})
        : std::runtime_error(sentence), kind_(kind), advice_(std::move(advice)),
          details_(std::move(details)) {}

    FailureKind kind() const { return kind_; }

    const std::string& advice() const { return advice_; }

    const std::vector<std::string>& details() const { return details_; }

private:
    FailureKind kind_;
    std::string advice_;
    std::vector<std::string> details_;
};

} // namespace krl::engine
