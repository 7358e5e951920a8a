#pragma once

#include "audio/judging/Inspector.h"
#include "audio/songs/Recipe.h"
#include "engine/files/ContentDigests.h"
#include "engine/files/LocalFile.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace krl::audio {

/// A file that is to become a ringtone.
struct Song {
    std::filesystem::path path;
    engine::LocalRingtone asIs; ///< what would go to a phone without preparing
    engine::Digest content;
    Judgement judgement;    ///< "plays" when it was not looked at
    tags::AudioFacts facts; ///< nothing when it was not looked at
};

/// Reads songs of this computer, all with one reader each of tags and sound.
class SongReader {
public:
    SongReader(Treatment treatment, NameSource names) : treatment_(treatment), names_(names) {}

    /// @param name that the ringtone is to have, instead of the one after the song
    /// @throw Failure when it cannot become a ringtone
    Song read(const std::filesystem::path& path, const std::optional<std::string>& name = {});

    /// The files so far whose tags could not be read, so that they have their files' names.
    const std::vector<std::string>& unreadableTags() const { return files_.unreadableTags(); }

private:
    Song unchecked(const std::filesystem::path& path, const std::optional<std::string>& name);

    Treatment treatment_;
    NameSource names_;
    Inspector inspector_;
    engine::LocalFiles files_;
    engine::ContentDigests digests_;
};

} // namespace krl::audio
