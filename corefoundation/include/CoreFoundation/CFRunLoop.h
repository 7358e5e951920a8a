/**
 * @file
 * Run loops: each thread has one, made when it is first asked for. It waits until there is work and
 * calls back on its thread.
 *
 * CFRunLoopStop, CFRunLoopWakeUp, CFRunLoopSourceSignal, adding, removing and invalidating may be
 * called from any thread and from inside callbacks, everything else on the loop's own thread. A
 * loop whose thread has ended may still be held; it just runs nothing any more.
 */
#ifndef COREFOUNDATION_CFRUNLOOP_H
#define COREFOUNDATION_CFRUNLOOP_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>

/** The loop of one thread. */
typedef struct __CFRunLoop* CFRunLoopRef;
/** Something that can be asked for from anywhere and is done by a loop. */
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
/** Something that a loop does at a time. */
typedef struct __CFRunLoopTimer* CFRunLoopTimerRef;
/** A name under which sources and timers are grouped. */
typedef CFStringRef CFRunLoopMode;

/** The mode for everyday use. */
CF_EXPORT const CFRunLoopMode kCFRunLoopDefaultMode;
/** Not a mode to run: what is added to it takes part in every mode that is run. */
CF_EXPORT const CFRunLoopMode kCFRunLoopCommonModes;

/** Why a run ended. */
typedef SInt32 CFRunLoopRunResult;

/** Reasons, see CFRunLoopRunInMode. */
enum {
    kCFRunLoopRunFinished = 1,     /**< the mode cannot be run (kCFRunLoopCommonModes) */
    kCFRunLoopRunStopped = 2,      /**< CFRunLoopStop was called */
    kCFRunLoopRunTimedOut = 3,     /**< its time is over */
    kCFRunLoopRunHandledSource = 4 /**< it handled a source, and was to return then */
};

/** The type of run loops. */
CF_EXPORT CFTypeID CFRunLoopGetTypeID(void) CF_NOEXCEPT;
/** This thread's loop. */
CF_EXPORT CFRunLoopRef CFRunLoopGetCurrent(void) CF_NOEXCEPT;
/** The loop of the process's first thread. */
CF_EXPORT CFRunLoopRef CFRunLoopGetMain(void) CF_NOEXCEPT;

/** Runs this thread's loop in the default mode until CFRunLoopStop. */
CF_EXPORT void CFRunLoopRun(void) CF_NOEXCEPT;

/**
 * Runs this thread's loop. Runs may be nested inside callbacks.
 *
 * Without sources and timers it waits all the same: another thread may add some.
 * @param mode                       not kCFRunLoopCommonModes.
 * @param seconds                    how long; 0: what is ready now, without waiting.
 * @param returnAfterSourceHandled   whether to return after the first source that was handled.
 * @return kCFRunLoopRunHandledSource when returnAfterSourceHandled and it did so;
 *         kCFRunLoopRunStopped after CFRunLoopStop; kCFRunLoopRunTimedOut otherwise.
 */
CF_EXPORT CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                                Boolean returnAfterSourceHandled) CF_NOEXCEPT;

/** Makes the innermost run of the loop return soon. When it is not running, the next run returns at
 *  once. */
CF_EXPORT void CFRunLoopStop(CFRunLoopRef loop) CF_NOEXCEPT;
/** Makes a waiting loop look for work. */
CF_EXPORT void CFRunLoopWakeUp(CFRunLoopRef loop) CF_NOEXCEPT;
/** Whether the loop waits for work right now. */
CF_EXPORT Boolean CFRunLoopIsWaiting(CFRunLoopRef loop) CF_NOEXCEPT;

/**
 * Own extension, for a program with a main loop of its own (GLib, Qt, epoll).
 * @return a descriptor that is readable while the loop has work in the default mode: a signalled
 *         source, a timer that is due, a stop or a wake-up. Watch it, read nothing from it, and
 *         call CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false) on the loop's thread when it is
 *         readable. It is the loop's, and closed with it. -1 when the process can open no more.
 */
CF_EXPORT int CFRunLoopGetPollDescriptor(CFRunLoopRef loop) CF_NOEXCEPT;

