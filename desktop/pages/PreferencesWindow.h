#pragma once

#include "desktop/session/Session.h"
#include "desktop/toolkit/Owned.h"

#include <adwaita.h>

#include <vector>

namespace krl::desktop {

/// A window over another one with the person's preferences, each of which holds as soon as it is
/// changed. Closed, it is hidden.
class PreferencesWindow {
public:
    PreferencesWindow(GtkWindow* over, Session& session);

    /// Shows them as they are now.
    void open();

private:
    void show();
    void showMirrors();
    void take();

    template <typename T>
    T* widget(const char* name) const {
        return reinterpret_cast<T*>(gtk_builder_get_object(builder_.get(), name));
    }

    Session& session_;
    Owned<GtkBuilder> builder_;
    std::vector<GtkWidget*> mirrors_; ///< rows, which the list owns
    bool isShowing_ = false;          ///< what changes is not by the person
};

} // namespace krl::desktop
