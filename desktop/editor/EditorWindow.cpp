#include "desktop/editor/EditorWindow.h"

#include "desktop/cutting/CutWords.h"
#include "desktop/session/Translation.h"
#include "desktop/session/Words.h"
#include "desktop/toolkit/Resources.h"

namespace krl::desktop {

EditorWindow::EditorWindow(GtkWindow* over, Session& session)
    : session_(session), builder_(adopt(gtk_builder_new_from_resource(KRL_RESOURCE("editor.ui")))),
      player_(session) {
    auto* const window = widget<GtkWindow>("window");
    gtk_window_set_transient_for(window, over);
    gtk_widget_add_css_class(GTK_WIDGET(window), "vesk");
    gtk_box_append(widget<GtkBox>("waveform-place"), waveform_.widget());
    waveform_.onMove = [this](Side side, double to) { move(side, to); };
    waveform_.onPlay = [this] { playOrStop(); };
    player_.onChanged = [this] { showPlaying(); };
    player_.onProgress = [this](double time) { waveform_.playedAt(time); };
    player_.onProblem = [this](const std::string& problem) { say(problem); };
    on(window, "close-request", [this] {
        ++*turn_;
        player_.stop();
    });
    on(widget<GtkButton>("play"), "clicked", [this] { playOrStop(); });
    on(widget<GtkButton>("play-last"), "clicked", [this] { playLast(); });
    on(widget<GtkButton>("apply"), "clicked", [this] { apply(); });
    on(widget<GtkButton>("suggest"), "clicked", [this] { suggest(); });
    on(widget<GtkButton>("zoom-in"), "clicked", [this] { waveform_.zoom(2); });
    on(widget<GtkButton>("zoom-out"), "clicked", [this] { waveform_.zoom(0.5); });
    on(widget<AdwEntryRow>("name"), "changed", [this] { cutChanged(); });
}

EditorWindow::~EditorWindow() {
    ++*turn_;
}

void EditorWindow::open(const std::string& row) {
    const auto song = session_.cutOf(row);
    if (!song) {
        return;
    }
    ++*turn_;
    row_ = row;
    song_ = *song;
    cut_.reset();
    adw_window_title_set_subtitle(widget<AdwWindowTitle>("title"),
                                  song_.song.filename().string().c_str());
    showPage("reading");
    showSuggesting(false);
    session_.songs().readWaveform(song_.song, whileOpen(&EditorWindow::takeWaveform));
    gtk_window_present(widget<GtkWindow>("window"));
}

void EditorWindow::takeWaveform(const SongDesk::Waveform& waveform) {
    if (const auto* failure = std::get_if<engine::Failure>(&waveform)) {
        adw_status_page_set_description(
            widget<AdwStatusPage>("problem"),
            taken(g_markup_escape_text(capitalised(failure->what()).c_str(), -1)).c_str());
        showPage("problem");
        return;
    }
    const auto& peaks = *std::get_if<std::shared_ptr<const audio::Peaks>>(&waveform);
    cut_.emplace(peaks->seconds, song_.wish);
    waveform_.show(peaks, *cut_);
    showControls();
    showPage("song");
    waveform_.focusStart();
}

void EditorWindow::showControls() {
    const audio::Wish& wish = cut_->wish();
    gtk_editable_set_text(GTK_EDITABLE(widget<AdwEntryRow>("name")), song_.name.c_str());
    gtk_spin_button_set_value(widget<GtkSpinButton>("fade-in"), wish.fadeInSeconds);
    gtk_spin_button_set_value(widget<GtkSpinButton>("fade-out"), wish.fadeOutSeconds);
    gtk_switch_set_active(widget<GtkSwitch>("level"), wish.level);
    cutChanged();
}

void EditorWindow::showPage(const char* name) {
    auto* const pages = widget<GtkStack>("pages");
    for (const char* const page : {"reading", "problem", "song"}) {
        // Hidden from screen readers too.
        gtk_widget_set_visible(gtk_stack_get_child_by_name(pages, page), std::string(page) == name);
    }
    gtk_stack_set_visible_child_name(pages, name);
    gtk_widget_set_visible(widget<GtkWidget>("apply"), std::string(name) != "problem");
    cutChanged();
}

std::string EditorWindow::name() const {
    const std::string text = gtk_editable_get_text(GTK_EDITABLE(widget<AdwEntryRow>("name")));
    return text;
}

// ---------------------------------------------------------------- what a person does

void EditorWindow::playOrStop() {
    if (player_.isPlaying()) {
        player_.stop();
    } else if (cut_) {
        takeControls();
        player_.play({song_.song, name(), cut_->wish()}, /*again=*/true);
    }
}

void EditorWindow::playLast() {
    constexpr double kLast = 5;
    if (cut_) {
        takeControls();
        player_.play({song_.song, name(), cut_->lastSeconds(kLast)}, /*again=*/false);
    }
}

void EditorWindow::showPlaying() {
    const bool isPlaying = player_.isPlaying();
    auto* const button = widget<GtkWidget>("play");
    gtk_button_set_icon_name(GTK_BUTTON(button), isPlaying ? "media-playback-stop-symbolic"
                                                           : "media-playback-start-symbolic");
    gtk_widget_set_tooltip_text(button, isPlaying ? _("Stop") : _("Play"));
    gtk_accessible_update_property(GTK_ACCESSIBLE(button), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                   isPlaying ? _("Stop") : _("Play"), -1);
    if (!isPlaying) {
        waveform_.endPlaying();
    }
}

void EditorWindow::say(const std::string& text) {
    adw_toast_overlay_add_toast(
        widget<AdwToastOverlay>("toasts"),
        adw_toast_new(taken(g_markup_escape_text(text.c_str(), -1)).c_str()));
}

void EditorWindow::move(Side side, double to) {
    player_.stop(); // what is heard would not be what is seen
    switch (side) {
    case Side::Start:
        cut_->moveStart(to);
        break;
    case Side::End:
        cut_->moveEnd(to);
        break;
    case Side::Whole:
        cut_->move(to);
        break;
    }
    waveform_.update(*cut_);
    cutChanged();
}

void EditorWindow::cutChanged() {
    gtk_widget_set_sensitive(widget<GtkWidget>("apply"), cut_ && !name().empty());
    if (cut_) {
        gtk_label_set_text(widget<GtkLabel>("start"), momentText(cut_->start()).c_str());
        gtk_label_set_text(widget<GtkLabel>("end"), momentText(cut_->end()).c_str());
        gtk_label_set_text(widget<GtkLabel>("sum"), cutText(*cut_).c_str());
    }
}

void EditorWindow::suggest() {
    if (cut_) {
        showSuggesting(true);
        session_.songs().suggest(song_.song, cut_->wish(), whileOpen(&EditorWindow::takeBeginning));
    }
}

void EditorWindow::takeBeginning(const SongDesk::Beginning& beginning) {
    showSuggesting(false);
    if (const double* const start = std::get_if<double>(&beginning)) {
        move(Side::Whole, *start);
        waveform_.showCut();
    } else {
        say(capitalised(std::get<engine::Failure>(beginning).what()));
    }
}

void EditorWindow::showSuggesting(bool isSuggesting) {
    gtk_widget_set_sensitive(widget<GtkWidget>("suggest"), !isSuggesting);
    gtk_stack_set_visible_child_name(widget<GtkStack>("suggest-sign"),
                                     isSuggesting ? "busy" : "label");
}

/// What was typed or switched becomes the cut's.
void EditorWindow::takeControls() {
    for (const char* const field : {"fade-in", "fade-out"}) {
        gtk_spin_button_update(widget<GtkSpinButton>(field)); // what was just typed
    }
    cut_->setFadeIn(gtk_spin_button_get_value(widget<GtkSpinButton>("fade-in")));
    cut_->setFadeOut(gtk_spin_button_get_value(widget<GtkSpinButton>("fade-out")));
    cut_->setLevel(gtk_switch_get_active(widget<GtkSwitch>("level")));
}

void EditorWindow::apply() {
    if (!cut_) {
        return;
    }
    takeControls();
    const SongCut wanted{song_.song, name(), cut_->wish()};
    gtk_window_close(widget<GtkWindow>("window"));
    session_.cut(row_, wanted);
}

} // namespace krl::desktop
