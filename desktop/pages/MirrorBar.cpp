#include "desktop/pages/MirrorBar.h"

#include "desktop/pages/Rows.h"
#include "desktop/session/MirrorWords.h"
#include "desktop/session/Translation.h"
#include "desktop/toolkit/Resources.h"
#include "desktop/toolkit/Signals.h"

#include <fmt/format.h>

#include <algorithm>

namespace krl::desktop {
namespace {

using Rows = std::vector<std::pair<std::string, std::string>>;

/// Of which there may be thousands: as many as a person reads, and how many more there are.
Rows cutShort(Rows rows) {
    constexpr size_t kMost = 200;
    if (rows.size() > kMost) {
        const size_t more = rows.size() - kMost;
        rows.resize(kMost);
        rows.emplace_back(
            fmt::format(fmt::runtime(ngettext_("and {} more", "and {} more", more)), more),
            std::string());
    }
    return rows;
}

Rows rowsOf(const MirrorPlan& plan, bool areReplaced) {
    Rows rows;
    for (const Loss& loss : plan.losses) {
        if (loss.isReplaced == areReplaced) {
            rows.emplace_back(loss.name, std::string());
        }
    }
    return rows;
}

} // namespace

MirrorBar::MirrorBar(GtkWindow* over, Session& session)
    : session_(session), builder_(adopt(gtk_builder_new_from_resource(KRL_RESOURCE("mirror.ui")))) {
    gtk_window_set_transient_for(part<GtkWindow>("window"), over);
    on(part<GtkButton>("deed"), "clicked", [this] { act(); });
    on(part<GtkButton>("stop"), "clicked", [this] { session_.endMirror(session_.currentKey()); });
    on(part<GtkButton>("close"), "clicked",
       [this] { gtk_window_close(part<GtkWindow>("window")); });
    on(part<GtkButton>("agree"), "clicked", [this] {
        gtk_window_close(part<GtkWindow>("window"));
        if (reviewed_ == session_.currentKey()) { // and not another one by now
            session_.agreeToMirror();
        }
    });
}

MirrorBar::Deed MirrorBar::deedOf(const MirrorView& mirror) {
    switch (mirror.state) {
    case MirrorState::Asks:
        return Deed::Review;
    case MirrorState::Paused:
        return Deed::GoOn;
    case MirrorState::Failed:
        return Deed::TryAgain;
    case MirrorState::UpToDate:
        return mirror.unusable.empty() ? Deed::None : Deed::Review;
    default:
        return Deed::None;
    }
}

const char* MirrorBar::labelOf(Deed deed) {
    switch (deed) {
    case Deed::Review:
        return _("Show…");
    case Deed::GoOn:
        return _("Go On");
    case Deed::TryAgain:
        return _("Try Again");
    case Deed::None:
        break;
    }
    return "";
}

void MirrorBar::show() {
    const auto mirror = session_.mirror();
    const Page page = session_.page();
    gtk_widget_set_visible(widget(), mirror && (page == Page::List || page == Page::Empty));
    if (!mirror) {
        return;
    }
    gtk_label_set_text(part<GtkLabel>("bar-title"), mirrorTitle(*mirror).c_str());
    gtk_widget_set_tooltip_text(part<GtkWidget>("bar-title"),
                                shownText(mirror->folder.string()).c_str());
    gtk_label_set_text(part<GtkLabel>("bar-text"), mirrorText(*mirror).c_str());
    const Deed deed = deedOf(*mirror);
    if (deed != deed_) {
        deed_ = deed;
        gtk_button_set_label(part<GtkButton>("deed"), labelOf(deed));
    }
    gtk_widget_set_visible(part<GtkWidget>("deed"), deed != Deed::None);
    if (mirror->state == MirrorState::Asks && std::exchange(awaitsPlan_, false)) {
        review();
    }
}

void MirrorBar::act() {
    switch (deed_) {
    case Deed::Review:
        review();
        break;
    case Deed::GoOn:
        session_.resumeMirror();
        break;
    case Deed::TryAgain:
        session_.tryMirrorAgain();
        break;
    case Deed::None:
        break;
    }
}

void MirrorBar::fill(const char* group, const Rows& rows) {
    auto* const filled = part<AdwPreferencesGroup>(group);
    for (GtkWidget* const row : rows_[group]) {
        adw_preferences_group_remove(filled, row);
    }
    rows_[group].clear();
    for (const auto& [title, subtitle] : cutShort(rows)) {
        rows_[group].push_back(newTextRow(title, subtitle));
        adw_preferences_group_add(filled, rows_[group].back());
    }
    gtk_widget_set_visible(GTK_WIDGET(filled), !rows.empty());
}

void MirrorBar::review() {
    const auto mirror = session_.mirror();
    if (!mirror) {
        return;
    }
    const bool asks = mirror->state == MirrorState::Asks;
    const MirrorPlan plan = mirror->plan.value_or(MirrorPlan{});
    fill("removed", rowsOf(plan, /*areReplaced=*/false));
    fill("replaced", rowsOf(plan, /*areReplaced=*/true));
    Rows added;
    std::transform(plan.added.begin(), plan.added.end(), std::back_inserter(added),
                   [](const std::string& name) { return std::pair(name, std::string()); });
    fill("added", added);
    Rows unusable;
    for (const UnusableSong& song : mirror->unusable) {
        unusable.emplace_back(shownText(song.path.filename().string()), capitalised(song.reason));
    }
    fill("unusable", unusable);
    const std::string title = asks ? mirrorQuestion(*mirror) : mirrorTitle(*mirror);
    auto* const shown = part<AdwWindowTitle>("title");
    adw_window_title_set_title(shown, title.c_str());
    adw_window_title_set_subtitle(shown, session_.phoneName().c_str());
    gtk_window_set_title(part<GtkWindow>("window"), title.c_str());
    gtk_widget_set_visible(part<GtkWidget>("agree"), asks);
    gtk_button_set_label(part<GtkButton>("close"), asks ? _("Not Now") : _("Close"));
    reviewed_ = session_.currentKey();
    gtk_window_present(part<GtkWindow>("window"));
}

} // namespace krl::desktop
