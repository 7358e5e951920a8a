#pragma once

#include "audio/preparing/Wish.h"

#include <cstdint>
#include <vector>

namespace krl::audio {

/// A ringtone and what is to be said of it.
struct Made {
    Prepared prepared;
    std::vector<uint8_t> file;
};

/// Makes a ringtone of a song.
/// @param descriptor of the song, lent
/// @throw CannotPrepare
Made make(int descriptor, const Wish& wish);

} // namespace krl::audio
