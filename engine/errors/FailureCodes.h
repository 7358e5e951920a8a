#pragma once

#include "engine/errors/Failure.h"

namespace krl::engine {

/// What a kind of failure is outside of a program: the number that vesk exits with and that the
/// Python module's errors have, and the name in JSON. Part of the interface (docs/vesk.md): never
/// reuse or renumber one.
struct FailureCode {
    int number;
    const char* name;
};

constexpr FailureCode codeOf(FailureKind kind) {
    switch (kind) {
    case FailureKind::Unexpected:
        return {1, "unexpected"};
    case FailureKind::NoPhone:
        return {10, "no-phone"};
    case FailureKind::SeveralPhones:
        return {11, "several-phones"};
    case FailureKind::NotPaired:
        return {12, "not-paired"};
    case FailureKind::CannotOpen:
        return {13, "cannot-open"};
    case FailureKind::NotAnIphone:
        return {14, "not-an-iphone"};
    case FailureKind::NoDeviceLayer:
        return {15, "no-device-layer"};
    case FailureKind::PairingFailed:
        return {16, "pairing-failed"};
    case FailureKind::UnsupportedType:
        return {20, "unsupported-type"};
    case FailureKind::UnreadableFile:
        return {21, "unreadable-file"};
    case FailureKind::EmptyFile:
        return {22, "empty-file"};
    case FailureKind::FileTooLarge:
        return {23, "file-too-large"};
    case FailureKind::BadName:
        return {24, "bad-name"};
    case FailureKind::NameTaken:
        return {25, "name-taken"};
    case FailureKind::SameNameTwice:
        return {26, "same-name-twice"};
    case FailureKind::NameNotFound:
        return {27, "name-not-found"};
    case FailureKind::NeedsYes:
        return {28, "needs-yes"};
    case FailureKind::NoSpace:
        return {30, "no-space"};
    case FailureKind::CatalogueUnreadable:
        return {31, "catalogue-unreadable"};
    case FailureKind::WouldLoseRingtones:
        return {32, "would-lose-ringtones"};
    case FailureKind::UnknownFirmware:
        return {33, "unknown-firmware"};
    case FailureKind::CannotKeep:
        return {34, "cannot-keep"};
    case FailureKind::NothingKept:
        return {35, "nothing-kept"};
    case FailureKind::ChangedByOthers:
        return {36, "changed-by-others"};
    case FailureKind::SyncFailed:
        return {40, "sync-failed"};
    case FailureKind::PhoneGone:
        return {41, "phone-gone"};
    case FailureKind::NotAsWanted:
        return {42, "not-as-wanted"};
    case FailureKind::CannotBegin:
        return {43, "cannot-begin"};
    case FailureKind::NotACatalogue:
        return {51, "not-a-catalogue"};
    case FailureKind::Cancelled:
        return {130, "cancelled"};
    }
    return codeOf(FailureKind::Unexpected);
}

} // namespace krl::engine
