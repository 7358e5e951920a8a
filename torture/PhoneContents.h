/// What lies on a phone, read from its folder behind its back and without any code of ours that
/// writes catalogues.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace torture {

/// Every file of a folder by path, with its bytes.
using Files = std::map<std::string, std::string>;

Files filesOf(const std::filesystem::path& root);

/// Makes a folder hold exactly these files.
void putFiles(const std::filesystem::path& root, const Files& files);

/// What a phone with these files plays.
struct Ringtones {
    bool isReadable = true;                    ///< there is no catalogue, or one that can be read
    std::map<std::string, std::string> sounds; ///< by name; empty for a file that is missing
    std::vector<std::string> unlisted;         ///< files with sound that no entry has
};

Ringtones ringtonesOf(const Files& files);

/// Puts a ringtone onto a phone as a program of somebody else does: its file, then the catalogue.
void putRingtone(const std::filesystem::path& root, const std::string& name,
                 const std::string& sound);

} // namespace torture
