#pragma once

#include "desktop/cutting/Columns.h"
#include "desktop/cutting/Cut.h"
#include "desktop/cutting/Playhead.h"
#include "desktop/cutting/View.h"
#include "desktop/toolkit/Owned.h"
#include "desktop/toolkit/Signals.h"

#include <gtk/gtk.h>

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace krl::desktop {

/// What of a cut is moved.
enum class Side { Start, End, Whole };

/// Shows the waveform of a song and the part of it that is chosen, between two handles that are moved
/// by the pointer or the keyboard.
class WaveformView {
public:
    WaveformView();

    WaveformView(const WaveformView&) = delete;
    WaveformView& operator=(const WaveformView&) = delete;

    /// Told when a person moves something; whoever is told calls `update`.
    std::function<void(Side side, double to)> onMove = [](Side, double) {};

    /// Told when a person wants to hear it, or not any more.
    std::function<void()> onPlay = [] {};

    GtkWidget* widget() const { return canvas_.get(); }

    /// Shows another song.
    void show(std::shared_ptr<const audio::Peaks> peaks, const Cut& cut);

    /// The cut is another one.
    void update(const Cut& cut);

    /// Brings both ends of the cut into sight, or its beginning when they are too far apart.
    void showCut();

    /// The song is being played, and heard at this time; the line goes on by itself from there.
    void playedAt(double time);

    /// It is not played any more.
    void endPlaying();

    /// Shows so many times more, around the handle that is in use.
    void zoom(double factor);

    void focusStart();

private:
    Owned<GtkWidget> newHandle(Side side);
    void addDrag();
    void addScroll();
    void onKey(const Emission& emission, Side side);

    bool pressed(Side side, unsigned key, unsigned state);
    void beginDrag(double x);
    void drag(double offset);
    void scrolled(const Emission& emission, GtkEventController* scroll);
    void viewChanged();

    void layOut();
    void place(GtkWidget* handle, double left);
    void draw(GtkSnapshot* snapshot);
    void drawHandle(GtkSnapshot* snapshot, Side side) const;
    void drawPlayhead(GtkSnapshot* snapshot) const;
    int64_t now() const;
    void describe(GtkWidget* handle, const std::string& text, double value);

    double width() const;
    double placeOf(double time) const;
    double timeAt(double x) const;
    GdkRGBA colour(const char* name) const;

    GtkWidget* handle(Side side) const { return handles_[side == Side::End ? 1 : 0].get(); }

    Owned<GtkWidget> canvas_;
    std::array<Owned<GtkWidget>, 2> handles_; ///< of the start and the end
    std::shared_ptr<const audio::Peaks> peaks_;
    std::optional<Cut> cut_;
    View view_{1};
    float loudest_ = 1;
    std::vector<Column> columns_; ///< as they are drawn; worked out anew when the view changes
    bool areColumnsOld_ = true;
    Playhead playhead_;
    guint pictures_ = 0;          ///< the callback for each while it moves; 0: none
    double pointer_ = 0;          ///< its place
    std::optional<Side> dragged_; ///< none: what is in sight is
    double dragStart_ = 0;        ///< the time that was there
};

} // namespace krl::desktop
