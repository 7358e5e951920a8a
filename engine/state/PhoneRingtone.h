#pragma once

#include "engine/values/Digest.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace krl::engine {

/// A ringtone that is on the phone.
struct PhoneRingtone {
    std::string name;
    std::string guid;
    std::string type;        ///< as the library says it: the last three characters of the file name
    std::string file;        ///< in the ringtone folder
    std::string placeholder; ///< the name that its placeholder has or would have
    uint64_t size = 0;
    std::string source = {}; ///< what it was made of (sourceText()); empty when nobody knows
};

/// How what a ringtone was made of is written down: half the digest of a content, or of a song and
/// how it was prepared. That tells any two songs of a person apart.
std::string sourceName(const Digest& digest);

/// What stands in a ringtone's entry of the catalogue: the same, and the ringtone's size, so that a
/// file that is not whole on the phone is told from it.
std::string sourceText(const Digest& digest, uint64_t size);

/// Finds the names of ringtones, however accents are written in them.
class Spellings {
public:
    explicit Spellings(const std::vector<PhoneRingtone>& ringtones);

    /// The name that is the wanted one, or else one that looks like it.
    std::optional<std::string> of(const std::string& name) const;

private:
    std::set<std::string> names_;
    std::map<std::string, std::string> composed_; ///< in normal form C, to one such name
};

std::set<std::string> namesOf(const std::vector<PhoneRingtone>& ringtones);
std::map<std::string, uint64_t> namesAndSizes(const std::vector<PhoneRingtone>& ringtones);

/// A file in the phone's ringtone folder.
struct FolderFile {
    std::string name;
    uint64_t size = 0;
};

} // namespace krl::engine
