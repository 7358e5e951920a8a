#pragma once

#include "desktop/bridge/Mirror.h"
#include "desktop/bridge/PhoneWork.h"

#include <adwaita.h>

#include <functional>
#include <string>

namespace krl::desktop {

// Rows of boxed lists. Each is floating, and its owner's once it is added.

/// A row of text.
GtkWidget* newTextRow(const std::string& title, const std::string& subtitle);

/// What one look at something came to.
GtkWidget* newFindingRow(const engine::Finding& finding);

/// A folder that a phone mirrors.
/// @param stop  called by its button
GtkWidget* newMirrorRow(const Mirror& mirror, std::function<void()> stop);

/// A job of the history.
/// @param canUndo  whether its button undoes it, as that of the last one does
GtkWidget* newJobRow(const PastJob& job, bool canUndo, bool isEnabled, std::function<void()> press);

} // namespace krl::desktop
