#include "desktop/pages/PreferencesWindow.h"

#include "desktop/pages/Rows.h"
#include "desktop/toolkit/Resources.h"
#include "desktop/toolkit/Signals.h"

namespace krl::desktop {

PreferencesWindow::PreferencesWindow(GtkWindow* over, Session& session)
    : session_(session),
      builder_(adopt(gtk_builder_new_from_resource(KRL_RESOURCE("preferences.ui")))) {
    gtk_window_set_transient_for(widget<GtkWindow>("window"), over);
    gtk_spin_button_set_range(widget<GtkSpinButton>("seconds"), Preferences::kFewestSeconds,
                              Preferences::kMostSeconds);
    gtk_spin_button_set_range(widget<GtkSpinButton>("syncs"), 1, Preferences::kMostSyncs);
    for (const char* const number : {"seconds", "syncs"}) {
        on(widget<GtkSpinButton>(number), "value-changed", [this] { take(); });
    }
    on(widget<GtkSwitch>("level"), "notify::active", [this] { take(); });
    on(widget<GtkWindow>("window"), "close-request", [this] {
        for (const char* const number : {"seconds", "syncs"}) {
            gtk_spin_button_update(widget<GtkSpinButton>(number)); // what was just typed
        }
    });
}

void PreferencesWindow::open() {
    show();
    gtk_window_present(widget<GtkWindow>("window"));
}

void PreferencesWindow::show() {
    const Preferences& preferences = session_.preferences().now();
    isShowing_ = true;
    gtk_spin_button_set_value(widget<GtkSpinButton>("seconds"), preferences.seconds);
    gtk_spin_button_set_value(widget<GtkSpinButton>("syncs"),
                              static_cast<double>(preferences.keptSyncs));
    gtk_switch_set_active(widget<GtkSwitch>("level"), preferences.levels);
    isShowing_ = false;
    showMirrors();
}

void PreferencesWindow::showMirrors() {
    auto* const group = widget<AdwPreferencesGroup>("mirrors");
    for (GtkWidget* const row : mirrors_) {
        adw_preferences_group_remove(group, row);
    }
    mirrors_.clear();
    for (const auto& [udid, mirror] : session_.preferences().now().mirrors) {
        mirrors_.push_back(newMirrorRow(mirror, [this, key = udid] {
            session_.endMirror(key);
            onceIdle([this] { showMirrors(); }); // the row is not to go in the middle of its press
        }));
        adw_preferences_group_add(group, mirrors_.back());
    }
}

void PreferencesWindow::take() {
    if (isShowing_) {
        return;
    }
    Preferences preferences = session_.preferences().now();
    preferences.seconds = gtk_spin_button_get_value_as_int(widget<GtkSpinButton>("seconds"));
    preferences.keptSyncs =
        static_cast<size_t>(gtk_spin_button_get_value_as_int(widget<GtkSpinButton>("syncs")));
    preferences.levels = gtk_switch_get_active(widget<GtkSwitch>("level")) != FALSE;
    session_.preferences().change(preferences);
}

} // namespace krl::desktop
