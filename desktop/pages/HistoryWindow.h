#pragma once

#include "desktop/session/Session.h"
#include "desktop/toolkit/Owned.h"

#include <adwaita.h>

#include <vector>

namespace krl::desktop {

/// A window over another one with the last jobs on the current phone, each of which can be gone
/// back behind. Closed, it is hidden.
class HistoryWindow {
public:
    HistoryWindow(GtkWindow* over, Session& session);

    /// Shows the jobs as they are known now.
    void open();

private:
    void addJobs(const std::vector<PastJob>& jobs);

    template <typename T>
    T* widget(const char* name) const {
        return reinterpret_cast<T*>(gtk_builder_get_object(builder_.get(), name));
    }

    Session& session_;
    Owned<GtkBuilder> builder_;
    std::vector<GtkWidget*> rows_; ///< the list owns them
};

} // namespace krl::desktop
