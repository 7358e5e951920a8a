// The sync of KRTRingtoneManager: on this thread or on one of its own, with reports that can wait
// for the application's answer.
#include "library/errors/ErrorObject.h"
#include "library/objects/ConditionLock.h"
#include "library/objects/WorkingList.h"
#include "library/phone/RecordLifetime.h"
#include "library/store/Dictionaries.h"
#include "library/store/KRTRingtoneManagerInternal.h"

#include <KRLVesk/KRTError.h>
#include <KRLVesk/KRTRingtoneManager.h>

#include <system_error>
#include <thread>
#include <utility>

using namespace krl::ringtones;
using krl::cf::adopt;
using krl::cf::cast;
using krl::cf::CFRef;
using krl::phone::SyncUse;

using SyncDelegate = std::shared_ptr<KRTRingtoneManagerDelegate>;

namespace {

constexpr char kModule[] = "KRTRingtoneManager";

/// Conditions of the continue lock.
constexpr int kWaiting = 1;
constexpr int kAnswered = 2;

/// Code and line of the report of a phone that does not open.
constexpr int kPhoneDoesNotOpen = 328;

/// Statuses and modes of the sync's own steps.
constexpr int32_t kOver = 0;
constexpr int32_t kRunning = 1;
constexpr int32_t kUnlocked = 0;
constexpr int32_t kLocked = 1;

const CFStringRef kAddedKey = CFSTR("added");
const CFStringRef kRemovedKey = CFSTR("removed");
const CFStringRef kUnchangedKey = CFSTR("unchanged");

void tellStep(const SyncDelegate& delegate, int32_t status, int32_t mode) {
    if (delegate) {
        delegate->syncStatus(status, mode, 0, 0, nullptr);
    }
}

void tellError(const SyncDelegate& delegate, const CFRef<CFErrorRef>& error) {
    if (delegate) {
        constexpr bool kCanCancel = false;
        delegate->reportError(error.get(), kCanCancel);
    }
}

void postCompletion(const void* manager) {
    constexpr Boolean kDeliverImmediately = true;
    CFNotificationCenterPostNotification(CFNotificationCenterGetLocalCenter(),
                                         CFSTR("com.korvane.KRLRingtoneSyncComplete"), manager,
                                         nullptr, kDeliverImmediately);
}

CFDictionaryRef listIn(CFDictionaryRef changes, CFStringRef key) {
    return cast<CFDictionaryRef>(valueOf(changes, key));
}

/// Sum of the file sizes of a list, as signed 64-bit numbers add up.
uint64_t sizeOfFiles(CFDictionaryRef list) {
    uint64_t sum = 0;
    for (const Pair& pair : pairsOf(list)) {
        const auto size = cast<CFNumberRef>(valueOf(recordOf(pair.value), KRTFileSize));
        int64_t sizeBytes = 0;
        if (size != nullptr) {
            CFNumberGetValue(size, kCFNumberSInt64Type, &sizeBytes);
        }
        sum += static_cast<uint64_t>(sizeBytes);
    }
    return sum;
}

std::shared_ptr<ConditionLock> read(const std::shared_ptr<ConditionLock>& lock, std::mutex& guard) {
    const std::lock_guard guarded(guard);
    return lock;
}

/// Answers a report. Nobody takes note when none waits, or when it was answered before.
void answer(const std::shared_ptr<ConditionLock>& lock) {
    if (lock) {
        lock->unlockWithCondition(kAnswered);
    }
}

} // namespace

extern "C" {

static bool _rm_status_func(int32_t mode, int32_t status, uint32_t max, uint32_t value,
                            const char* message, void* context) noexcept {
    return static_cast<KRTRingtoneManager*>(context)->_internal_status_function(mode, status, max,
                                                                                value, message);
}
}

// ---------------------------------------------------------------------------- the sync

// setAsyncMode:
void KRTRingtoneManager::setAsyncMode(bool asyncMode) {
    _async = asyncMode;
}

// asyncMode
bool KRTRingtoneManager::asyncMode() const {
    return _async;
}

// syncCurrentListToPhone:
// NOLINTNEXTLINE(performance-unnecessary-value-param): part of the binary interface
void KRTRingtoneManager::syncCurrentListToPhone(SyncDelegate delegate) {
    if (!ringtonesUpdated()) {
        postCompletion(this);
        return;
    }
    _delegate = delegate.get();
    if (!_async) {
        _beginSync(delegate);
        return;
    }
    try {
        // The phone is in use from now on, not only when the thread gets to work.
        std::thread([self = shared_from_this(), delegate,
                     use = std::make_unique<SyncUse>(_manager->phone)]() mutable {
            self->sync(delegate, std::move(use));
        }).detach();
    } catch (const std::system_error& error) {
        tellError(delegate,
                  krl::makeErrorObject(KRTErrorDomain, error.code().value(), kModule, __LINE__));
        _delegate = nullptr;
        postCompletion(this);
    }
}

// _beginSync:
void KRTRingtoneManager::_beginSync(const SyncDelegate& delegate) noexcept {
    const auto self = shared_from_this();
    sync(delegate, std::make_unique<SyncUse>(_manager->phone));
}

