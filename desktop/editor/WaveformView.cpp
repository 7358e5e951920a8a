#include "desktop/editor/WaveformView.h"

#include "desktop/cutting/CutWords.h"
#include "desktop/editor/Drawing.h"
#include "desktop/session/Translation.h"
#include "desktop/toolkit/Canvas.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace krl::desktop {
namespace {

/// Beside the waveform, so that handles at its ends can be grasped.
constexpr double kMargin = 30;

/// A handle reaches further to the outside of the cut than to the inside, so that those of a short
/// one are apart.
constexpr int kHandleWidth = 44;
constexpr double kInside = kHandleWidth - kMargin;

constexpr double kStep = 0.1;
constexpr double kLongStep = 1;

graphene_rect_t rectangle(double x, double y, double width, double height) {
    return {{static_cast<float>(x), static_cast<float>(y)},
            {static_cast<float>(width), static_cast<float>(height)}};
}

void label(GtkWidget* widget, const char* text) {
    gtk_accessible_update_property(GTK_ACCESSIBLE(widget), GTK_ACCESSIBLE_PROPERTY_LABEL, text, -1);
}

} // namespace

WaveformView::WaveformView()
    : canvas_(keep(newCanvas("waveform", GTK_ACCESSIBLE_ROLE_GROUP,
                             {.draw = [this](GtkSnapshot* snapshot) { draw(snapshot); },
                              .layOut = [this] { layOut(); }}))),
      handles_{newHandle(Side::Start), newHandle(Side::End)} {
    constexpr int kHeight = 160;
    gtk_widget_set_size_request(canvas_.get(), -1, kHeight);
    gtk_widget_set_overflow(canvas_.get(), GTK_OVERFLOW_HIDDEN);
    label(canvas_.get(), _("Waveform"));
    for (const auto& one : handles_) {
        gtk_widget_set_parent(one.get(), canvas_.get());
    }
    addDrag();
    addScroll();
}

Owned<GtkWidget> WaveformView::newHandle(Side side) {
    auto made = keep(
        newCanvas("handle", GTK_ACCESSIBLE_ROLE_SLIDER,
                  {.draw = [this, side](GtkSnapshot* snapshot) { drawHandle(snapshot, side); }}));
    gtk_widget_set_focusable(made.get(), TRUE);
    gtk_widget_set_cursor_from_name(made.get(), "ew-resize");
    GtkEventController* const keys = gtk_event_controller_key_new();
    onEmission(keys, "key-pressed",
               [this, side](const Emission& emission) { onKey(emission, side); });
    gtk_widget_add_controller(made.get(), keys);
    on(made.get(), "notify::has-focus", [handle = made.get()] { gtk_widget_queue_draw(handle); });
    return made;
}

// ---------------------------------------------------------------- what a person does

void WaveformView::onKey(const Emission& emission, Side side) {
    const bool isTaken = cut_ && pressed(side, g_value_get_uint(emission.parameters + 1),
                                         g_value_get_flags(emission.parameters + 3));
    g_value_set_boolean(emission.answer, isTaken);
}

bool WaveformView::pressed(Side side, unsigned key, unsigned state) {
    const double step = (state & GDK_SHIFT_MASK) != 0 ? kLongStep : kStep;
    const bool isWhole = (state & GDK_CONTROL_MASK) != 0;
    const double from = isWhole || side == Side::Start ? cut_->start() : cut_->end();
    const auto move = [&](double to) {
        onMove(isWhole ? Side::Whole : side, to);
        view_.show(isWhole || side == Side::Start ? cut_->start() : cut_->end());
        viewChanged();
    };
    switch (key) {
    case GDK_KEY_Left:
    case GDK_KEY_Down:
        move(from - step);
        return true;
    case GDK_KEY_Right:
    case GDK_KEY_Up:
        move(from + step);
        return true;
    case GDK_KEY_Home:
        move(0);
        return true;
    case GDK_KEY_End:
        move(cut_->songSeconds());
        return true;
    case GDK_KEY_space:
        onPlay();
        return true;
    case GDK_KEY_plus:
    case GDK_KEY_KP_Add:
        zoom(2);
        return true;
    case GDK_KEY_minus:
    case GDK_KEY_KP_Subtract:
        zoom(0.5);
        return true;
    default:
        return false;
    }
}

