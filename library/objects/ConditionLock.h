#pragma once

#include <condition_variable>
#include <mutex>

namespace krl::ringtones {

/// A lock with a number on it. Unlike a mutex it may be released by a thread that did not take it,
/// and releasing it when nobody holds it does nothing.
class ConditionLock {
public:
    explicit ConditionLock(int condition);

    void lock();
    /// Waits until the lock is free and has this number, then takes it.
    void lockWhenCondition(int condition);
    void unlock();
    void unlockWithCondition(int condition);

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int condition_;
    bool isHeld_ = false;
};

} // namespace krl::ringtones
