#include "desktop/pages/Rows.h"

#include "desktop/session/Translation.h"
#include "desktop/session/Words.h"
#include "desktop/toolkit/Owned.h"
#include "desktop/toolkit/Signals.h"

#include <fmt/format.h>

#include <memory>

namespace krl::desktop {
namespace {

std::string escaped(const std::string& text) {
    return taken(g_markup_escape_text(text.c_str(), -1));
}

std::string timeText(uint64_t seconds) {
    const std::unique_ptr<GDateTime, decltype(&g_date_time_unref)> time(
        g_date_time_new_from_unix_local(static_cast<gint64>(seconds)), g_date_time_unref);
    return time == nullptr ? std::string() : taken(g_date_time_format(time.get(), "%x, %H:%M"));
}

AdwActionRow* newRow(const std::string& title, const std::string& subtitle) {
    auto* const row = ADW_ACTION_ROW(adw_action_row_new());
    adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row), escaped(title).c_str());
    adw_action_row_set_subtitle(row, escaped(subtitle).c_str());
    return row;
}

} // namespace

GtkWidget* newTextRow(const std::string& title, const std::string& subtitle) {
    return GTK_WIDGET(newRow(title, subtitle));
}

GtkWidget* newFindingRow(const engine::Finding& finding) {
    AdwActionRow* const row =
        newRow(capitalised(finding.text), finding.good ? std::string() : adviceFor(finding));
    GtkWidget* const icon = gtk_image_new_from_icon_name(finding.good ? "emblem-ok-symbolic"
                                                                      : "dialog-warning-symbolic");
    gtk_widget_add_css_class(icon, finding.good ? "success" : "warning");
    const char* const meaning = finding.good ? _("In order") : _("A problem");
    gtk_widget_set_tooltip_text(icon, meaning);
    gtk_accessible_update_property(GTK_ACCESSIBLE(icon), GTK_ACCESSIBLE_PROPERTY_LABEL, meaning,
                                   -1);
    adw_action_row_add_prefix(row, icon);
    return GTK_WIDGET(row);
}

GtkWidget* newMirrorRow(const Mirror& mirror, std::function<void()> stop) {
    AdwActionRow* const row = newRow(mirror.phone, shownText(mirror.folder.string()));
    GtkWidget* const button = gtk_button_new_with_label(_("Stop"));
    gtk_widget_set_valign(button, GTK_ALIGN_CENTER);
    gtk_widget_set_tooltip_text(button,
                                _("Mirror this folder no more; what is on the phone stays"));
    on(button, "clicked", std::move(stop));
    adw_action_row_add_suffix(row, button);
    return GTK_WIDGET(row);
}

GtkWidget* newJobRow(const PastJob& job, bool canUndo, bool isEnabled,
                     std::function<void()> press) {
    AdwActionRow* const row =
        newRow(changesText(job.changes),
               fmt::format("{} · {}{}", jobText(job), timeText(job.time),
                           job.isUndone ? std::string(" · ") + _("undone") : std::string()));
    GtkWidget* const button = gtk_button_new_with_label(canUndo ? _("Undo") : _("Go Back"));
    gtk_widget_set_valign(button, GTK_ALIGN_CENTER);
    gtk_widget_set_sensitive(button, isEnabled);
    gtk_widget_set_tooltip_text(button, canUndo ? _("Put the phone back as it was before this")
                                                : _("Put the phone back as it was before this and "
                                                    "all that came later"));
    on(button, "clicked", std::move(press));
    adw_action_row_add_suffix(row, button);
    return GTK_WIDGET(row);
}

} // namespace krl::desktop
