#pragma once

#include "desktop/editor/CutPlayer.h"
#include "desktop/editor/WaveformView.h"
#include "desktop/session/Session.h"
#include "desktop/toolkit/Owned.h"

#include <adwaita.h>

#include <memory>
#include <optional>
#include <string>

namespace krl::desktop {

/// A window over another one in which a person chooses the part of a song that becomes a ringtone.
/// Nothing changes until it is applied. Closed, it is hidden.
class EditorWindow {
public:
    EditorWindow(GtkWindow* over, Session& session);
    ~EditorWindow();

    EditorWindow(const EditorWindow&) = delete;
    EditorWindow& operator=(const EditorWindow&) = delete;

    /// Shows the song of a row, if it can be changed now.
    void open(const std::string& row);

private:
    void takeWaveform(const SongDesk::Waveform& waveform);
    void takeBeginning(const SongDesk::Beginning& beginning);
    void suggest();
    void apply();
    void playOrStop();
    void playLast();
    void takeControls();

    void move(Side side, double to);
    void cutChanged();
    void showPage(const char* name);
    void showControls();
    void showSuggesting(bool isSuggesting);
    void showPlaying();
    void say(const std::string& text);
    std::string name() const;

    /// Of something that is for the song that is open now: not called when it is not open any more.
    template <typename T>
    std::function<void(T)> whileOpen(void (EditorWindow::*take)(const T&)) {
        return [this, take, turn = turn_, number = *turn_](const T& news) {
            if (*turn == number) {
                (this->*take)(news);
            }
        };
    }

    template <typename T>
    T* widget(const char* name) const {
        return reinterpret_cast<T*>(gtk_builder_get_object(builder_.get(), name));
    }

    Session& session_;
    Owned<GtkBuilder> builder_;
    WaveformView waveform_;
    CutPlayer player_;
    std::shared_ptr<unsigned> turn_ = std::make_shared<unsigned>(0); ///< of opening it and closing
    std::string row_;
    SongCut song_;
    std::optional<Cut> cut_; ///< while its song is known
};

} // namespace krl::desktop
