/**
 * @file
 * Notifications from anyone to anyone, in this process or among the user's processes.
 */
#ifndef COREFOUNDATION_CFNOTIFICATIONCENTER_H
#define COREFOUNDATION_CFNOTIFICATIONCENTER_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>

/** Where notifications are posted and observed. */
typedef struct __CFNotificationCenter* CFNotificationCenterRef;
/** What a notification is about. */
typedef CFStringRef CFNotificationName;

/** Told of a notification; observer is what was registered with it. All else is lent. */
typedef void (*CFNotificationCallback)(CFNotificationCenterRef center, void* observer,
                                       CFNotificationName name, const void* object,
                                       CFDictionaryRef userInfo);

/** Makes no difference here. */
typedef CFIndex CFNotificationSuspensionBehavior;

/** All the same here. */
enum {
    CFNotificationSuspensionBehaviorDrop = 1,
    CFNotificationSuspensionBehaviorCoalesce = 2,
    CFNotificationSuspensionBehaviorHold = 3,
    CFNotificationSuspensionBehaviorDeliverImmediately = 4
};

/** The type of notification centers. */
CF_EXPORT CFTypeID CFNotificationCenterGetTypeID(void) CF_NOEXCEPT;

/** The process's own centre: delivers to all observers, in the order in which they were added, on
 * the posting thread and before the post returns. May be used from any thread. Immortal. */
CF_EXPORT CFNotificationCenterRef CFNotificationCenterGetLocalCenter(void) CF_NOEXCEPT;

/**
 * The centre that the user's processes share. Immortal; may be used from any thread.
 *
 * Notifications travel as signals on the session bus and reach all observers, those of the posting
 * process too, in the order in which they were posted. Each callback comes on the run loop of the
 * thread that added the observer, in whatever mode that runs, and while it runs. Names and objects
 * are strings and compare as such; an empty object counts as none. Without a session bus nothing is
 * delivered. A connection that is lost is made anew when the next observer is added or the next
 * notification posted.
 *
 * Where the functions below differ here:
 *  - an object is a CFStringRef, which adding an observer retains;
 *  - of the user information, strings, numbers and booleans under string keys arrive, the rest is
 * left out; none arrives when nothing is left. It belongs to the callback for the time of the call;
 *  - a post does nothing when name or object are no Unicode text or hold a zero character. It
 * returns when the notification was handed to the bus;
 *  - adding an observer and posting wait a second at most for a bus that does not answer.
 */
CF_EXPORT CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void) CF_NOEXCEPT;

/**
 * Adds an observer; adding twice delivers twice. One that is added while a notification is
 * delivered is not told of that one.
 * @param observer  any pointer, to remove it by and handed to the callback; may be NULL.
 * @param name      retained; NULL: whatever the name.
 * @param object    compared as a pointer and not retained (a string in the distributed centre);
 *                  NULL: whatever the object.
 */
CF_EXPORT void
CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void* observer,
                                CFNotificationCallback callBack, CFStringRef name,
                                const void* object,
                                CFNotificationSuspensionBehavior suspensionBehavior) CF_NOEXCEPT;

/**
 * Removes the observer's registrations. One that is removed while a notification is delivered is
 * not called any more, unless it is being called on another thread right now.
 * @param name, object  only the registrations made with this name and object; NULL: whatever it
 * was.
 */
CF_EXPORT void CFNotificationCenterRemoveObserver(CFNotificationCenterRef center,
                                                  const void* observer, CFNotificationName name,
                                                  const void* object) CF_NOEXCEPT;
/** Ends all that was registered for an observer at the center. */
CF_EXPORT void CFNotificationCenterRemoveEveryObserver(CFNotificationCenterRef center,
                                                       const void* observer) CF_NOEXCEPT;

/**
 * @param object    may be NULL; reaches the observers of this object and those of any.
 * @param userInfo  may be NULL; handed to the callbacks as it is.
 * @param deliverImmediately  makes no difference.
 */
CF_EXPORT void CFNotificationCenterPostNotification(CFNotificationCenterRef center,
                                                    CFNotificationName name, const void* object,
                                                    CFDictionaryRef userInfo,
                                                    Boolean deliverImmediately) CF_NOEXCEPT;

#endif
