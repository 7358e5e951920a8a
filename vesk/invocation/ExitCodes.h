#pragma once

#include "engine/errors/Failure.h"
#include "vesk/invocation/Engine.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vesk {

/// What the process exits with. The numbers are part of the interface (docs/vesk.md, vesk --help):
/// never reuse or renumber one.
enum class ExitCode : int {
    Success = 0,
    Unexpected = 1,
    Usage = 2,

    // Which phone
    NoPhone = 10,
    SeveralPhones = 11,
    NotPaired = 12,
    CannotOpen = 13,
    NotAnIphone = 14,
    NoDeviceLayer = 15,
    PairingFailed = 16,

    // What was asked for
    UnsupportedType = 20,
    UnreadableFile = 21,
    EmptyFile = 22,
    FileTooLarge = 23,
    BadName = 24,
    NameTaken = 25,
    SameNameTwice = 26,
    NameNotFound = 27,
    NeedsYes = 28,

    // What the phone's state forbids
    NoSpace = 30,
    CatalogueUnreadable = 31,
    WouldLoseRingtones = 32,
    UnknownFirmware = 33,
    CannotKeep = 34,
    NothingKept = 35,
    ChangedByOthers = 36,

    // How a sync went
    SyncFailed = 40,
    PhoneGone = 41,
    NotAsWanted = 42,
    CannotBegin = 43,

    // vesk check
    NotAccepted = 50,
    NotACatalogue = 51,

    // vesk inspect
    NotPlayed = 52,

    // vesk plugin
    PluginNotCurrent = 60,
    PluginNotInstalled = 61,
    PluginSilent = 62,

    // vesk doctor
    ProblemsFound = 70,

    Cancelled = 130,
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