void WaveformView::addDrag() {
    GtkGesture* const gesture = gtk_gesture_drag_new();
    onEmission(gesture, "drag-begin", [this](const Emission& emission) {
        beginDrag(g_value_get_double(emission.parameters + 1));
    });
    onEmission(gesture, "drag-update", [this](const Emission& emission) {
        drag(g_value_get_double(emission.parameters + 1));
    });
    gtk_widget_add_controller(canvas_.get(), GTK_EVENT_CONTROLLER(gesture));
}

void WaveformView::beginDrag(double x) {
    if (!cut_) {
        return;
    }
    const double start = placeOf(cut_->start());
    const double end = placeOf(cut_->end());
    const bool isAtStart = x >= start - kMargin && x <= start + kInside;
    const bool isAtEnd = x >= end - kInside && x <= end + kMargin;
    if (isAtStart && (!isAtEnd || std::abs(x - start) < std::abs(x - end))) {
        dragged_ = Side::Start;
    } else if (isAtEnd) {
        dragged_ = Side::End;
    } else {
        dragged_ = x > start && x < end ? std::optional(Side::Whole) : std::nullopt;
    }
    if (dragged_ && *dragged_ != Side::Whole) {
        gtk_widget_grab_focus(handle(*dragged_));
    }
    dragStart_ = !dragged_ ? view_.start() : *dragged_ == Side::End ? cut_->end() : cut_->start();
}

void WaveformView::drag(double offset) {
    if (!cut_) {
        return;
    }
    const double time = offset / width() * view_.seconds();
    if (dragged_) {
        onMove(*dragged_, dragStart_ + time);
    } else {
        view_.scroll(dragStart_ - time - view_.start());
        viewChanged();
    }
}

void WaveformView::addScroll() {
    GtkEventController* const motion = gtk_event_controller_motion_new();
    onEmission(motion, "motion", [this](const Emission& emission) {
        pointer_ = g_value_get_double(emission.parameters + 1);
    });
    gtk_widget_add_controller(canvas_.get(), motion);
    GtkEventController* const scroll =
        gtk_event_controller_scroll_new(GTK_EVENT_CONTROLLER_SCROLL_BOTH_AXES);
    onEmission(scroll, "scroll",
               [this, scroll](const Emission& emission) { scrolled(emission, scroll); });
    gtk_widget_add_controller(canvas_.get(), scroll);
}

void WaveformView::scrolled(const Emission& emission, GtkEventController* scroll) {
    constexpr double kZoom = 1.25;
    const double across = g_value_get_double(emission.parameters + 1);
    const double down = g_value_get_double(emission.parameters + 2);
    const auto state = gtk_event_controller_get_current_event_state(scroll);
    const bool isZoom = (state & GDK_CONTROL_MASK) != 0;
    if (isZoom) {
        view_.zoom(std::pow(kZoom, -down), timeAt(pointer_));
    } else {
        view_.scroll((across != 0 ? across : down) * view_.seconds() / 10);
    }
    // What cannot be scrolled lets the page be.
    g_value_set_boolean(emission.answer, isZoom || !view_.isWhole());
    viewChanged();
}

void WaveformView::zoom(double factor) {
    if (cut_) {
        view_.zoom(factor, gtk_widget_has_focus(handle(Side::End)) ? cut_->end() : cut_->start());
        viewChanged();
    }
}

void WaveformView::focusStart() {
    gtk_widget_grab_focus(handle(Side::Start));
}

