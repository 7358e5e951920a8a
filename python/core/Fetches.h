#pragma once

#include "engine/state/PhoneRingtone.h"
#include "python/core/Job.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace krl::python {

/// What of a phone is to be fetched.
struct WantedFetch {
    std::optional<std::vector<std::string>> names; ///< none: all
    std::filesystem::path folder;
    bool replaces = false; ///< a file that holds something else
};

/// A ringtone that was fetched.
struct Fetch {
    engine::PhoneRingtone ringtone;
    std::filesystem::path path;
    bool wasThere = false; ///< the file held the same already
};

/// Copies ringtones of a phone into a folder, on the phones' thread. What was fetched until something
/// goes wrong stays.
std::vector<Fetch> fetch(const std::string& udid, const WantedFetch& wanted, Job& job);

} // namespace krl::python
