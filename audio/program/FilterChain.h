#pragma once

#include "audio/program/Sound.h"

#include <functional>
#include <string>

struct AVFrame;

namespace krl::audio {

/// Sends sound through filters of FFmpeg, written as on its command line, and gives what comes out
/// of the last one, piece by piece.
/// @throw std::runtime_error when there are no such filters
void filter(const Sound& sound, const std::string& chain,
            const std::function<void(const AVFrame&)>& take);

/// The same, for filters that leave stereo at 44.1 kHz; the result is as long as the sound was.
Sound filtered(const Sound& sound, const std::string& chain);

} // namespace krl::audio
