#pragma once

#include "engine/restore/SnapshotTaking.h"

#include <filesystem>
#include <string>

namespace krl::engine {

// A phone's ringtones as a folder that people can read: each file once, under its ringtone's name,
// and "krlvesk-backup.json" with the rest: the catalogue, the exact names and the digests.

/// What a backup says of itself.
struct Backup {
    Snapshot snapshot; ///< its contents are in the safe
    uint64_t time = 0;
    std::string udid;
    std::string phoneName;
};

/// Writes one into a folder, which is made, or empty.
/// @throw Failure when it cannot be written; a folder without the document is no backup
void writeBackup(PhoneSafe& safe, const Backup& backup, const std::filesystem::path& folder);

/// Reads one and takes its contents into the safe.
/// @throw Failure when there is none, or it is damaged
Backup readBackup(PhoneSafe& safe, const std::filesystem::path& folder);

} // namespace krl::engine