void KRTRingtoneManager::sync(const SyncDelegate& delegate, std::unique_ptr<SyncUse> use) noexcept {
    if (ringtonesUpdated()) {
        _delegate = delegate.get();
        if (KRTPhoneOpen(_manager->phone) != 1) {
            // Contract: the same number for code and line, and neither a step nor a close.
            // [SynchronousSync.APhoneThatDoesNotOpenIsOneErrorAndTheCompletion]
            tellError(delegate, krl::makeErrorObject(KRTErrorDomain, kPhoneDoesNotOpen, kModule,
                                                     kPhoneDoesNotOpen));
        } else {
            tellStep(delegate, kRunning, kUnlocked);
            // Contract: whether the lock was taken, and given back, is not looked at.
            // [SynchronousSync.DoesNotLookWhetherBeginAndEndOfTheLockSucceed]
            KRTPhoneBeginSync(_manager->phone);
            tellStep(delegate, kRunning, kLocked);
            if (const auto error = submitChanges(generateChangeLists().get())) {
                tellError(delegate, error);
            } else {
                setRingtonesUpdated(false);
            }
            tellStep(delegate, kRunning, kLocked);
            KRTPhoneEndSync(_manager->phone);
            tellStep(delegate, kRunning, kUnlocked);
            KRTPhoneClose(_manager->phone);
            tellStep(delegate, kOver, kUnlocked);
        }
    }
    _delegate = nullptr;
    // A phone that was released meanwhile goes before the application hears of the end.
    use.reset();
    postCompletion(this);
}

// generateChangeLists
CFRef<CFDictionaryRef> KRTRingtoneManager::generateChangeLists() const {
    const auto changes = makeDictionary();
    CFDictionarySetValue(changes.get(), kAddedKey, _addedList.get());
    CFDictionarySetValue(changes.get(), kRemovedKey, _removedList.get());
    if (_unchangedList) {
        CFDictionarySetValue(changes.get(), kUnchangedKey, _unchangedList.get());
    }
    return changes;
}

// submitChanges:
CFRef<CFErrorRef> KRTRingtoneManager::submitChanges(CFDictionaryRef changes) {
    KRTRingtoneManagerSetStatusResponder(_manager, _rm_status_func, this);
    const int result = KRTRingtoneManagerSubmitChanges(_manager, listIn(changes, kAddedKey),
                                                       listIn(changes, kRemovedKey),
                                                       listIn(changes, kUnchangedKey));
    if (result != 1) {
        auto error = krl::errorObjectFromRecord(KRTErrorDomain);
        KRTErrorClear();
        return error;
    }
    // Contract: a cancelled submit is a success too. What was pending is dropped, and the list is
    // what the phone says. [SynchronousSync.CancelledAtTheFirstUploadUploadsNothingAndIsASuccess]
    _loadRingtoneList();
    _unchangedList = copyOf(_remotePlist);
    removeAllFrom(_removedList);
    removeAllFrom(_addedList);
    return nullptr;
}

// sizeOfChanges:
int64_t KRTRingtoneManager::sizeOfChanges(CFDictionaryRef changes) const {
    // Contract: what is added comes from the changes, what is removed from this object.
    // [SynchronousSync.SizeLooksAtTheRemovedListOfTheObjectAndNotOfTheChanges]
    return static_cast<int64_t>(sizeOfFiles(listIn(changes, kAddedKey)) -
                                sizeOfFiles(_removedList.get()));
}

// ---------------------------------------------------------------------------- reports and answers

// _internal_status_function:s:m:v:msg:
bool KRTRingtoneManager::_internal_status_function(int32_t mode, int32_t status, uint32_t max,
                                                   uint32_t value, const char* message) {
    const auto text =
        message == nullptr
            ? CFRef<CFStringRef>()
            : adopt(CFStringCreateWithCString(nullptr, message, kCFStringEncodingUTF8));
    // Before the delegate is told, so that it can answer in the message.
    _startContinueNoticeLock();
    if (_delegate != nullptr) {
        // Contract: the mode comes first here and the status first there.
        // [SynchronousSync.TellsEachStepInOrder]
        _delegate->syncStatus(status, mode, max, value, text.get());
    }
    _waitForContinueNotice();
    return !_shouldCancel;
}

// _startContinueNoticeLock
void KRTRingtoneManager::_startContinueNoticeLock() {
    if (!_async) {
        return;
    }
    const auto lock = std::make_shared<ConditionLock>(kWaiting);
    lock->lock();
    const std::lock_guard guard(continueMutex_);
    _continueLock = lock;
}

// _waitForContinueNotice
void KRTRingtoneManager::_waitForContinueNotice() {
    if (const auto lock = read(_continueLock, continueMutex_)) {
        lock->lockWhenCondition(kAnswered);
        lock->unlock();
        const std::lock_guard guard(continueMutex_);
        _continueLock = nullptr;
    }
}

// continueSync
void KRTRingtoneManager::continueSync() {
    // Contract: only here a sync that was cancelled is forgotten.
    // [SynchronousSync.ACancelLastsUntilContinueSync]
    _shouldCancel = false;
    answer(read(_continueLock, continueMutex_));
}

// cancelSync
void KRTRingtoneManager::cancelSync() {
    _shouldCancel = true;
    answer(read(_continueLock, continueMutex_));
}
