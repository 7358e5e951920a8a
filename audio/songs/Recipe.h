#pragma once

#include "audio/preparing/Wish.h"

#include <vector>

namespace krl::audio {

/// What is done with songs on their way to a phone.
enum class Treatment {
    Prepare,  ///< what does not play is made a ringtone
    AsIs,     ///< what does not play is refused
    Unchecked ///< everything goes that is of a type that ringtones have
};

/// Where a ringtone has its name from.
enum class NameSource { Tags, File };

/// How songs become ringtones.
struct Recipe {
    Treatment treatment = Treatment::Prepare;
    Wish wish = {};
    bool preparesAll = false; ///< also what plays as it is

    /// A song of which the phone holds a ringtone by one of these keeps it.
    std::vector<Wish> earlier = {};
};

} // namespace krl::audio
