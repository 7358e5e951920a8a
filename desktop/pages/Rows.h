#pragma once

#include "desktop/bridge/PhoneWork.h"

#include <adwaita.h>

#include <functional>

namespace krl::desktop {

// Rows of boxed lists. Each is floating, and its owner's once it is added.

/// What one look at something came to.
GtkWidget* newFindingRow(const engine::Finding& finding);

/// A job of the history.
/// @param canUndo  whether its button undoes it, as that of the last one does
GtkWidget* newJobRow(const PastJob& job, bool canUndo, bool isEnabled, std::function<void()> press);

} // namespace krl::desktop
