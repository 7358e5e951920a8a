#pragma once

#include "engine/errors/FailureCodes.h"
#include "vesk/invocation/Engine.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vesk {

/// What the process exits with: the code of the failure, or a number of vesk's own. The numbers are
/// part of the interface (docs/vesk.md, vesk --help): never reuse or renumber one.
enum class ExitCode : int {
    Success = 0,
    Unexpected = codeOf(FailureKind::Unexpected).number,
    Usage = 2,

    // Which phone
    NoPhone = codeOf(FailureKind::NoPhone).number,
    SeveralPhones = codeOf(FailureKind::SeveralPhones).number,
    NotPaired = codeOf(FailureKind::NotPaired).number,
    CannotOpen = codeOf(FailureKind::CannotOpen).number,
    NotAnIphone = codeOf(FailureKind::NotAnIphone).number,
    NoDeviceLayer = codeOf(FailureKind::NoDeviceLayer).number,
    PairingFailed = codeOf(FailureKind::PairingFailed).number,

    // What was asked for
    UnsupportedType = codeOf(FailureKind::UnsupportedType).number,
    UnreadableFile = codeOf(FailureKind::UnreadableFile).number,
    EmptyFile = codeOf(FailureKind::EmptyFile).number,
    FileTooLarge = codeOf(FailureKind::FileTooLarge).number,
    BadName = codeOf(FailureKind::BadName).number,
    NameTaken = codeOf(FailureKind::NameTaken).number,
    SameNameTwice = codeOf(FailureKind::SameNameTwice).number,
    NameNotFound = codeOf(FailureKind::NameNotFound).number,
    NeedsYes = codeOf(FailureKind::NeedsYes).number,

    // What the phone's state forbids
    NoSpace = codeOf(FailureKind::NoSpace).number,
    CatalogueUnreadable = codeOf(FailureKind::CatalogueUnreadable).number,
    WouldLoseRingtones = codeOf(FailureKind::WouldLoseRingtones).number,
    UnknownFirmware = codeOf(FailureKind::UnknownFirmware).number,
    CannotKeep = codeOf(FailureKind::CannotKeep).number,
    NothingKept = codeOf(FailureKind::NothingKept).number,
    ChangedByOthers = codeOf(FailureKind::ChangedByOthers).number,

    // How a sync went
    SyncFailed = codeOf(FailureKind::SyncFailed).number,
    PhoneGone = codeOf(FailureKind::PhoneGone).number,
    NotAsWanted = codeOf(FailureKind::NotAsWanted).number,
    CannotBegin = codeOf(FailureKind::CannotBegin).number,

    // vesk check
    NotAccepted = 50,
    NotACatalogue = codeOf(FailureKind::NotACatalogue).number,

    // vesk inspect
    NotPlayed = 52,

    // vesk plugin
    PluginNotCurrent = 60,
    PluginNotInstalled = 61,
    PluginSilent = 62,

    // vesk doctor
    ProblemsFound = 70,

    Cancelled = codeOf(FailureKind::Cancelled).number,
};

/// All that is said of an exit code, once.
struct ExitCodeRow {
    ExitCode code;
    const char* name;                ///< in JSON
    std::optional<FailureKind> kind; ///< the failure that ends with it; none of the engine's
    const char* meaning;             ///< in the help text
};

/// In the order of the numbers.
const std::vector<ExitCodeRow>& exitCodes();

/// The code's name in JSON, "no-phone" and the like.
const char* exitCodeName(ExitCode code);

/// What a failure of the engine ends with.
ExitCode exitCodeOf(FailureKind kind);

/// The table of all codes, for the help text.
std::string exitCodeHelp();

/// A failure that only a command line has, and what it ends with.
class CommandFailure : public Failure {
public:
    CommandFailure(ExitCode code, const std::string& sentence, std::string advice = {})
        : Failure(FailureKind::Unexpected, sentence, std::move(advice)), code_(code) {}

    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

} // namespace vesk
