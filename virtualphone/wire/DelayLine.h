/// A wire that is long: what is sent into one end comes out of the other a while later.
#pragma once

#include "virtualphone/wire/UniqueFd.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <span>
#include <thread>
#include <utility>
#include <vector>

namespace virtualphone {

/// Two sockets as one stream, each byte of which arrives a fixed time after it was sent, however
/// many are on their way. The ends of the stream arrive like bytes.
class DelayLine {
public:
    /// From the client's socket to one of its own, which phoneEnd() gives away. Throws
    /// std::system_error when there is no socket or thread to be had.
    DelayLine(UniqueFd client, std::chrono::nanoseconds delay);

    /// Cuts it.
    ~DelayLine();
    DelayLine(const DelayLine&) = delete;
    DelayLine& operator=(const DelayLine&) = delete;

    UniqueFd phoneEnd() { return std::move(ends_.phone); }

    /// Ends the stream at once: what is on its way is lost. From any thread.
    void cut();

    /// Waits until one side's end has arrived at the other, or the line was cut.
    void waitForEnd();

private:
    using Clock = std::chrono::steady_clock;

    struct Ends {
        UniqueFd phone; ///< given away
        UniqueFd own;
    };

    struct Piece {
        Clock::time_point arrival;
        std::vector<char> bytes;
        size_t taken = 0;
    };

    /// One way through the line.
    class Direction {
    public:
        Direction(int from, int to) : from_(from), to_(to) {}

        bool hasRoom() const;

        bool hasEnded() const { return hasEnded_; }

        bool isOver() const { return hasEnded_ && pieces_.empty(); }

        bool isBlocked() const { return isBlocked_; }

        /// Takes what is there, as much as there is room for or all of it.
        void take(Clock::time_point arrival, bool isAll, std::span<char> buffer);

        /// Passes on what has arrived, as far as it is taken. Nobody being left to take it is the
        /// other direction's end.
        void deliver(Clock::time_point now);

        /// When the next piece arrives, if nothing but time keeps it.
        std::optional<Clock::time_point> nextArrival() const;

    private:
        const int from_;
        const int to_;
        bool hasEnded_ = false;  ///< nothing more goes in
        bool isBlocked_ = false; ///< nothing is taken at the other end now
        size_t onTheWay_ = 0;    ///< bytes, with what their pieces cost
        std::deque<Piece> pieces_;
    };

    static Ends newEnds();

    void carry();
    bool isOver() const;
    void waitForWork();

    const UniqueFd client_;
    Ends ends_;
    const std::chrono::nanoseconds delay_;
    Direction toPhone_;
    Direction toClient_;
    bool clientIsGone_ = false;
    std::atomic<bool> isCut_ = false;
    std::thread thread_;
};

} // namespace virtualphone
