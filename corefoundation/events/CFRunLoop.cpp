#include <CoreFoundation/CFRunLoop.h>

#include "corefoundation/values/CFRuntime.h"

#include <CoreFoundation/CFRef.h>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <vector>

// Which source and timer belongs to which loop, and their state, is guarded by one lock for all
// loops, because a source can be in several. No callback is called, and nothing is released, under
// it.

namespace krl::cf {

using Clock = std::chrono::steady_clock;
using Moment = Clock::time_point;

/// A caller's context, with its info retained while anybody still uses it.
template <typename Context>
class KeptContext {
public:
    explicit KeptContext(const Context& context) : context_(context) {
        if (context_.retain != nullptr) {
            context_.retain(context_.info);
        }
    }

    ~KeptContext() {
        if (context_.release != nullptr) {
            context_.release(context_.info);
        }
    }

    KeptContext(const KeptContext&) = delete;
    KeptContext& operator=(const KeptContext&) = delete;

    const Context& get() const { return context_; }

private:
    const Context context_;
};

using SourceContext = KeptContext<CFRunLoopSourceContext>;
using TimerContext = KeptContext<CFRunLoopTimerContext>;

/// A source or timer, and the mode that it was added for.
template <typename Item>
struct Entry {
    CFRef<Item> item;
    CFRef<CFStringRef> mode;
};

} // namespace krl::cf

struct __CFRunLoopSource {
    CFObjectHeader header;
    CFIndex order;
    std::shared_ptr<const krl::cf::SourceContext> context; ///< null once it is invalid
    std::vector<CFRunLoopRef> loops{}; ///< one for each entry in a loop; not retained
    bool isSignalled = false;
};

struct __CFRunLoopTimer {
    CFObjectHeader header;
    krl::cf::Moment fireTime;
    krl::cf::Clock::duration interval; ///< 0: fires once
    CFRunLoopTimerCallBack callout;
    std::shared_ptr<const krl::cf::TimerContext> context; ///< null once it is invalid
    CFRunLoopRef loop = nullptr;                          ///< not retained
    bool isFiring = false;
};

struct __CFRunLoop {
    CFObjectHeader header;
    int wakeDescriptor; ///< an eventfd, readable after a wake-up; -1 when there was none to be had
    std::vector<krl::cf::Entry<CFRunLoopSourceRef>> sources{};
    std::vector<krl::cf::Entry<CFRunLoopTimerRef>> timers{};
    std::atomic<bool> isStopped{false};
    std::atomic<bool> isWaiting{false};
    // For a host with a main loop of its own, once it has asked.
    int timerDescriptor = -1;
    int pollDescriptor = -1; ///< an epoll over the other two
};

namespace krl::cf {
namespace {

using SourceEntries = std::vector<Entry<CFRunLoopSourceRef>>;
using TimerEntries = std::vector<Entry<CFRunLoopTimerRef>>;

std::mutex loopsMutex;

// ---------------------------------------------------------------------------- time

/// The moment so many seconds from now, which may lie in the past.
Moment momentIn(double seconds) {
    constexpr double kForever = 1e9;
    if (!(seconds < kForever)) {
        return Moment::max();
    }
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(
                              std::chrono::duration<double>(std::max(seconds, -kForever)));
}

timespec asTimespec(Clock::duration duration) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    return {seconds.count(), std::chrono::nanoseconds(duration - seconds).count()};
}

// ---------------------------------------------------------------------------- waking and waiting

void wake(CFRunLoopRef loop) {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(loop->wakeDescriptor, &one, sizeof one);
}

void takeWakeUps(CFRunLoopRef loop) {
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t size = read(loop->wakeDescriptor, &count, sizeof count);
}

void waitForWakeUp(CFRunLoopRef loop, Moment until) {
    Clock::duration most = std::chrono::hours(1); // then the caller looks and waits again
    if (loop->wakeDescriptor < 0) {
        most = std::chrono::milliseconds(10); // nobody can wake the loop; it has to look by itself
    }
    const Clock::duration left = until - std::min(until, Clock::now());
    const timespec timeout = asTimespec(std::min(left, most));
    pollfd wakeUp{loop->wakeDescriptor, POLLIN, 0};
    loop->isWaiting = true;
    ppoll(&wakeUp, 1, &timeout, nullptr);
    loop->isWaiting = false;
}

// ---------------------------------------------------------------------------- entries, locked

bool isInMode(CFStringRef entryMode, CFStringRef runMode) {
    return CFEqual(entryMode, runMode) || CFEqual(entryMode, kCFRunLoopCommonModes);
}

bool isReady(const Entry<CFRunLoopSourceRef>& entry, CFRunLoopMode mode) {
    return entry.item.get()->isSignalled && isInMode(entry.mode.get(), mode);
}

bool hasReadySource(CFRunLoopRef loop, CFRunLoopMode mode) {
    return std::any_of(loop->sources.begin(), loop->sources.end(),
                       [&](const auto& entry) { return isReady(entry, mode); });
}

Moment nextFireTime(CFRunLoopRef loop, CFRunLoopMode mode) {
    Moment next = Moment::max();
    for (const auto& entry : loop->timers) {
        const CFRunLoopTimerRef timer = entry.item.get();
        if (!timer->isFiring && isInMode(entry.mode.get(), mode)) {
            next = std::min(next, timer->fireTime);
        }
    }
    return next;
}

template <typename Item>
auto findEntry(std::vector<Entry<Item>>& entries, Item item, CFStringRef mode) {
    return std::find_if(entries.begin(), entries.end(), [&](const auto& entry) {
        return entry.item.get() == item && CFEqual(entry.mode.get(), mode);
    });
}

template <typename Item>
bool contains(const std::vector<Entry<Item>>& entries, Item item) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](const auto& entry) { return entry.item.get() == item; });
}

