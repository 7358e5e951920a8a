/**
 * @file
 * What all headers of KRLVesk share.
 *
 * Conventions of the procedural interface:
 *  1. Functions that can fail return 1 for success and 0 (or NULL) for failure. Test for exactly 1.
 *     The reason of a failure is in the error record, see KRTError.h.
 *  2. "Create", "Copy", "Generate", "List" and "Load" functions that return a CoreFoundation object
 *     hand it over: the caller releases it with CFRelease. All others lend it.
 *  3. Records (KRTPhoneRef and the like) are opaque and have a Release function of their own.
 *  4. Strings are zero-terminated UTF-8; sizes are in bytes.
 *  5. Nothing here is locked: use a phone, the records that hang on it and the phone manager from
 *     one thread at a time. Arguments are not NULL unless a function says that they may be, results
 *     through pointers included.
 *  6. The first call is KRTVeskInit or KRTVeskInitLight (KRTVesk.h); phones can be reached while
 *     KRTVeskOpen is 1. Where the device layer is missing, or lacks a function that it must have,
 *     no phone opens (code 0) and no delegate of phones can be added; nothing else happens.
 *  7. What blocks: everything that reaches the phone, until it has answered. Each of its answers
 *     may take as long as the device layer waits for a silent phone (10 seconds unless
 *     AMDeviceSetCallTimeout says otherwise), and one function asks for several: opening for four
 *     or five, a file operation for those and a few of its own, a list for an operation a ringtone.
 *     A phone that is pulled out fails at once. Calls that wait for something else say so.
 *  8. Where callbacks come: those of the phone manager on the run loop of the thread that
 *     subscribed, all others on the thread that works, before the call that they report on returns.
 *
 * Conventions of the object interface, C++20 classes below the functions of the same subject:
 *  1. A method is named by the first keyword of its selector, its other parameters by the other
 *     keywords: size:ofFileAtPath: is size(size, ofFileAtPath). Initialisers are static and return
 *     the object.
 *  2. Objects are held by std::shared_ptr, CoreFoundation objects that are handed over by
 *     krl::cf::CFRef. Bare pointers are lent: arguments for the call, unless a method says that it
 *     retains them.
 *  3. An error object is a CFErrorRef, null on success. Methods throw nothing but what they say,
 *     and std::bad_alloc.
 *  4. Delegates are classes with pure virtual functions, which must not throw.
 */
#ifndef KRLVESK_KRLBASE_H
#define KRLVESK_KRLBASE_H

#if defined(__cplusplus) && __cplusplus < 202002L
#error "KRLVesk needs C++20 (-std=c++20), or C"
#endif

#include <CoreFoundation/CoreFoundation.h>
#include <stdbool.h>
#include <stdint.h>

/** Before what the library exports. */
#define KRL_EXPORT __attribute__((visibility("default")))
/** Before what an exported class keeps to itself. */
#define KRL_PRIVATE __attribute__((visibility("hidden")))

#ifdef __cplusplus
/** Before declarations of C functions. */
#define KRL_BEGIN_C extern "C" {
/** Behind them. */
#define KRL_END_C }
#else
#define KRL_BEGIN_C
#define KRL_END_C
#endif

KRL_BEGIN_C
/** One attached phone. */
typedef struct __KRTPhone* KRTPhoneRef;
/** The ringtone store of one phone. */
typedef struct __KRTRingtoneManager* KRTRingtoneManagerRef;
/** A registered delegate of the phone manager. */
typedef struct __krt_manager_delegate* KRTPhoneManagerDelegateRef;
KRL_END_C

#endif
