#include "engine/sync/SyncRun.h"

#include "engine/errors/Status.h"
#include "engine/values/Cf.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace krl::engine {
namespace {

/// Takes the sync's messages on its thread and hands them over to this one.
class Messages : public KRTRingtoneManagerDelegate {
public:
    void syncStatus(int32_t status, int32_t mode, uint32_t /*max*/, uint32_t /*value*/,
                    CFStringRef message) override {
        constexpr int32_t kLocked = 1;
        if (mode == kLocked) {
            isSubmitting_ = !isSubmitting_;
        } else if (isSubmitting_) {
            // Steps that may fail, such as making a folder that is there, leave their reason in the
            // record, where it would stand for that of a later failure.
            KRTErrorClear();
            const std::lock_guard lock(mutex_);
            steps_.push_back({mode, status, cf::text(message)});
            changed_.notify_all();
        }
    }

    void reportError(CFErrorRef error, bool /*canCancel*/) override {
        const std::lock_guard lock(mutex_);
        failure_ = failureText(error);
    }

    void end() {
        const std::lock_guard lock(mutex_);
        isOver_ = true;
        changed_.notify_all();
    }

    /// The next step; none when the sync is over.
    std::optional<SyncStep> next(const std::function<void()>& passes) {
        constexpr std::chrono::milliseconds kMoment{50};
        std::unique_lock lock(mutex_);
        while (!changed_.wait_for(lock, kMoment, [this] { return isOver_ || !steps_.empty(); })) {
            lock.unlock();
            passes();
            lock.lock();
        }
        if (steps_.empty()) {
            return std::nullopt;
        }
        SyncStep step = std::move(steps_.front());
        steps_.pop_front();
        return step;
    }

    std::optional<std::string> failure() const {
        const std::lock_guard lock(mutex_);
        return failure_;
    }

private:
    bool isSubmitting_ = false; ///< the steps of the sync's frame, outside of this, do not wait
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<SyncStep> steps_;
    std::optional<std::string> failure_;
    bool isOver_ = false;
};

/// Hears of a sync's end, on the sync's thread.
class Completion {
public:
    Completion(const KRTRingtoneManager& tones, Messages& messages) : messages_(messages) {
        CFNotificationCenterAddObserver(CFNotificationCenterGetLocalCenter(), this, came,
                                        CFSTR("com.korvane.KRLRingtoneSyncComplete"), &tones,
                                        CFNotificationSuspensionBehaviorDeliverImmediately);
    }

    ~Completion() {
        CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetLocalCenter(), this);
    }

    Completion(const Completion&) = delete;
    Completion& operator=(const Completion&) = delete;

private:
    static void came(CFNotificationCenterRef /*center*/, void* self, CFStringRef /*name*/,
                     const void* /*object*/, CFDictionaryRef /*information*/) {
        static_cast<Completion*>(self)->messages_.end();
    }

    Messages& messages_;
};

} // namespace

// The run loop stands still meanwhile: a phone that comes or goes would be dealt with here, with
// the error record that the sync uses.
std::optional<std::string> runSync(const std::shared_ptr<KRTRingtoneManager>& tones,
                                   const std::function<bool(const SyncStep&)>& goOn,
                                   const std::function<void()>& passes) {
    const auto messages = std::make_shared<Messages>();
    const Completion completion(*tones, *messages);
    tones->setAsyncMode(true);
    // What there is to do need not be an edit: a file to be deleted, or a list to be converted.
    tones->setRingtonesUpdated(true);
    KRTErrorClear();
    tones->syncCurrentListToPhone(messages);
    while (const auto step = messages->next(passes)) {
        if (goOn(*step)) {
            tones->continueSync();
        } else {
            tones->cancelSync();
        }
    }
    return messages->failure();
}

} // namespace krl::engine
