#pragma once

#include <cstdint>
#include <map>
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
};

std::set<std::string> namesOf(const std::vector<PhoneRingtone>& ringtones);
std::map<std::string, uint64_t> namesAndSizes(const std::vector<PhoneRingtone>& ringtones);

/// A file in the phone's ringtone folder.
struct FolderFile {
    std::string name;
    uint64_t size = 0;
};

} // namespace krl::engine
