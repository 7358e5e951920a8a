#pragma once

#include "desktop/session/Session.h"

#include <gtk/gtk.h>

#include <functional>
#include <string>

namespace krl::desktop {

/// The name in a row, which is a label until somebody edits it in its place.
class NameField {
public:
    /// @param label  a double click on it begins an edit; a field takes its place for as long
    NameField(GtkInscription* label, Session& session);

    NameField(const NameField&) = delete;
    NameField& operator=(const NameField&) = delete;

    /// Shows the name of a row. One that is being edited stays as it was typed.
    void show(const Row& row);

    bool isEditing() const { return isEditing_; }

    /// What stands against the name as it was typed.
    NameProblem problem() const;

    void begin();

    /// Begins an edit, or takes the name that was typed.
    void toggle();

    /// Ends an edit as if the person had gone on to something else: takes a name that can be taken.
    void leave();

    std::function<void()> onChanged = [] {}; ///< something was typed, or an edit has begun or ended
    std::function<void()> onEnded = [] {};   ///< an edit was ended by a key or a button

private:
    std::string typed() const;
    void makeEntry();
    void showProblem();
    void accept();
    void end();
    void setEditing(bool isEditing);

    GtkInscription* const label_;
    GtkEntry* entry_ = nullptr; ///< the first edit makes it: most rows never have one
    Session& session_;
    std::string key_;  ///< of the row
    std::string name_; ///< that it shows
    bool canRename_ = false;
    bool isEditing_ = false;
};

} // namespace krl::desktop
