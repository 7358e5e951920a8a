/// Watching a sync from the application's side, on whatever thread it runs.
#pragma once

#include "tests/library/objects/Values.h"

#include <KRLVesk/KRTRingtoneManager.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace krl::test {

/// Far more than anything here takes; a test that gets there has failed.
constexpr std::chrono::seconds kPatience{60};

/// One message of a sync.
struct Step {
    int32_t status;
    int32_t mode;
    uint32_t max;
    uint32_t value;
    std::string message;

    bool operator==(const Step&) const = default;

    /// Whether an asynchronous sync waits for an answer to it. The very last one, too, has status
    /// and mode 0, and does not wait.
    bool isOfStore() const { return !(mode == 0 && status == 1) && mode != 1; }

    friend std::ostream& operator<<(std::ostream& out, const Step& step) {
        return out << "status " << step.status << " mode " << step.mode << " max " << step.max
                   << " value " << step.value << " message " << step.message;
    }
};

/// Keeps what it is told, for any thread, and calls a function on the sync's thread.
class RecordingDelegate : public KRTRingtoneManagerDelegate {
public:
    using OnStep = std::function<void(const Step&)>;

    explicit RecordingDelegate(OnStep onStep = nullptr) : onStep_(std::move(onStep)) {}

    void syncStatus(int32_t status, int32_t mode, uint32_t max, uint32_t value,
                    CFStringRef message) override {
        const Step step{status, mode, max, value, message == nullptr ? "" : text(message)};
        {
            const std::lock_guard guard(mutex_);
            steps_.push_back(step);
            changed_.notify_all();
        }
        if (onStep_) {
            onStep_(step);
        }
    }

    void reportError(CFErrorRef error, bool canCancel) override {
        const std::lock_guard guard(mutex_);
        errors_.push_back(errorText(error) + (canCancel ? " (can cancel)" : ""));
    }

    std::vector<Step> steps() const {
        const std::lock_guard guard(mutex_);
        return steps_;
    }

    /// Status and mode of each step, as "1/0".
    std::string shortSteps() const {
        std::ostringstream out;
        for (const Step& step : steps()) {
            out << step.status << "/" << step.mode << " ";
        }
        return out.str();
    }

    std::vector<std::string> errors() const {
        const std::lock_guard guard(mutex_);
        return errors_;
    }

    /// Waits until there are so many steps.
    bool waitForSteps(size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return steps_.size() >= count; });
    }

    /// Waits until there are so many steps, or no more will come.
    /// @return whether there are so many
    bool waitForStepsOrEnd(size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, kPatience, [&] { return isOver_ || steps_.size() >= count; });
        return steps_.size() >= count;
    }

    /// No more steps will come.
    void end() {
        const std::lock_guard guard(mutex_);
        isOver_ = true;
        changed_.notify_all();
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Step> steps_;
    std::vector<std::string> errors_;
    bool isOver_ = false;
    OnStep onStep_;
};

/// Counts the completion notifications of a manager.
class Completion {
public:
    explicit Completion(const std::shared_ptr<KRTRingtoneManager>& manager)
        : manager_(manager.get()) {
        CFNotificationCenterAddObserver(CFNotificationCenterGetLocalCenter(), this, &came,
                                        CFSTR("com.korvane.KRLRingtoneSyncComplete"), manager_,
                                        CFNotificationSuspensionBehaviorDeliverImmediately);
    }

    ~Completion() {
        CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetLocalCenter(), this);
    }

    Completion(const Completion&) = delete;
    Completion& operator=(const Completion&) = delete;

    /// Called on the sync's thread.
    void onCompletion(std::function<void()> function) { function_ = std::move(function); }

    int count() const {
        const std::lock_guard guard(mutex_);
        return count_;
    }

    std::thread::id thread() const {
        const std::lock_guard guard(mutex_);
        return thread_;
    }

    /// Waits until there were so many.
    bool wait(int count = 1) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return count_ >= count; });
    }

private:
    static void came(CFNotificationCenterRef, void* observer, CFNotificationName,
                     const void* object, CFDictionaryRef userInfo) {
        auto& self = *static_cast<Completion*>(observer);
        if (self.function_) {
            self.function_();
        }
        const std::lock_guard guard(self.mutex_);
        // An object or information that is not as documented does not count.
        self.count_ += object == self.manager_ && userInfo == nullptr ? 1 : 0;
        self.thread_ = std::this_thread::get_id();
        self.changed_.notify_all();
    }

    const void* manager_;
    std::function<void()> function_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
    std::thread::id thread_;
};

} // namespace krl::test
