#pragma once

#include "audio/judging/DecoderFacts.h"
#include "audio/preparing/Peaks.h"
#include "audio/preparing/Wish.h"

#include <filesystem>
#include <stop_token>
#include <string>

namespace krl::audio {

/// A ringtone as it came from vesk-prepare.
struct Ringtone {
    Prepared prepared;
    std::string bytes;
};

/// Makes a ringtone of an open song, in a process of its own for this song alone, which has limits
/// of memory and time, no network, and no other file: a malformed song ends that process, not this
/// one.
/// @param path of the song, for what is said of it
/// @param stop ends that process, which cannot be done then
/// @throw Failure when it cannot be done, with the reason
Ringtone madeOf(const std::filesystem::path& path, int descriptor, const Wish& wish,
                const std::filesystem::path& program = prepareProgram(),
                const std::stop_token& stop = {});

/// The waveform of an open song, likewise.
/// @throw Failure when it cannot be decoded, with the reason
Peaks peaksOf(const std::filesystem::path& path, int descriptor,
              const std::filesystem::path& program = prepareProgram(),
              const std::stop_token& stop = {});

} // namespace krl::audio
