#include "desktop/toolkit/Keys.h"

#include "desktop/toolkit/Signals.h"

#include <utility>

namespace krl::desktop {

void onKey(GtkWidget* widget, guint key, std::function<void()> function) {
    GtkEventController* const keys = gtk_event_controller_key_new();
    onEmission(keys, "key-pressed",
               [key, function = std::move(function)](const Emission& emission) {
                   const bool isIt = g_value_get_uint(emission.parameters + 1) == key;
                   if (isIt) {
                       function();
                   }
                   g_value_set_boolean(emission.answer, isIt);
               });
    gtk_widget_add_controller(widget, keys);
}

} // namespace krl::desktop
