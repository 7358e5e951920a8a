#pragma once

#include "audio/preparing/Peaks.h"
#include "desktop/cutting/View.h"

#include <vector>

namespace krl::desktop {

/// What is drawn of one moment: parts of full scale, from -1 to 1.
struct Column {
    float low = 0;
    float high = 0;

    friend bool operator==(const Column&, const Column&) = default;
};

/// The loudest of a song, by which it is drawn to fill the height; 1 of silence.
float loudestOf(const audio::Peaks& peaks);

/// Fills columns, side by side, with what is in sight: each with the extremes of all peaks that it
/// covers, or of the one that it is in. Nothing is beyond the song's end.
/// @param loudest  becomes full scale
void fillColumns(const audio::Peaks& peaks, const View& view, float loudest,
                 std::vector<Column>& columns);

} // namespace krl::desktop