// ---------------------------------------------------------------- what there is to see

void WaveformView::show(std::shared_ptr<const audio::Peaks> peaks, const Cut& cut) {
    peaks_ = std::move(peaks);
    loudest_ = loudestOf(*peaks_);
    view_ = View(cut.songSeconds());
    endPlaying();
    viewChanged();
    update(cut);
}

void WaveformView::update(const Cut& cut) {
    cut_ = cut;
    describe(handle(Side::Start), startText(cut), cut.start());
    describe(handle(Side::End), endText(cut), cut.end());
    gtk_widget_queue_allocate(canvas_.get());
    gtk_widget_queue_draw(canvas_.get());
}

void WaveformView::showCut() {
    if (cut_) {
        view_.show(cut_->end());
        view_.show(cut_->start());
        viewChanged();
    }
}

void WaveformView::describe(GtkWidget* handle, const std::string& text, double value) {
    gtk_accessible_update_property(GTK_ACCESSIBLE(handle), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                   text.c_str(), GTK_ACCESSIBLE_PROPERTY_VALUE_MIN, 0.0,
                                   GTK_ACCESSIBLE_PROPERTY_VALUE_MAX, cut_->songSeconds(),
                                   GTK_ACCESSIBLE_PROPERTY_VALUE_NOW, value,
                                   GTK_ACCESSIBLE_PROPERTY_VALUE_TEXT, text.c_str(), -1);
}

void WaveformView::playedAt(double time) {
    playhead_.tell(time, now());
    if (pictures_ == 0) {
        pictures_ = gtk_widget_add_tick_callback(
            canvas_.get(),
            [](GtkWidget* canvas, GdkFrameClock* /*clock*/, gpointer /*data*/) -> gboolean {
                gtk_widget_queue_draw(canvas);
                return G_SOURCE_CONTINUE;
            },
            nullptr, nullptr);
    }
}

void WaveformView::endPlaying() {
    playhead_.stop();
    if (pictures_ != 0) {
        gtk_widget_remove_tick_callback(canvas_.get(), std::exchange(pictures_, 0));
    }
    gtk_widget_queue_draw(canvas_.get());
}

/// As the pictures of the window are timed; before its first one there is no such time.
int64_t WaveformView::now() const {
    GdkFrameClock* const clock = gtk_widget_get_frame_clock(canvas_.get());
    return clock == nullptr ? g_get_monotonic_time() : gdk_frame_clock_get_frame_time(clock);
}

void WaveformView::viewChanged() {
    areColumnsOld_ = true;
    gtk_widget_queue_allocate(canvas_.get());
    gtk_widget_queue_draw(canvas_.get());
}

double WaveformView::width() const {
    return std::max(1.0, gtk_widget_get_width(canvas_.get()) - 2 * kMargin);
}

double WaveformView::placeOf(double time) const {
    return kMargin + view_.place(time, width());
}

double WaveformView::timeAt(double x) const {
    return view_.timeAt(x - kMargin, width());
}

void WaveformView::layOut() {
    areColumnsOld_ = true;
    const bool isShown = cut_.has_value();
    place(handle(Side::Start), isShown ? placeOf(cut_->start()) - kMargin : 0);
    place(handle(Side::End), isShown ? placeOf(cut_->end()) - kInside : 0);
}

void WaveformView::place(GtkWidget* handle, double left) {
    int least = 0;
    gtk_widget_measure(handle, GTK_ORIENTATION_HORIZONTAL, -1, &least, nullptr, nullptr, nullptr);
    // Far out of sight is as good as a little.
    const double far = gtk_widget_get_width(canvas_.get()) + kHandleWidth;
    const GtkAllocation allocation{static_cast<int>(std::lround(std::clamp(left, -far, far))), 0,
                                   std::max(least, kHandleWidth),
                                   gtk_widget_get_height(canvas_.get())};
    gtk_widget_size_allocate(handle, &allocation, -1);
}

