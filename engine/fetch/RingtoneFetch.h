#pragma once

#include "engine/restore/PhoneFiles.h"
#include "engine/state/PhoneRingtone.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace krl::engine {

/// A name for the file of each ringtone, by the ringtone's name: the title with the file's own
/// extension. The same ringtones have the same names each time. A title that can be a file name as it
/// is goes before one that has to be changed for that.
std::map<std::string, std::string> fileNamesOf(std::vector<PhoneRingtone> ringtones);

/// Gives a ringtone's file on the phone piece by piece.
/// @throw Failure when it cannot be read, or is not as long as the phone said
void readRingtone(PhoneFiles& files, const PhoneRingtone& ringtone, const PhoneFiles::Take& take);

/// What has become of a fetched ringtone.
enum class Fetched {
    IsNew,          ///< it is in its place now
    WasThereAlready ///< the file in its place holds the same
};

/// How to fetch.
struct FetchWish {
    bool replaces = false; ///< a file in the place that holds something else

    /// Hears how many bytes of the ringtone have come; a Failure that it throws ends the fetch.
    std::function<void(uint64_t done)> moves = [](uint64_t /*done*/) {};
};

/// Copies a ringtone of the phone into a file of this computer, which is there once it is whole, and
/// not before. Changes nothing on the phone.
/// @throw Failure when it cannot be read or written, or the place holds something else; nothing has
///        been changed here then
Fetched fetchRingtone(PhoneFiles& files, const PhoneRingtone& ringtone,
                      const std::filesystem::path& place, const FetchWish& wish);

} // namespace krl::engine
