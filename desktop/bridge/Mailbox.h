#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace krl::desktop {

/// What other threads have for the main loop, in the order in which it was put in. Knows no main
/// loop: any that can watch a descriptor will do.
class Mailbox {
public:
    using Letter = std::function<void()>;

    Mailbox();
    ~Mailbox();
    Mailbox(const Mailbox&) = delete;
    Mailbox& operator=(const Mailbox&) = delete;

    /// Readable while there is something in it. Nothing is to be read from it.
    int descriptor() const { return event_; }

    /// Any thread.
    void put(Letter letter);

    /// The letters of one delivery, so that a flood of them leaves the main loop time for all else.
    static constexpr size_t kMostAtOnce = 16;

    /// Calls what is in it, as far as that goes. What one of them puts in waits for the next time.
    void deliver();

private:
    const int event_; ///< an eventfd
    std::mutex mutex_;
    std::deque<Letter> letters_; ///< under the lock
};

} // namespace krl::desktop
