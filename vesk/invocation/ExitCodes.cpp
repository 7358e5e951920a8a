#include "vesk/invocation/ExitCodes.h"

#include <fmt/format.h>

#include <algorithm>

namespace vesk {

const std::vector<ExitCodeRow>& exitCodes() {
    using Kind = FailureKind;
    constexpr auto kOfCommandsOnly = std::nullopt;
    static const std::vector<ExitCodeRow> rows{
        {ExitCode::Success, "success", kOfCommandsOnly, "done"},
        {ExitCode::Unexpected, "unexpected", Kind::Unexpected,
         "unexpected failure (the output cannot be written, memory is exhausted, ...)"},
        {ExitCode::Usage, "usage", kOfCommandsOnly,
         "the command line is wrong; nothing was touched"},
        {ExitCode::NoPhone, "no-phone", Kind::NoPhone, "no phone is attached"},
        {ExitCode::SeveralPhones, "several-phones", Kind::SeveralPhones,
         "several phones: say --udid"},
        {ExitCode::NotPaired, "not-paired", Kind::NotPaired, "the phone is not paired"},
        {ExitCode::CannotOpen, "cannot-open", Kind::CannotOpen,
         "the phone cannot be opened or read"},
        {ExitCode::NotAnIphone, "not-an-iphone", Kind::NotAnIphone, "the device is not an iPhone"},
        {ExitCode::NoDeviceLayer, "no-device-layer", Kind::NoDeviceLayer,
         "the device layer or its daemon is missing"},
        {ExitCode::PairingFailed, "pairing-failed", Kind::PairingFailed,
         "pairing or unpairing did not succeed"},
        {ExitCode::UnsupportedType, "unsupported-type", Kind::UnsupportedType,
         "file type not supported"},
        {ExitCode::UnreadableFile, "unreadable-file", Kind::UnreadableFile,
         "file or folder not readable"},
        {ExitCode::EmptyFile, "empty-file", Kind::EmptyFile, "the file is empty"},
        {ExitCode::FileTooLarge, "file-too-large", Kind::FileTooLarge, "the file is too large"},
        {ExitCode::BadName, "bad-name", Kind::BadName, "the name cannot be used"},
        {ExitCode::NameTaken, "name-taken", Kind::NameTaken, "the name is on the phone already"},
        {ExitCode::SameNameTwice, "same-name-twice", Kind::SameNameTwice,
         "files have the same name"},
        {ExitCode::NameNotFound, "name-not-found", Kind::NameNotFound, "no ringtone of that name"},
        {ExitCode::NeedsYes, "needs-yes", Kind::NeedsYes, "would remove everything: say --yes"},
        {ExitCode::NoSpace, "no-space", Kind::NoSpace, "too little space on the phone"},
        {ExitCode::CatalogueUnreadable, "catalogue-unreadable", Kind::CatalogueUnreadable,
         "the phone's catalogue cannot be read (vesk rebuild)"},
        {ExitCode::WouldLoseRingtones, "would-lose-ringtones", Kind::WouldLoseRingtones,
         "a sync would lose ringtones that cannot be put right (--force)"},
        {ExitCode::UnknownFirmware, "unknown-firmware", Kind::UnknownFirmware,
         "the firmware is neither 1.0.x nor 1.1.x (--force)"},
        {ExitCode::CannotKeep, "cannot-keep", Kind::CannotKeep,
         "no room here to keep what the phone holds"},
        {ExitCode::NothingKept, "nothing-kept", Kind::NothingKept,
         "nothing is kept that could be put back, or it is damaged"},
        {ExitCode::ChangedByOthers, "changed-by-others", Kind::ChangedByOthers,
         "others have changed the phone since (--force)"},
        {ExitCode::SyncFailed, "sync-failed", Kind::SyncFailed, "the sync failed half-way"},
        {ExitCode::PhoneGone, "phone-gone", Kind::PhoneGone, "the phone was pulled out"},
        {ExitCode::NotAsWanted, "not-as-wanted", Kind::NotAsWanted,
         "the phone does not hold what it should"},
        {ExitCode::CannotBegin, "cannot-begin", Kind::CannotBegin, "the sync could not begin"},
        {ExitCode::NotAccepted, "not-accepted", kOfCommandsOnly, "check: not accepted"},
        {ExitCode::NotACatalogue, "not-a-catalogue", Kind::NotACatalogue,
         "check: not a ringtone catalogue"},
        {ExitCode::NotPlayed, "not-played", kOfCommandsOnly,
         "inspect: a file does not play as a ringtone, or cannot be read"},
        {ExitCode::PluginNotCurrent, "plugin-not-current", kOfCommandsOnly,
         "plugin: missing or out of date"},
        {ExitCode::PluginNotInstalled, "plugin-not-installed", kOfCommandsOnly,
         "plugin: could not be installed"},
        {ExitCode::PluginSilent, "plugin-silent", kOfCommandsOnly, "plugin: no recent one answers"},
        {ExitCode::ProblemsFound, "problems-found", kOfCommandsOnly,
         "doctor: something stands in the way"},
        {ExitCode::Cancelled, "cancelled", Kind::Cancelled, "cancelled"},
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
    const auto& rows = exitCodes();
    const auto row = std::find_if(rows.begin(), rows.end(),
                                  [&](const ExitCodeRow& one) { return one.kind == kind; });
    return row == rows.end() ? ExitCode::Unexpected : row->code;
}

std::string exitCodeHelp() {
    std::string help = "Exit codes:";
    for (const ExitCodeRow& row : exitCodes()) {
        help += fmt::format("\n {:3}  {}", static_cast<int>(row.code), row.meaning);
    }
    return help;
}

} // namespace vesk