/** A source that is handled once after each CFRunLoopSourceSignal. */
typedef struct {
    CFIndex version; /**< 0 */
    void* info;      /**< handed to all functions below, each of which may be NULL */
    const void* (*retain)(const void* info);                /**< called once, at the making */
    void (*release)(const void* info);                      /**< called once, at the end */
    CFStringRef (*copyDescription)(const void* info);       /**< for CFCopyDescription */
    Boolean (*equal)(const void* info1, const void* info2); /**< for CFEqual */
    CFHashCode (*hash)(const void* info);                   /**< for CFHash */
    /** Called on the adding thread when the source comes to a mode of a loop. */
    void (*schedule)(void* info, CFRunLoopRef loop, CFRunLoopMode mode);
    /** Called on the removing thread when it leaves; not when the loop itself comes to its end. */
    void (*cancel)(void* info, CFRunLoopRef loop, CFRunLoopMode mode);
    /** Called on the loop's thread. */
    void (*perform)(void* info);
} CFRunLoopSourceContext;

/** The type of sources. */
CF_EXPORT CFTypeID CFRunLoopSourceGetTypeID(void) CF_NOEXCEPT;
/**
 * @param order    sources of one round are handled by rising order.
 * @param context  copied.
 * @return NULL when the version is not 0.
 */
CF_EXPORT CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef allocator, CFIndex order,
                                                   CFRunLoopSourceContext* context) CF_NOEXCEPT;
/** Does nothing when the source is there already or is no longer valid. The loop retains it. */
CF_EXPORT void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source,
                                  CFRunLoopMode mode) CF_NOEXCEPT;
/** Does nothing when the source is not there. */
CF_EXPORT void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source,
                                     CFRunLoopMode mode) CF_NOEXCEPT;
/** Whether the source is in the mode of the loop. */
CF_EXPORT Boolean CFRunLoopContainsSource(CFRunLoopRef loop, CFRunLoopSourceRef source,
                                          CFRunLoopMode mode) CF_NOEXCEPT;
/** Asks for the source to be handled once by a loop that it was added to, and wakes that loop.
 *  Several calls before it is handled count as one. */
CF_EXPORT void CFRunLoopSourceSignal(CFRunLoopSourceRef source) CF_NOEXCEPT;
/** Takes the source out of all loops, for good. Its perform function is not called any more, unless
 *  it is running on another thread right now. */
CF_EXPORT void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source) CF_NOEXCEPT;
/** False after CFRunLoopSourceInvalidate. */
CF_EXPORT Boolean CFRunLoopSourceIsValid(CFRunLoopSourceRef source) CF_NOEXCEPT;

/** What a timer hands to its function. */
typedef struct {
    CFIndex version; /**< 0 */
    void* info; /**< handed to the function of the timer and to those below, which may be NULL */
    const void* (*retain)(const void* info);          /**< called once, at the making */
    void (*release)(const void* info);                /**< called once, at the end */
    CFStringRef (*copyDescription)(const void* info); /**< for CFCopyDescription */
} CFRunLoopTimerContext;

/** Called when the timer fires. */
typedef void (*CFRunLoopTimerCallBack)(CFRunLoopTimerRef timer, void* info);

/** The type of timers. */
CF_EXPORT CFTypeID CFRunLoopTimerGetTypeID(void) CF_NOEXCEPT;
/**
 * @param fireDate  when to fire first, by CFAbsoluteTimeGetCurrent at the time of this call;
 *                  setting the computer's clock later does not move it.
 * @param interval  seconds between further firings; 0 or less: fires once and is then invalid.
 *                  Firings that were missed are left out.
 * @param flags, order  0.
 * @param callout   called on the loop's thread.
 * @param context   copied; may be NULL.
 */
CF_EXPORT CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                                 CFTimeInterval interval, CFOptionFlags flags,
                                                 CFIndex order, CFRunLoopTimerCallBack callout,
                                                 CFRunLoopTimerContext* context) CF_NOEXCEPT;
/** Does nothing when the timer is there already, belongs to another loop or is no longer valid. The
 *  loop retains it. */
CF_EXPORT void CFRunLoopAddTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer,
                                 CFRunLoopMode mode) CF_NOEXCEPT;
/** Does nothing when the timer is not there. */
CF_EXPORT void CFRunLoopRemoveTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer,
                                    CFRunLoopMode mode) CF_NOEXCEPT;
/** Takes the timer out of its loop, for good. It fires no more. */
CF_EXPORT void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer) CF_NOEXCEPT;
/** False after CFRunLoopTimerInvalidate, and when a timer without interval has fired. */
CF_EXPORT Boolean CFRunLoopTimerIsValid(CFRunLoopTimerRef timer) CF_NOEXCEPT;

#endif
