#pragma once

#include <gtk/gtk.h>

#include <functional>

namespace krl::desktop {

/// What a canvas does.
struct CanvasFunctions {
    std::function<void(GtkSnapshot*)> draw = [](GtkSnapshot*) {};
    std::function<void()> layOut = [] {}; ///< its size is another one
};

/// A new widget that is drawn by a function, its children above. Floating, as all new widgets are.
/// @param role  of what it is to a screen reader, for good
GtkWidget* newCanvas(const char* cssName, GtkAccessibleRole role, CanvasFunctions functions);

/// What it does from now on.
void setFunctions(GtkWidget* canvas, CanvasFunctions functions);

} // namespace krl::desktop