GdkRGBA WaveformView::colour(const char* name) const {
    GdkRGBA colour{};
    GtkStyleContext* const style = gtk_widget_get_style_context(canvas_.get());
    if (!gtk_style_context_lookup_color(style, name, &colour)) {
        gtk_style_context_get_color(style, &colour);
    }
    return colour;
}

void WaveformView::draw(GtkSnapshot* snapshot) {
    if (!cut_) {
        return;
    }
    constexpr double kAround = 8; // above and below
    const double height = gtk_widget_get_height(canvas_.get());
    if (areColumnsOld_) {
        columns_.resize(static_cast<size_t>(width() / kColumnStep));
        fillColumns(*peaks_, view_, loudest_, columns_);
        areColumnsOld_ = false;
    }
    const double start = placeOf(cut_->start());
    const double end = placeOf(cut_->end());
    GdkRGBA ground = colour("accent_bg_color");
    ground.alpha = 0.15F;
    const graphene_rect_t chosen = rectangle(start, 0, end - start, height);
    gtk_snapshot_append_color(snapshot, &ground, &chosen);
    Ink ink{colour("accent_color"), colour("window_fg_color"), static_cast<float>(start - kMargin),
            static_cast<float>(end - kMargin)};
    ink.other.alpha *= 0.3F;
    gtk_snapshot_save(snapshot);
    const graphene_point_t origin{static_cast<float>(kMargin), static_cast<float>(kAround)};
    gtk_snapshot_translate(snapshot, &origin);
    drawColumns(snapshot, columns_, static_cast<float>(height - 2 * kAround), ink);
    gtk_snapshot_restore(snapshot);
    drawPlayhead(snapshot);
}

void WaveformView::drawPlayhead(GtkSnapshot* snapshot) const {
    const auto time = playhead_.at(now());
    if (!time) {
        return;
    }
    const GdkRGBA ink = colour("window_fg_color");
    const double place = placeOf(std::min(*time, cut_->end()));
    const graphene_rect_t line = rectangle(place - 1, 0, 2, gtk_widget_get_height(canvas_.get()));
    gtk_snapshot_append_color(snapshot, &ink, &line);
}

void WaveformView::drawHandle(GtkSnapshot* snapshot, Side side) const {
    constexpr double kGripWidth = 12;
    constexpr double kGripHeight = 44;
    const double height = gtk_widget_get_height(canvas_.get());
    const double at = side == Side::Start ? kMargin : kInside;
    const bool isFocused = gtk_widget_has_focus(handle(side));
    const GdkRGBA ink = colour("accent_bg_color");
    const graphene_rect_t line = rectangle(at - 1, 0, 2, height);
    gtk_snapshot_append_color(snapshot, &ink, &line);
    const double grip = side == Side::Start ? at - kGripWidth : at;
    const graphene_rect_t place =
        rectangle(grip, (height - kGripHeight) / 2, kGripWidth, kGripHeight);
    GskRoundedRect rounded;
    gsk_rounded_rect_init_from_rect(&rounded, &place, kGripWidth / 2);
    gtk_snapshot_push_rounded_clip(snapshot, &rounded);
    gtk_snapshot_append_color(snapshot, &ink, &place);
    gtk_snapshot_pop(snapshot);
    const GdkRGBA mark = colour("accent_fg_color");
    const graphene_rect_t groove = rectangle(grip + kGripWidth / 2 - 1, height / 2 - 8, 2, 16);
    gtk_snapshot_append_color(snapshot, &mark, &groove);
    if (isFocused) {
        const GdkRGBA ring = colour("window_fg_color");
        const std::array<float, 4> widths{2, 2, 2, 2};
        const std::array<GdkRGBA, 4> colours{ring, ring, ring, ring};
        gtk_snapshot_append_border(snapshot, &rounded, widths.data(), colours.data());
    }
}

} // namespace krl::desktop
