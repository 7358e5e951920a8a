#pragma once

#include <chrono>
#include <memory>

namespace krl::engine {

/// Runs out when it was left alone for a while. A test puts one that it can turn in its place.
class QuietTimer {
public:
    virtual ~QuietTimer() = default;

    /// Readable when it has run out; nothing else becomes of it while it was not started.
    virtual int descriptor() const = 0;

    /// Starts it, anew when it was running.
    virtual void start() = 0;

    /// Whether it has run out since it was last started; says so once.
    virtual bool takeEnd() = 0;
};

/// One of real time.
/// @throw std::system_error when the process can open no more
std::unique_ptr<QuietTimer> newQuietTimer(std::chrono::milliseconds length);

} // namespace krl::engine