/// Moves all entries of an item to the end of another list.
template <typename Item>
void moveEntries(std::vector<Entry<Item>>& from, Item item, std::vector<Entry<Item>>& to) {
    const auto first = std::stable_partition(
        from.begin(), from.end(), [&](const auto& entry) { return entry.item.get() != item; });
    std::move(first, from.end(), std::back_inserter(to));
    from.erase(first, from.end());
}

// ---------------------------------------------------------------------------- sources

/// The sources to handle now, by rising order.
std::vector<CFRef<CFRunLoopSourceRef>> readySources(CFRunLoopRef loop, CFRunLoopMode mode) {
    std::vector<CFRef<CFRunLoopSourceRef>> ready;
    const std::lock_guard lock(loopsMutex);
    for (const auto& entry : loop->sources) {
        if (isReady(entry, mode)) {
            ready.push_back(entry.item);
        }
    }
    std::stable_sort(ready.begin(), ready.end(), [](const auto& left, const auto& right) {
        return left.get()->order < right.get()->order;
    });
    return ready;
}

/// Handles a source unless it was handled, removed or invalidated in the meantime.
bool performSource(CFRunLoopRef loop, CFRunLoopSourceRef source) {
    std::shared_ptr<const SourceContext> context;
    {
        const std::lock_guard lock(loopsMutex);
        if (!source->isSignalled || !contains(loop->sources, source)) {
            return false;
        }
        source->isSignalled = false;
        context = source->context;
    }
    if (context->get().perform != nullptr) {
        context->get().perform(context->get().info);
    }
    return true;
}

bool performSources(CFRunLoopRef loop, CFRunLoopMode mode, bool onlyOne) {
    bool handled = false;
    for (const auto& source : readySources(loop, mode)) {
        handled = performSource(loop, source.get()) || handled;
        if (handled && onlyOne) {
            break;
        }
    }
    return handled;
}

// ---------------------------------------------------------------------------- timers

bool isDue(const CFRunLoopTimerRef timer, Moment now) {
    return !timer->isFiring && timer->fireTime <= now;
}

std::vector<CFRef<CFRunLoopTimerRef>> dueTimers(CFRunLoopRef loop, CFRunLoopMode mode, Moment now) {
    std::vector<CFRef<CFRunLoopTimerRef>> due;
    const std::lock_guard lock(loopsMutex);
    for (const auto& entry : loop->timers) {
        if (isInMode(entry.mode.get(), mode) && isDue(entry.item.get(), now)) {
            due.push_back(entry.item);
        }
    }
    std::stable_sort(due.begin(), due.end(), [](const auto& left, const auto& right) {
        return left.get()->fireTime < right.get()->fireTime;
    });
    return due;
}

/// The first moment of a timer's beat that lies in the future.
Moment followingFireTime(const __CFRunLoopTimer& timer, Moment now) {
    const auto missed = (now - timer.fireTime) / timer.interval;
    return timer.fireTime + (missed + 1) * timer.interval;
}

void fireTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, Moment now) {
    const bool repeats = timer->interval > Clock::duration::zero();
    std::shared_ptr<const TimerContext> context;
    {
        const std::lock_guard lock(loopsMutex);
        if (!isDue(timer, now) || !contains(loop->timers, timer)) {
            return;
        }
        timer->isFiring = true;
        if (repeats) {
            timer->fireTime = followingFireTime(*timer, now);
        }
        context = timer->context;
    }
    timer->callout(timer, context->get().info);
    if (!repeats) {
        CFRunLoopTimerInvalidate(timer);
    }
    const std::lock_guard lock(loopsMutex);
    timer->isFiring = false;
}

void fireTimers(CFRunLoopRef loop, CFRunLoopMode mode) {
    const Moment now = Clock::now();
    for (const auto& timer : dueTimers(loop, mode, now)) {
        fireTimer(loop, timer.get(), now);
    }
}

// ---------------------------------------------------------------------------- running

void waitForWork(CFRunLoopRef loop, CFRunLoopMode mode, Moment deadline) {
    Moment until = deadline;
    {
        const std::lock_guard lock(loopsMutex);
        // A nested run may have taken the wake-up for this one.
        if (hasReadySource(loop, mode)) {
            return;
        }
        until = std::min(until, nextFireTime(loop, mode));
    }
    waitForWakeUp(loop, until);
}

/// Makes a host's descriptor tell what is left to do.
void updatePollDescriptor(CFRunLoopRef loop) {
    const std::lock_guard lock(loopsMutex);
    if (loop->pollDescriptor < 0) {
        return;
    }
    if (hasReadySource(loop, kCFRunLoopDefaultMode)) {
        wake(loop);
    }
    const Moment next = nextFireTime(loop, kCFRunLoopDefaultMode);
    itimerspec alarm{};
    if (next != Moment::max()) {
        alarm.it_value = asTimespec(next.time_since_epoch());
    }
    timerfd_settime(loop->timerDescriptor, TFD_TIMER_ABSTIME, &alarm, nullptr);
}

CFRunLoopRunResult run(CFRunLoopRef loop, CFRunLoopMode mode, Moment deadline, bool onlyOneSource) {
    for (;;) {
        takeWakeUps(loop);
        if (loop->isStopped.exchange(false)) {
            return kCFRunLoopRunStopped;
        }
        fireTimers(loop, mode);
        if (performSources(loop, mode, onlyOneSource) && onlyOneSource) {
            return kCFRunLoopRunHandledSource;
        }
        if (loop->isStopped.exchange(false)) {
            return kCFRunLoopRunStopped;
        }
        if (Clock::now() >= deadline) {
            return kCFRunLoopRunTimedOut;
        }
        waitForWork(loop, mode, deadline);
    }
}

// ---------------------------------------------------------------------------- classes

void closeDescriptor(int descriptor) {
    if (descriptor >= 0) {
        close(descriptor);
    }
}

void finalizeRunLoop(CFTypeRef object) {
    auto& loop = mutableRecordOf<__CFRunLoop>(object);
    {
        const std::lock_guard lock(loopsMutex);
        for (const auto& entry : loop.sources) {
            std::erase(entry.item.get()->loops, &loop);
        }
        for (const auto& entry : loop.timers) {
            entry.item.get()->loop = nullptr;
        }
    }
    closeDescriptor(loop.pollDescriptor);
    closeDescriptor(loop.timerDescriptor);
    closeDescriptor(loop.wakeDescriptor);
    loop.~__CFRunLoop();
}

void finalizeSource(CFTypeRef object) {
    mutableRecordOf<__CFRunLoopSource>(object).~__CFRunLoopSource();
}

void finalizeTimer(CFTypeRef object) {
    mutableRecordOf<__CFRunLoopTimer>(object).~__CFRunLoopTimer();
}

CFRunLoopRef createRunLoop() {
    return createObject<__CFRunLoop>(kRunLoopTypeID, 0, eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
}

/// Under which each thread but the first keeps its loop, which is released when the thread ends.
/// Unlike a thread-local variable it also serves the destructors of those.
pthread_key_t threadsLoopKey() {
    static const pthread_key_t key = [] {
        pthread_key_t created{};
        if (pthread_key_create(&created, [](void* loop) { CFRelease(loop); }) != 0) {
            std::abort();
        }
        return created;
    }();
    return key;
}

bool isMainThread() {
    return gettid() == getpid();
}

void watch(int pollDescriptor, int descriptor) {
    epoll_event event{};
    event.events = EPOLLIN;
    epoll_ctl(pollDescriptor, EPOLL_CTL_ADD, descriptor, &event);
}

} // namespace

