#pragma once

#include "desktop/cutting/Columns.h"

#include <gtk/gtk.h>

#include <span>

namespace krl::desktop {

/// How wide a column of a waveform is drawn, and how far from one to the next.
inline constexpr float kColumnWidth = 2;
inline constexpr float kColumnStep = 3;

/// What a waveform is drawn with, and where the part is that is chosen.
struct Ink {
    GdkRGBA chosen;
    GdkRGBA other;
    float from = 0; ///< in pixels
    float to = 0;
};

/// Draws columns side by side around the middle of this height. Each is a pixel high at least.
void drawColumns(GtkSnapshot* snapshot, std::span<const Column> columns, float height,
                 const Ink& ink);

} // namespace krl::desktop
