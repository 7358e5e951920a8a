#include "vesk/invocation/ExitCodes.h"

#include <fmt/format.h>

#include <algorithm>

namespace vesk {
namespace {

ExitCodeRow failure(FailureKind kind, const char* meaning) {
    const auto [number, name] = codeOf(kind);
    return {static_cast<ExitCode>(number), name, kind, meaning};
}

} // namespace

const std::vector<ExitCodeRow>& exitCodes() {
    using Kind = FailureKind;
    constexpr auto kOfCommandsOnly = std::nullopt;
    static const std::vector<ExitCodeRow> rows{
        {ExitCode::Success, "success", kOfCommandsOnly, "done"},
        failure(Kind::Unexpected,
                "unexpected failure (the output cannot be written, memory is exhausted, ...)"),
        {ExitCode::Usage, "usage", kOfCommandsOnly,
         "the command line is wrong; nothing was touched"},
        failure(Kind::NoPhone, "no phone is attached"),
        failure(Kind::SeveralPhones, "several phones: say --udid"),
        failure(Kind::NotPaired, "the phone is not paired"),
        failure(Kind::CannotOpen, "the phone cannot be opened or read"),
        failure(Kind::NotAnIphone, "the device is not an iPhone"),
        failure(Kind::NoDeviceLayer, "the device layer or its daemon is missing"),
        failure(Kind::PairingFailed, "pairing or unpairing did not succeed"),
        failure(Kind::UnsupportedType, "file type not supported"),
        failure(Kind::UnreadableFile, "file or folder not readable"),
        failure(Kind::EmptyFile, "the file is empty"),
        failure(Kind::FileTooLarge, "the file is too large"),
        failure(Kind::BadName, "the name cannot be used"),
        failure(Kind::NameTaken, "the name is on the phone already"),
        failure(Kind::SameNameTwice, "files have the same name"),
        failure(Kind::NameNotFound, "no ringtone of that name"),
        failure(Kind::NeedsYes, "would remove everything: say --yes"),
        failure(Kind::NoSpace, "too little space on the phone"),
        failure(Kind::CatalogueUnreadable, "the phone's catalogue cannot be read (vesk rebuild)"),
        failure(Kind::WouldLoseRingtones,
                "a sync would lose ringtones that cannot be put right (--force)"),
        failure(Kind::UnknownFirmware, "the firmware is neither 1.0.x nor 1.1.x (--force)"),
        failure(Kind::CannotKeep, "no room here to keep what the phone holds"),
        failure(Kind::NothingKept, "nothing is kept that could be put back, or it is damaged"),
        failure(Kind::ChangedByOthers, "others have changed the phone since (--force)"),
        failure(Kind::SyncFailed, "the sync failed half-way"),
        failure(Kind::PhoneGone, "the phone was pulled out"),
        failure(Kind::NotAsWanted, "the phone does not hold what it should"),
        failure(Kind::CannotBegin, "the sync could not begin"),
        {ExitCode::NotAccepted, "not-accepted", kOfCommandsOnly, "check: not accepted"},
        failure(Kind::NotACatalogue, "check: not a ringtone catalogue"),
        {ExitCode::NotPlayed, "not-played", kOfCommandsOnly,
         "inspect: a file does not play as a ringtone, or cannot be read"},
        {ExitCode::PluginNotCurrent, "plugin-not-current", kOfCommandsOnly,
         "plugin: missing or out of date"},
        {ExitCode::PluginNotInstalled, "plugin-not-installed", kOfCommandsOnly,
         "plugin: could not be installed"},
        {ExitCode::PluginSilent, "plugin-silent", kOfCommandsOnly, "plugin: no recent one answers"},
        {ExitCode::ProblemsFound, "problems-found", kOfCommandsOnly,
         "doctor: something stands in the way"},
        failure(Kind::Cancelled, "cancelled"),
    };
    return rows;
}

const char* exitCodeName(ExitCode code) {
    const auto& rows = exitCodes();
    const auto row = std::find_if(rows.begin(), rows.end(),
                                  [&](const ExitCodeRow& one) { return one.code == code; });
    return row == rows.end() ? exitCodeName(ExitCode::Unexpected) : row->name;
}

ExitCode exitCodeOf(FailureKind kind) {
    return static_cast<ExitCode>(codeOf(kind).number);
}

std::string exitCodeHelp() {
    std::string help = "Exit codes:";
    for (const ExitCodeRow& row : exitCodes()) {
        help += fmt::format("\n {:3}  {}", static_cast<int>(row.code), row.meaning);
    }
    return help;
}

} // namespace vesk