constinit const ClassTable kRunLoopClass{"CFRunLoop", finalizeRunLoop, nullptr, nullptr, nullptr};
constinit const ClassTable kRunLoopSourceClass{"CFRunLoopSource", finalizeSource, nullptr, nullptr,
                                               nullptr};
constinit const ClassTable kRunLoopTimerClass{"CFRunLoopTimer", finalizeTimer, nullptr, nullptr,
                                              nullptr};

} // namespace krl::cf

using namespace krl::cf;

constinit const CFRunLoopMode kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");
constinit const CFRunLoopMode kCFRunLoopCommonModes = CFSTR("kCFRunLoopCommonModes");

// ---------------------------------------------------------------------------- loops

CFTypeID CFRunLoopGetTypeID() noexcept {
    return kRunLoopTypeID;
}

CFRunLoopRef CFRunLoopGetMain() noexcept {
    static const CFRunLoopRef mainLoop = createRunLoop(); // never ends
    return mainLoop;
}

CFRunLoopRef CFRunLoopGetCurrent() noexcept {
    if (isMainThread()) {
        return CFRunLoopGetMain();
    }
    auto* loop = static_cast<CFRunLoopRef>(pthread_getspecific(threadsLoopKey()));
    if (loop == nullptr) {
        loop = createRunLoop();
        pthread_setspecific(threadsLoopKey(), loop);
    }
    return loop;
}

void CFRunLoopRun() noexcept {
    while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1e10, false) == kCFRunLoopRunTimedOut) {
    }
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled) noexcept {
    if (CFEqual(mode, kCFRunLoopCommonModes)) {
        return kCFRunLoopRunFinished;
    }
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    const CFRunLoopRunResult result = run(loop, mode, momentIn(seconds), returnAfterSourceHandled);
    updatePollDescriptor(loop);
    return result;
}

void CFRunLoopStop(CFRunLoopRef loop) noexcept {
    loop->isStopped = true;
    wake(loop);
}

void CFRunLoopWakeUp(CFRunLoopRef loop) noexcept {
    wake(loop);
}

Boolean CFRunLoopIsWaiting(CFRunLoopRef loop) noexcept {
    return loop->isWaiting;
}

int CFRunLoopGetPollDescriptor(CFRunLoopRef loop) noexcept {
    const std::lock_guard lock(loopsMutex);
    if (loop->pollDescriptor < 0) {
        loop->pollDescriptor = epoll_create1(EPOLL_CLOEXEC);
        if (loop->pollDescriptor < 0) {
            return -1;
        }
        loop->timerDescriptor = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
        watch(loop->pollDescriptor, loop->wakeDescriptor);
        watch(loop->pollDescriptor, loop->timerDescriptor);
        wake(loop); // the host's first run finds out what there is to do
    }
    return loop->pollDescriptor;
}

// ---------------------------------------------------------------------------- sources

CFTypeID CFRunLoopSourceGetTypeID() noexcept {
    return kRunLoopSourceTypeID;
}

CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef, CFIndex order,
                                         CFRunLoopSourceContext* context) noexcept {
    if (context->version != 0) {
        return nullptr;
    }
    return createObject<__CFRunLoopSource>(kRunLoopSourceTypeID, 0, order,
                                           std::make_shared<const SourceContext>(*context));
}

void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode) noexcept {
    std::shared_ptr<const SourceContext> context;
    {
        const std::lock_guard lock(loopsMutex);
        const bool isNew = findEntry(loop->sources, source, mode) == loop->sources.end();
        if (source->context == nullptr || !isNew) {
            return;
        }
        context = source->context;
        loop->sources.push_back({retain(source), retain(mode)});
        source->loops.push_back(loop);
    }
    if (context->get().schedule != nullptr) {
        context->get().schedule(context->get().info, loop, mode);
    }
    wake(loop);
}

