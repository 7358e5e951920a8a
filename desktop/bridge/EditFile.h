#pragma once

#include "audio/preparing/Wish.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace krl::desktop {

/// What a person wants changed about a phone, as it is kept from one window to the next.
struct Edits {
    /// What a song may be on the phone by now.
    struct Sent {
        std::string name;
        uint64_t size;

        friend bool operator==(const Sent&, const Sent&) = default;
    };

    struct Song {
        std::filesystem::path path;          ///< of what was added, not of what was made of it
        std::string name = {};               ///< given by the person; empty: its own
        std::optional<audio::Wish> cut = {}; ///< by the person; none: as songs are at first
        std::optional<Sent> sent = {};       ///< by a sync that did not end
        audio::Wish usual = {};              ///< how they are, as it was when this one was added

        friend bool operator==(const Song&, const Song&) = default;
    };

    std::vector<std::string> removed; ///< names
    std::vector<std::pair<std::string, std::string>> renamed;
    std::vector<Song> songs;

    bool isEmpty() const { return removed.empty() && renamed.empty() && songs.empty(); }

    friend bool operator==(const Edits&, const Edits&) = default;
};

/// Where the edits of a phone are kept.
/// @param folder  of the state of all programs
std::filesystem::path editFile(const std::filesystem::path& folder, const std::string& udid);

/// Reads what was kept; nothing when there is nothing. Whoever can write there may have made it: what
/// is wrong about it is found here, and none of it is believed then.
/// @throw Failure when it is damaged
Edits readEdits(const std::filesystem::path& file);

/// Keeps edits, of which the old or the new ones are there, whole, whatever happens. Nothing is kept of
/// none.
/// @throw Failure when they cannot be kept
void writeEdits(const std::filesystem::path& file, const Edits& edits);

} // namespace krl::desktop
