#include "desktop/pages/RowView.h"

#include "desktop/session/Translation.h"
#include "desktop/session/Words.h"
#include "desktop/toolkit/Keys.h"
#include "desktop/toolkit/Resources.h"
#include "desktop/toolkit/Signals.h"

#include <fmt/format.h>
#include <gdk/gdkkeysyms.h>

#include <string_view>

namespace krl::desktop {
namespace {

constexpr char kViewKey[] = "vesk-row-view";

/// The style of a mark, and of the row.
const char* styleOf(Mark mark) {
    switch (mark) {
    case Mark::OnPhone:
    case Mark::Checking:
    case Mark::Preparing:
        return "plain";
    case Mark::New:
    case Mark::Renamed:
        return "accent";
    case Mark::Removed:
        return "dim-label";
    case Mark::NameTaken:
    case Mark::Unusable:
        return "warning";
    }
    return "plain";
}

/// Each change has the toolkit look for what is under the pointer, with all of the list laid out anew.
void setTooltip(GtkWidget* widget, const std::string& text) {
    const char* const shown = gtk_widget_get_tooltip_text(widget);
    if (text != (shown == nullptr ? "" : shown)) {
        gtk_widget_set_tooltip_text(widget, text.empty() ? nullptr : text.c_str());
    }
}

/// The toolkit makes another picture each time.
void setIcon(GtkButton* button, const char* name) {
    const char* const shown = gtk_button_get_icon_name(button);
    if (shown == nullptr || std::string_view(shown) != name) {
        gtk_button_set_icon_name(button, name);
    }
}

} // namespace

void RowView::setUp(GtkListItem* item, Session& session) {
    g_object_set_data_full(G_OBJECT(item), kViewKey, new RowView(item, session),
                           [](gpointer view) { delete static_cast<RowView*>(view); });
}

RowView& RowView::of(GtkListItem* item) {
    return *static_cast<RowView*>(g_object_get_data(G_OBJECT(item), kViewKey));
}

RowView::RowView(GtkListItem* item, Session& session)
    : item_(item), session_(session),
      builder_(adopt(gtk_builder_new_from_resource(KRL_RESOURCE("row.ui")))),
      name_(widget<GtkInscription>("name"), session) {
    gtk_list_item_set_child(item_, widget<GtkWidget>("row"));
    name_.onChanged = [this] { update(); };
    name_.onEnded = [this] {
        update();
        gtk_widget_grab_focus(widget<GtkWidget>("rename"));
    };
    on(widget<GtkButton>("play"), "clicked", [this] { session_.play(row().key); });
    on(widget<GtkButton>("rename"), "clicked", [this] { name_.toggle(); });
    onKey(widget<GtkWidget>("row"), GDK_KEY_F2, [this] { name_.begin(); });
    on(widget<GtkButton>("button"), "clicked", [this] { press(); });
    on(widget<GtkButton>("edit"), "clicked", [this] {
        gtk_widget_activate_action(widget<GtkWidget>("edit"), "win.edit", "s", row().key.c_str());
    });
}

void RowView::bind() {
    shown_ = keep(VESK_ROW(gtk_list_item_get_item(item_)));
    handler_ = g_signal_connect_swapped(shown_.get(), "changed",
                                        G_CALLBACK(+[](RowView* self) { self->update(); }), this);
    update();
}

void RowView::unbind() {
    name_.leave();
    g_signal_handler_disconnect(shown_.get(), handler_);
    shown_ = {};
}

const Row& RowView::row() const {
    return rowOf(shown_.get());
}

/// Of hundreds of rows at once, when somebody goes to the end of a long list: what is as it was is left
/// alone.
void RowView::update() {
    const Row& shown = row();
    const NameProblem problem = name_.problem();
    const bool isFirst = !marked_;
    const bool isMarkedAnew = isFirst || *marked_ != shown.mark || problem_ != problem;
    marked_ = shown.mark;
    problem_ = problem;
    name_.show(shown);
    const std::string text =
        problem == NameProblem::None ? rowText(shown) : nameProblemText(problem);
    gtk_inscription_set_text(widget<GtkInscription>("text"), text.c_str());
    gtk_accessible_update_property(GTK_ACCESSIBLE(gtk_widget_get_parent(widget<GtkWidget>("row"))),
                                   GTK_ACCESSIBLE_PROPERTY_LABEL, shown.name.c_str(), -1);
    setTooltip(widget<GtkWidget>("text"), shown.reason);
    if (isMarkedAnew) {
        updateMark(shown);
    }
    updateSign(shown);
    updateRename(shown);
    updateButton(shown);
    updateEdit();
}

void RowView::updateMark(const Row& shown) {
    const std::string mark = markText(shown.mark);
    const char* const textClasses[] = {
        "caption", "numeric", problem_ == NameProblem::None ? "dim-label" : "error", nullptr};
    gtk_widget_set_css_classes(widget<GtkWidget>("text"), const_cast<const char**>(textClasses));
    auto* const label = widget<GtkWidget>("mark");
    gtk_label_set_text(GTK_LABEL(label), mark.c_str());
    gtk_widget_set_visible(label, !mark.empty());
    const char* const markClasses[] = {"caption-heading", "mark", styleOf(shown.mark), nullptr};
    gtk_widget_set_css_classes(label, const_cast<const char**>(markClasses));
    const char* const rowClasses[] = {"ringtone", shown.mark == Mark::Removed ? "removed" : "plain",
                                      nullptr};
    gtk_widget_set_css_classes(widget<GtkWidget>("row"), const_cast<const char**>(rowClasses));
}

void RowView::updateButton(const Row& shown) {
    const bool isRemoved = PhoneBook::isRemoved(shown);
    auto* const button = widget<GtkButton>("button");
    setIcon(button, isRemoved ? "edit-undo-symbolic" : "user-trash-symbolic");
    const std::string deed =
        fmt::format(fmt::runtime(isRemoved ? _("Keep “{}”") : _("Remove “{}”")), shown.name);
    setTooltip(GTK_WIDGET(button), isRemoved ? _("Keep") : _("Remove"));
    gtk_accessible_update_property(GTK_ACCESSIBLE(button), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                   deed.c_str(), -1);
}

void RowView::updateEdit() {
    auto* const edit = widget<GtkWidget>("edit");
    const bool canBeCut = PhoneBook::canBeCut(row());
    gtk_widget_set_visible(edit, canBeCut);
    if (!canBeCut) {
        return;
    }
    gtk_accessible_update_property(GTK_ACCESSIBLE(edit), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                   fmt::format(fmt::runtime(_("Edit “{}”")), row().name).c_str(),
                                   -1);
}

/// What stands before the name: a button that plays, or what the song is at.
void RowView::updateSign(const Row& shown) {
    const bool isUnderWay = shown.mark == Mark::Checking || shown.mark == Mark::Preparing;
    const bool canPlay = PhoneBook::canPlay(shown);
    const bool isHeard = shown.hearing != Hearing::Nothing;
    auto* const button = widget<GtkWidget>("play");
    gtk_widget_set_visible(button, canPlay);
    setIcon(GTK_BUTTON(button),
            isHeard ? "media-playback-stop-symbolic" : "media-playback-start-symbolic");
    setTooltip(button, isHeard ? _("Stop") : _("Play"));
    gtk_accessible_update_property(
        GTK_ACCESSIBLE(button), GTK_ACCESSIBLE_PROPERTY_LABEL,
        fmt::format(fmt::runtime(isHeard ? _("Stop “{}”") : _("Play “{}”")), shown.name).c_str(),
        -1);
    gtk_spinner_set_spinning(widget<GtkSpinner>("spinner"), isUnderWay);
    gtk_stack_set_visible_child_name(widget<GtkStack>("sign"), canPlay      ? "play"
                                                               : isUnderWay ? "spinner"
                                                                            : "icon");
}

void RowView::updateRename(const Row& shown) {
    auto* const button = widget<GtkWidget>("rename");
    const bool isEditing = name_.isEditing();
    gtk_widget_set_visible(button, PhoneBook::canRename(shown));
    gtk_widget_set_sensitive(button, !isEditing || name_.problem() == NameProblem::None);
    setIcon(GTK_BUTTON(button), isEditing ? "object-select-symbolic" : "document-edit-symbolic");
    setTooltip(button, isEditing ? _("Take This Name") : _("Rename"));
    gtk_accessible_update_property(
        GTK_ACCESSIBLE(button), GTK_ACCESSIBLE_PROPERTY_LABEL,
        isEditing ? _("Take This Name")
                  : fmt::format(fmt::runtime(_("Rename “{}”")), shown.name).c_str(),
        -1);
}

void RowView::press() {
    const std::string key = row().key;
    if (PhoneBook::isRemoved(row())) {
        session_.bringBack({key});
    } else {
        session_.remove({key});
    }
}

} // namespace krl::desktop
