#pragma once

#include <functional>
#include <mutex>
#include <vector>

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

    /// Calls what is in it. What one of them puts in waits for the next time.
    void deliver();

private:
    const int event_; ///< an eventfd
    std::mutex mutex_;
    std::vector<Letter> letters_; ///< under the lock
};

} // namespace krl::desktop
