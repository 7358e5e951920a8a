#pragma once

#include "desktop/pages/NameField.h"
#include "desktop/pages/RowObject.h"
#include "desktop/session/Session.h"
#include "desktop/toolkit/Owned.h"

#include <gtk/gtk.h>

#include <optional>

namespace krl::desktop {

/// The widgets of one row in sight, which show one ringtone after another.
class RowView {
public:
    /// Makes one for an item of the list, which owns it.
    static void setUp(GtkListItem* item, Session& session);

    static RowView& of(GtkListItem* item);

    ~RowView() = default;
    RowView(const RowView&) = delete;
    RowView& operator=(const RowView&) = delete;

    /// Begins to show what the item is about.
    void bind();
    void unbind();

private:
    RowView(GtkListItem* item, Session& session);

    const Row& row() const;
    void update();
    void updateMark(const Row& shown);
    void updateButton(const Row& shown);
    void updateSign(const Row& shown);
    void updateRename(const Row& shown);
    void updateEdit();
    void press();

    template <typename T>
    T* widget(const char* name) const {
        return reinterpret_cast<T*>(gtk_builder_get_object(builder_.get(), name));
    }

    GtkListItem* const item_; ///< the owner
    Session& session_;
    Owned<GtkBuilder> builder_;
    NameField name_;
    Owned<VeskRow> shown_;
    gulong handler_ = 0;
    std::optional<Mark> marked_ = {}; ///< as it is shown
    NameProblem problem_ = NameProblem::None;
};

} // namespace krl::desktop
