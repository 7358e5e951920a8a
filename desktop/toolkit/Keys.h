#pragma once

#include <gtk/gtk.h>

#include <functional>

namespace krl::desktop {

/// Calls a function when a key is pressed in a widget or one within it, unless that one has a use for
/// it.
void onKey(GtkWidget* widget, guint key, std::function<void()> function);

} // namespace krl::desktop