void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source,
                           CFRunLoopMode mode) noexcept {
    std::shared_ptr<const SourceContext> context;
    Entry<CFRunLoopSourceRef> removed;
    {
        const std::lock_guard lock(loopsMutex);
        const auto entry = findEntry(loop->sources, source, mode);
        if (entry == loop->sources.end()) {
            return;
        }
        removed = std::move(*entry);
        loop->sources.erase(entry);
        source->loops.erase(std::find(source->loops.begin(), source->loops.end(), loop));
        context = source->context;
    }
    if (context->get().cancel != nullptr) {
        context->get().cancel(context->get().info, loop, mode);
    }
}

Boolean CFRunLoopContainsSource(CFRunLoopRef loop, CFRunLoopSourceRef source,
                                CFRunLoopMode mode) noexcept {
    const std::lock_guard lock(loopsMutex);
    return findEntry(loop->sources, source, mode) != loop->sources.end();
}

void CFRunLoopSourceSignal(CFRunLoopSourceRef source) noexcept {
    const std::lock_guard lock(loopsMutex);
    if (source->context == nullptr) {
        return;
    }
    source->isSignalled = true;
    for (const CFRunLoopRef loop : source->loops) {
        wake(loop);
    }
}

void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source) noexcept {
    std::shared_ptr<const SourceContext> context;
    SourceEntries removed;
    std::vector<CFRef<CFRunLoopRef>> loops; // as many; null for one that is on its end
    {
        const std::lock_guard lock(loopsMutex);
        context = std::move(source->context);
        source->context = nullptr;
        source->isSignalled = false;
        for (const CFRunLoopRef loop : std::exchange(source->loops, {})) {
            moveEntries(loop->sources, source, removed);
            while (loops.size() < removed.size()) {
                loops.push_back(tryRetain(loop) ? adopt(loop) : CFRef<CFRunLoopRef>());
            }
        }
    }
    for (size_t i = 0; i < removed.size(); ++i) {
        if (context->get().cancel != nullptr && loops[i]) {
            context->get().cancel(context->get().info, loops[i].get(), removed[i].mode.get());
        }
    }
}

Boolean CFRunLoopSourceIsValid(CFRunLoopSourceRef source) noexcept {
    const std::lock_guard lock(loopsMutex);
    return source->context != nullptr;
}

// ---------------------------------------------------------------------------- timers

CFTypeID CFRunLoopTimerGetTypeID() noexcept {
    return kRunLoopTimerTypeID;
}

CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef, CFAbsoluteTime fireDate,
                                       CFTimeInterval interval, CFOptionFlags, CFIndex,
                                       CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context) noexcept {
    constexpr double kLongestInterval = 1e9;
    const auto beat = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(std::clamp(interval, 0.0, kLongestInterval)));
    return createObject<__CFRunLoopTimer>(
        kRunLoopTimerTypeID, 0, momentIn(fireDate - CFAbsoluteTimeGetCurrent()), beat, callout,
        std::make_shared<const TimerContext>(context != nullptr ? *context
                                                                : CFRunLoopTimerContext{}));
}

void CFRunLoopAddTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode mode) noexcept {
    const std::lock_guard lock(loopsMutex);
    const bool isElsewhere = timer->loop != nullptr && timer->loop != loop;
    const bool isNew = findEntry(loop->timers, timer, mode) == loop->timers.end();
    if (timer->context == nullptr || isElsewhere || !isNew) {
        return;
    }
    timer->loop = loop;
    loop->timers.push_back({retain(timer), retain(mode)});
    wake(loop);
}

void CFRunLoopRemoveTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode mode) noexcept {
    Entry<CFRunLoopTimerRef> removed;
    const std::lock_guard lock(loopsMutex);
    const auto entry = findEntry(loop->timers, timer, mode);
    if (entry == loop->timers.end()) {
        return;
    }
    removed = std::move(*entry);
    loop->timers.erase(entry);
    if (!contains(loop->timers, timer)) {
        timer->loop = nullptr;
    }
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer) noexcept {
    std::shared_ptr<const TimerContext> context;
    TimerEntries removed;
    const std::lock_guard lock(loopsMutex);
    context = std::move(timer->context);
    timer->context = nullptr;
    if (timer->loop != nullptr) {
        moveEntries(timer->loop->timers, timer, removed);
        timer->loop = nullptr;
    }
}

Boolean CFRunLoopTimerIsValid(CFRunLoopTimerRef timer) noexcept {
    const std::lock_guard lock(loopsMutex);
    return timer->context != nullptr;
}
