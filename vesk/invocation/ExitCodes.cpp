#include "vesk/invocation/ExitCodes.h"

namespace vesk {

const char* exitCodeName(ExitCode code) {
    switch (code) {
    case ExitCode::Success:
        return "success";
    case ExitCode::Unexpected:
        return "unexpected";
    case ExitCode::Usage:
        return "usage";
    case ExitCode::NoPhone:
        return "no-phone";
    case ExitCode::SeveralPhones:
        return "several-phones";
    case ExitCode::NotPaired:
        return "not-paired";
    case ExitCode::CannotOpen:
        return "cannot-open";
    case ExitCode::NotAnIphone:
        return "not-an-iphone";
    case ExitCode::NoDeviceLayer:
        return "no-device-layer";
    case ExitCode::PairingFailed:
        return "pairing-failed";
    case ExitCode::UnsupportedType:
        return "unsupported-type";
    case ExitCode::UnreadableFile:
        return "unreadable-file";
    case ExitCode::EmptyFile:
        return "empty-file";
    case ExitCode::FileTooLarge:
        return "file-too-large";
    case ExitCode::BadName:
        return "bad-name";
    case ExitCode::NameTaken:
        return "name-taken";
    case ExitCode::SameNameTwice:
        return "same-name-twice";
    case ExitCode::NameNotFound:
        return "name-not-found";
    case ExitCode::NeedsYes:
        return "needs-yes";
    case ExitCode::NoSpace:
        return "no-space";
    case ExitCode::CatalogueUnreadable:
        return "catalogue-unreadable";
    case ExitCode::WouldLoseRingtones:
        return "would-lose-ringtones";
    case ExitCode::SyncFailed:
        return "sync-failed";
    case ExitCode::PhoneGone:
        return "phone-gone";
    case ExitCode::NotAsWanted:
        return "not-as-wanted";
    case ExitCode::CannotBegin:
        return "cannot-begin";
    case ExitCode::NotAccepted:
        return "not-accepted";
    case ExitCode::NotACatalogue:
        return "not-a-catalogue";
    case ExitCode::PluginNotCurrent:
        return "plugin-not-current";
    case ExitCode::PluginNotInstalled:
        return "plugin-not-installed";
    case ExitCode::PluginSilent:
        return "plugin-silent";
    case ExitCode::ProblemsFound:
        return "problems-found";
    case ExitCode::Cancelled:
        return "cancelled";
    }
    return "unexpected";
}

const char* exitCodeHelp() {
    return R"(Exit codes:
   0  done
   1  unexpected failure (the output cannot be written, memory is exhausted, ...)
   2  the command line is wrong; nothing was touched
  10  no phone is attached            14  the device is not an iPhone
  11  several phones: say --udid      15  the device layer or its daemon is missing
  12  the phone is not paired         16  pairing or unpairing did not succeed
  13  the phone cannot be opened or read
  20  file type not supported         25  the name is on the phone already
  21  file or folder not readable     26  two files have the same name
  22  the file is empty               27  no ringtone of that name
  23  the file is too large           28  would remove everything: say --yes
  24  the name cannot be used
  30  too little space on the phone   32  a sync would lose ringtones (--force)
  31  the phone's catalogue cannot be read (--force)
  40  the sync failed half-way        42  the phone does not hold what it should
  41  the phone was pulled out        43  the sync could not begin
  50  check: not accepted             51  check: not a ringtone catalogue
  60  plugin: missing or out of date  62  plugin: no recent one answers
  61  plugin: could not be installed
  70  doctor: something stands in the way
 130  cancelled)";
}

} // namespace vesk
