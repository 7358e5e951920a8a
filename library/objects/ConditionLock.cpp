#include "library/objects/ConditionLock.h"

namespace krl::ringtones {

ConditionLock::ConditionLock(int condition) : condition_(condition) {}

void ConditionLock::lock() {
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [this] { return !isHeld_; });
    isHeld_ = true;
}

void ConditionLock::lockWhenCondition(int condition) {
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [this, condition] { return !isHeld_ && condition_ == condition; });
    isHeld_ = true;
}

void ConditionLock::unlock() {
    const std::lock_guard guard(mutex_);
    isHeld_ = false;
    changed_.notify_all();
}

void ConditionLock::unlockWithCondition(int condition) {
    const std::lock_guard guard(mutex_);
    if (isHeld_) {
        isHeld_ = false;
        condition_ = condition;
        changed_.notify_all();
    }
}

} // namespace krl::ringtones
