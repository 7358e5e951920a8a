#pragma once

#include "desktop/session/Session.h"
#include "desktop/toolkit/Owned.h"

#include <adwaita.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace krl::desktop {

/// What the page of a phone says of the folder that it mirrors, and a window over the main one with
/// what a run would do and what cannot be used.
class MirrorBar {
public:
    MirrorBar(GtkWindow* over, Session& session);

    /// To be put where it belongs.
    GtkWidget* widget() const { return part<GtkWidget>("bar"); }

    /// Shows anew what has changed.
    void show();

    /// The person has chosen a folder: the plan is shown as soon as there is one.
    void awaitPlan() { awaitsPlan_ = true; }

private:
    /// What its first button does.
    enum class Deed { None, Review, GoOn, TryAgain };

    static Deed deedOf(const MirrorView& mirror);
    static const char* labelOf(Deed deed);
    void act();
    void review();
    void fill(const char* group, const std::vector<std::pair<std::string, std::string>>& rows);

    template <typename T>
    T* part(const char* name) const {
        return reinterpret_cast<T*>(gtk_builder_get_object(builder_.get(), name));
    }

    Session& session_;
    Owned<GtkBuilder> builder_;
    std::map<std::string, std::vector<GtkWidget*>> rows_; ///< by their groups, which own them
    Deed deed_ = Deed::None;
    std::string reviewed_;    ///< the phone whose plan is shown
    bool awaitsPlan_ = false; ///< the person has just chosen a folder
};

} // namespace krl::desktop
