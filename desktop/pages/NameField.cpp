#include "desktop/pages/NameField.h"

#include "desktop/session/Translation.h"
#include "desktop/toolkit/Keys.h"
#include "desktop/toolkit/Signals.h"

#include <fmt/format.h>
#include <gdk/gdkkeysyms.h>

#include <utility>

namespace krl::desktop {
namespace {

void onDoubleClick(GtkWidget* widget, const std::function<void()>& function) {
    GtkGesture* const click = gtk_gesture_click_new();
    onEmission(click, "pressed", [click, function](const Emission& emission) {
        if (g_value_get_int(emission.parameters + 1) == 2) {
            gtk_gesture_set_state(click, GTK_EVENT_SEQUENCE_CLAIMED);
            function();
        }
    });
    gtk_widget_add_controller(widget, GTK_EVENT_CONTROLLER(click));
}

} // namespace

NameField::NameField(GtkInscription* label, Session& session) : label_(label), session_(session) {
    onDoubleClick(GTK_WIDGET(label_), [this] { begin(); });
}

void NameField::makeEntry() {
    entry_ = GTK_ENTRY(gtk_entry_new());
    gtk_widget_set_visible(GTK_WIDGET(entry_), FALSE);
    GtkWidget* const box = gtk_widget_get_parent(GTK_WIDGET(label_));
    gtk_box_insert_child_after(GTK_BOX(box), GTK_WIDGET(entry_), GTK_WIDGET(label_));
    onKey(GTK_WIDGET(entry_), GDK_KEY_Escape, [this] { end(); });
    on(entry_, "activate", [this] { accept(); });
    on(entry_, "changed", [this] { onChanged(); });
    GtkEventController* const focus = gtk_event_controller_focus_new();
    on(focus, "leave", [this] { leave(); });
    gtk_widget_add_controller(GTK_WIDGET(entry_), focus);
}

void NameField::show(const Row& row) {
    key_ = row.key;
    canRename_ = PhoneBook::canRename(row);
    name_ = row.name;
    gtk_inscription_set_text(label_, row.name.c_str());
    if (entry_ != nullptr) {
        showProblem();
    }
}

void NameField::showProblem() {
    gtk_accessible_update_property(GTK_ACCESSIBLE(entry_), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                   fmt::format(fmt::runtime(_("Name of “{}”")), name_).c_str(), -1);
    if (problem() == NameProblem::None) {
        gtk_widget_remove_css_class(GTK_WIDGET(entry_), "error");
    } else {
        gtk_widget_add_css_class(GTK_WIDGET(entry_), "error");
    }
}

std::string NameField::typed() const {
    return gtk_editable_get_text(GTK_EDITABLE(entry_));
}

NameProblem NameField::problem() const {
    return isEditing_ && session_.book() != nullptr ? session_.book()->nameProblem(key_, typed())
                                                    : NameProblem::None;
}

void NameField::begin() {
    if (isEditing_ || !canRename_) {
        return;
    }
    if (entry_ == nullptr) {
        makeEntry();
    }
    gtk_editable_set_text(GTK_EDITABLE(entry_), name_.c_str());
    setEditing(true);
    gtk_widget_grab_focus(GTK_WIDGET(entry_)); // which selects all of it
    onChanged();
}

void NameField::toggle() {
    if (isEditing_) {
        accept();
    } else {
        begin();
    }
}

void NameField::accept() {
    if (isEditing_ && problem() == NameProblem::None) {
        const std::string name = typed();
        end();
        session_.rename(key_, name);
    }
}

void NameField::leave() {
    if (!isEditing_) {
        return;
    }
    const bool isTaken = problem() == NameProblem::None;
    setEditing(false);
    if (isTaken) {
        session_.rename(key_, typed());
    }
    onChanged();
}

void NameField::end() {
    setEditing(false);
    onEnded();
}

/// Before anything is hidden that has the focus, so that its loss is not one more end.
void NameField::setEditing(bool isEditing) {
    isEditing_ = isEditing;
    gtk_widget_set_visible(GTK_WIDGET(label_), isEditing ? FALSE : TRUE);
    gtk_widget_set_visible(GTK_WIDGET(entry_), isEditing ? TRUE : FALSE);
}

} // namespace krl::desktop
