#pragma once

namespace krl::desktop {

/// Which part of a song is in sight, between no zoom and half a second.
class View {
public:
    explicit View(double songSeconds) : songSeconds_(songSeconds), seconds_(songSeconds) {}

    double start() const { return start_; }

    double seconds() const { return seconds_; }

    bool isWhole() const { return seconds_ >= songSeconds_; }

    /// Where a time is, of a width that shows all that is in sight, and back.
    double place(double time, double width) const { return (time - start_) / seconds_ * width; }

    double timeAt(double place, double width) const { return start_ + place / width * seconds_; }

    /// Shows so many times more; what is at this time stays where it is.
    void zoom(double factor, double around);

    void scroll(double seconds);

    /// Scrolls so far that a time is in sight.
    void show(double time);

private:
    double songSeconds_;
    double start_ = 0;
    double seconds_;
};

} // namespace krl::desktop
