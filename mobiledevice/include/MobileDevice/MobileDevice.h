/**
 * @file
 * MobileDevice: how this library reaches a phone.
 *
 * Every function of the platform's device framework that the library calls is a variable of
 * function-pointer type here, so that `AMDeviceConnect(device)` reads as a call and
 * `AMDeviceConnect == NULL` means "not there", as with a weakly linked framework. When
 * libKRLVesk.so is loaded it fills them from MobileDevice.so beside it, all of them or none;
 * another provider, or a test, may assign them before the first phone is looked for. Assigning them
 * while a call is under way is undefined.
 *
 * What a provider promises, for all functions:
 *  - Statuses are 0 for success; any other value is handed on to the application unchanged. 0 is
 *    only given when the phone has answered that very request, completely.
 *  - Null or stale handles (closed, or of a phone that is gone) are answered with a status, never
 *    with a crash. Closing a handle twice is such a case.
 *  - A silent phone fails a call once the deadline is over (AMDeviceSetCallTimeout); a phone that
 *    is pulled out fails it at once, and so does AMDeviceCancelCalls.
 *  - Calls may come from any thread, for one phone from one thread at a time.
 *  - On failure, out-parameters are left as they were unless the function says otherwise.
 */
#ifndef MOBILEDEVICE_MOBILEDEVICE_H
#define MOBILEDEVICE_MOBILEDEVICE_H

#include <CoreFoundation/CoreFoundation.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Before each declaration. */
#define MOBILEDEVICE_EXTERN extern __attribute__((visibility("default")))

/** One plugging-in of a phone. Counted: AMDeviceRetain, AMDeviceRelease. */
typedef struct am_device am_device;
/** A subscription to arrivals and removals. */
typedef struct am_device_notification am_device_notification;
/** A connection to a service on the phone. Belongs to its device and ends with it at the latest. */
typedef struct am_service am_service;
/** A file-service connection. */
typedef struct afc_connection afc_connection;
/** A directory being read. */
typedef struct afc_directory afc_directory;
/** Key-value pairs being read. */
typedef struct afc_dictionary afc_dictionary;
/** An open file on the phone, meaningful on its file connection only. */
typedef uint64_t afc_file_ref;

/** What happened to a device. Other numbers exist and are to be ignored. */
enum { kAMDeviceMessageConnected = 1, kAMDeviceMessageDisconnected = 2 };

/** What a subscription is told. */
typedef struct am_device_notification_info {
    am_device* device; /**< lent for the length of the callback: retain it to keep it */
    uint32_t message;  /**< kAMDeviceMessageConnected, kAMDeviceMessageDisconnected */
} am_device_notification_info;

/** Called for each arrival and removal, on the run loop of the thread that subscribed. */
typedef void (*am_device_notification_callback)(am_device_notification_info* info);

/** Statuses of the file service, as the phone sends them. A provider itself answers with
 *  kAFCInvalidArgument for null arguments and stale iterators, kAFCNotConnected for null and stale
 *  connections and lost ones, kAFCTimedOut after silence, and those of the next list. */
enum {
    kAFCSuccess = 0,
    kAFCUnknownError = 1,
    kAFCInvalidArgument = 7,
    kAFCObjectNotFound = 8,
    kAFCObjectIsDirectory = 9,
    kAFCPermissionDenied = 10,
    kAFCNotConnected = 11,
    kAFCTimedOut = 12,
    kAFCObjectExists = 16,
    kAFCNoSpaceLeft = 18,
    kAFCWouldBlock = 19
};

/** X(name, status) for every error that the phone's gate keeper (pairing, sessions, services) has a
 *  name for. */
#define MOBILEDEVICE_LOCKDOWN_ERRORS(X)                                                            \
    X(MissingKey, -11)                                                                             \
    X(MissingValue, -12)                                                                           \
    X(GetProhibited, -13)                                                                          \
    X(SetProhibited, -14)                                                                          \
    X(PasswordProtected, -17)                                                                      \
    X(UserDeniedPairing, -18)                                                                      \
    X(PairingDialogResponsePending, -19)                                                           \
    X(MissingHostID, -20)                                                                          \
    X(InvalidHostID, -21)                                                                          \
    X(SessionActive, -22)                                                                          \
    X(SessionInactive, -23)                                                                        \
    X(MissingSessionID, -24)                                                                       \
    X(InvalidSessionID, -25)                                                                       \
    X(MissingService, -26)                                                                         \
    X(InvalidService, -27)                                                                         \
    X(ServiceLimit, -28)                                                                           \
    X(MissingPairRecord, -29)                                                                      \
    X(InvalidPairRecord, -31)                                                                      \
    X(ServiceProhibited, -34)

/** One of its statuses. */
#define MOBILEDEVICE_LOCKDOWN_STATUS(name, status) kAMD##name = (status),

/** Statuses of the phone's gate keeper: kAMDInvalidHostID and so on. */
enum { MOBILEDEVICE_LOCKDOWN_ERRORS(MOBILEDEVICE_LOCKDOWN_STATUS) };

/** Statuses that a provider makes itself. All others are the phone's: those of its file service and
 *  of its gate keeper stand above. */
enum {
    kAMDInvalidHandle = 64,       /**< null, stale, or not what the function asks for */
    kAMDNotConnected = 65,        /**< no connection, or it was lost, or could not be made */
    kAMDTimedOut = 66,            /**< the phone was silent for too long; the connection is lost */
    kAMDBadReply = 67,            /**< no answer to the request; the connection is lost */
    kAFCBadReply = kAMDBadReply,  /**< likewise, from the file service */
    kAMDNotPaired = 68,           /**< this computer holds no pair record for the phone */
    kAMDNoSession = 69,           /**< there is no session to stop */
    kAMDSessionNotSupported = 70, /**< the phone asks for encryption that is not to be had */
    kAMDRefused = 71,             /**< the phone refused and gave a reason without a number */
    kAMDNoResources = 72,         /**< memory or descriptors ran out on this computer */
    kAMDBadPairRecord = 73,      /**< the pair record lacks keys or certificates that can be read */
    kAMDHandshakeFailed = 74,    /**< phone and computer did not agree on encryption */
    kAMDWrongCertificate = 75,   /**< the phone shows another key than it was paired with */
    kAMDCertificateExpired = 76, /**< a certificate of the pairing is not valid at this time */
    kAMDCertificateRefused = 77, /**< the phone refuses this computer's certificate */
    kAMDNoSsl3 = 78, /**< SSL 3.0 is asked for, and this computer's NSS speaks it no more */
    kAMDPairRecordNotKept = 79,    /**< the mux daemon does not save or delete the pair record */
    kAMDNoMuxDaemon = 80,          /**< there is no mux daemon, or it takes no connection */
    kAMDCancelled = 81,            /**< AMDeviceCancelCalls has ended the connection */
    kAFCCancelled = kAMDCancelled, /**< likewise, from the file service */
    kAMDWrongDevice = 82 /**< the phone says that it is another than the mux daemon says */
};

/** How AFCFileRefOpen opens a file. */
enum {
    kAFCOpenRead = 1,      /**< read; the file must exist */
    kAFCOpenReadWrite = 2, /**< read and write; created when missing */
    kAFCOpenWrite = 3      /**< write; created when missing, emptied when not */
};

/* ------------------------------------------------------------------ devices */

/**
 * Subscribes to arrivals and removals. For each phone that is there already an arrival follows.
 * Callbacks come on the run loop of the subscribing thread, while it runs, and never from within
 * this call. Two words that are 0, a null cookie, and the place for the subscription's handle,
 * which is ended with AMDShutdownNotificationProxy.
 */
MOBILEDEVICE_EXTERN
int32_t (*AMDeviceNotificationSubscribe)(am_device_notification_callback callback, uint32_t unused0,
                                         uint32_t unused1, void* cookie,
                                         am_device_notification** notification);

/**
 * Waits until the arrivals of all phones that are attached by now stand ready for the subscribing
 * thread's run loop, which delivers them when it runs next, one at a time: a phone that is there
 * needs no waiting for. For a subscription's own thread. May be missing in another provider.
 *
 * @param timeoutMs  how long to wait at most; 0 is the deadline of all calls.
 * @return 0 when they are ready, also when there are none; kAMDNoMuxDaemon when nobody can be asked
 *         what is attached; kAMDTimedOut; kAMDCancelled after AMDeviceCancelCalls for all devices;
 *         kAMDNotConnected when the answer is of no use; kAMDInvalidHandle.
 */
MOBILEDEVICE_EXTERN int32_t (*AMDeviceWaitForAttached)(am_device_notification* notification,
                                                       uint32_t timeoutMs);

/**
 * Ends a subscription (am_device_notification) or a notification proxy (am_service). The handle is
 * invalid afterwards, whatever the status.
 *
 * After a subscription has ended no callback comes; one that runs on another thread is waited for.
 * It may be ended from within its callback, and gives its references on devices back. A proxy ends
 * after the phone has confirmed that it read what was posted; if nothing was, nothing is asked.
 */
MOBILEDEVICE_EXTERN int32_t (*AMDShutdownNotificationProxy)(void* handle);

/** Takes one more reference on a device and returns it; null for null and for a stale handle. */
MOBILEDEVICE_EXTERN am_device* (*AMDeviceRetain)(am_device* device);

/** Gives a reference back. The last one closes whatever connection of the device is still open. */
MOBILEDEVICE_EXTERN void (*AMDeviceRelease)(am_device* device);

/** Connects to the phone. Connecting a connected device makes a new connection. */
MOBILEDEVICE_EXTERN int32_t (*AMDeviceConnect)(am_device* device);

/** Closes the connection, and a session with it. Service connections already made stay usable. */
MOBILEDEVICE_EXTERN int32_t (*AMDeviceDisconnect)(am_device* device);

/** Non-zero when this computer holds a pair record for the phone. */
MOBILEDEVICE_EXTERN int32_t (*AMDeviceIsPaired)(am_device* device);

/** Has the phone check the pair record. Early firmware trusts the connection only afterwards. */
MOBILEDEVICE_EXTERN int32_t (*AMDeviceValidatePairing)(am_device* device);

/**
 * Pairs this computer with the phone: makes keys and certificates, has the phone take them and the
 * mux daemon keep them. A pair record that there is already is replaced. Needs a connection; takes
 * up to a second for the keys. When it fails this computer keeps nothing, and the phone nothing
 * that it has refused. May be missing in another provider.
 */
MOBILEDEVICE_EXTERN int32_t (*AMDevicePair)(am_device* device);

/**
 * Has the phone forget this computer and the mux daemon the pair record. A phone that has forgotten
 * it already is no failure. Needs a connection. May be missing in another provider.
 */
MOBILEDEVICE_EXTERN int32_t (*AMDeviceUnpair)(am_device* device);

/**
 * Starts a session on the connection, which AMDeviceStartService needs. Encrypted when the phone
 * asks for it: SSL 3.0 and nothing else is offered to firmware below 2.0, TLS to later; the other of
 * them once, on a new connection in place of this one, if that fails. Before the first session of a
 * plugging-in the phone is asked for its firmware.
 */
MOBILEDEVICE_EXTERN int32_t (*AMDeviceStartSession)(am_device* device);

/** Stops the session. */
MOBILEDEVICE_EXTERN int32_t (*AMDeviceStopSession)(am_device* device);

/** Starts a service by name and stores a handle of a connection to it, which may be made as late
 *  as it is first used. The last argument is null. */
MOBILEDEVICE_EXTERN int32_t (*AMDeviceStartService)(am_device* device, CFStringRef serviceName,
                                                    am_service** service, uint32_t* unused);

/**
 * A value of the phone, or null when there is none or the phone cannot be asked. The caller
 * releases it. "UniqueDeviceID" is always what the mux daemon says of the phone: one that says
 * another loses the connection. A null domain is the default one; with a null key the value is a dictionary of all
 * the domain's values.
 */
MOBILEDEVICE_EXTERN CFTypeRef (*AMDeviceCopyValue)(am_device* device, CFStringRef domain,
                                                   CFStringRef key);

/** Posts a notification on the phone. Posting has no answer: 0 says that it was sent. */
MOBILEDEVICE_EXTERN int32_t (*AMDPostNotification)(am_service* proxy, CFStringRef name,
                                                   CFTypeRef userInfo);

/**
 * Sets for how many milliseconds the phone may be silent before a call fails, in the whole
 * process. 0 restores the default of 10,000. Silence: no byte comes and none can be sent. A slow
 * phone that keeps moving is waited for longer, but not for ever: a request with its answer takes
 * twice as long at most, and a second more for each 16 KiB that it moves. May be missing in another
 * provider.
 */
MOBILEDEVICE_EXTERN void (*AMDeviceSetCallTimeout)(uint32_t timeoutMs);

/**
 * What sessions this computer can have, whatever phone there is: 0 for all, kAMDNoSsl3 when those
 * of early firmware cannot be had, kAMDSessionNotSupported when only sessions in clear can. May be
 * missing in another provider.
 */
MOBILEDEVICE_EXTERN int32_t (*AMDeviceCheckSessionSupport)(void);

/**
 * Ends all calls under way on a device, or on all devices when it is null, from any thread; not to
 * be called by a signal handler.
 *
 * Every connection to the device ends: lockdown, services, files and the questions to the mux
 * daemon. Calls that wait on them return kAMDCancelled (kAFCCancelled) within 50 ms, and so does,
 * at once, each later call on one of these connections until it is closed. A file that was being
 * written stays on the phone as far as it came. Connections made from now on are as good as any:
 * AMDeviceConnect opens the phone anew. While AMDevicePair makes its keys it is not ended; it
 * fails when they are made. May be missing in another provider.
 *
 * @return 0, also when nothing was under way; kAMDInvalidHandle for a stale handle.
 */
MOBILEDEVICE_EXTERN int32_t (*AMDeviceCancelCalls)(am_device* device);

/**
 * How far the file under way has come: how many bytes of the file that was opened last on the
 * device the phone has confirmed as written, or has delivered. From any thread, beside a call that
 * moves them; never waits. 0 for a stale handle, and while nothing has moved. May be missing in
 * another provider.
 */
MOBILEDEVICE_EXTERN uint64_t (*AMDeviceGetTransferredBytes)(am_device* device);

/* ------------------------------------------------------------------ file service */

/** Opens the file service on a service connection. The service's handle is used up, also on
 *  failure. The timeout is 0. */
MOBILEDEVICE_EXTERN int32_t (*AFCConnectionOpen)(am_service* service, uint32_t timeout,
                                                 afc_connection** connection);

/** Closes the connection, and on the phone with it its open files and their locks. */
MOBILEDEVICE_EXTERN int32_t (*AFCConnectionClose)(afc_connection* connection);

/** Creates one directory; whether a missing parent or an existing one fails is the phone's affair.
 */
MOBILEDEVICE_EXTERN int32_t (*AFCDirectoryCreate)(afc_connection* connection, const char* path);

/** Opens a directory for reading; the whole listing is fetched here. */
MOBILEDEVICE_EXTERN int32_t (*AFCDirectoryOpen)(afc_connection* connection, const char* path,
                                                afc_directory** directory);

/** The next name, "." and ".." among them, or null at the end. The string lives until the directory
 *  is closed. */
MOBILEDEVICE_EXTERN int32_t (*AFCDirectoryRead)(afc_connection* connection,
                                                afc_directory* directory, char** name);

/** Ends the reading of a directory. */
MOBILEDEVICE_EXTERN int32_t (*AFCDirectoryClose)(afc_connection* connection,
                                                 afc_directory* directory);

/** Removes a file, a link or an empty directory. */
MOBILEDEVICE_EXTERN int32_t (*AFCRemovePath)(afc_connection* connection, const char* path);

/** Renames; a file that has the new name is replaced. */
MOBILEDEVICE_EXTERN int32_t (*AFCRenamePath)(afc_connection* connection, const char* oldPath,
                                             const char* newPath);

/** Opens a file in one of the modes above. */
MOBILEDEVICE_EXTERN int32_t (*AFCFileRefOpen)(afc_connection* connection, const char* path,
                                              uint64_t mode, afc_file_ref* file);

/** Reads up to *length bytes and stores how many came; fewer only at the end of the file. On
 * failure *length is the number of bytes that are good. */
MOBILEDEVICE_EXTERN int32_t (*AFCFileRefRead)(afc_connection* connection, afc_file_ref file,
                                              void* buffer, uint32_t* length);

/** Writes all bytes; 0 only when the phone has confirmed every one of them. */
MOBILEDEVICE_EXTERN int32_t (*AFCFileRefWrite)(afc_connection* connection, afc_file_ref file,
                                               const void* bytes, uint32_t count);

/** Closes a file, which frees its lock. */
MOBILEDEVICE_EXTERN int32_t (*AFCFileRefClose)(afc_connection* connection, afc_file_ref file);

/** Takes an exclusive lock on an open file without waiting: kAFCWouldBlock while another open file
 *  holds it. Closing the file or its connection frees it. */
MOBILEDEVICE_EXTERN int32_t (*AFCFileRefLock)(afc_connection* connection, afc_file_ref file);

/** Gives the lock back. */
MOBILEDEVICE_EXTERN int32_t (*AFCFileRefUnlock)(afc_connection* connection, afc_file_ref file);

/** Key-value pairs about a path: "st_size", "st_ifmt" and others. */
MOBILEDEVICE_EXTERN int32_t (*AFCFileInfoOpen)(afc_connection* connection, const char* path,
                                               afc_dictionary** info);

/** Key-value pairs about the media partition: "FSFreeBytes", "FSTotalBytes" and others. Iterators
 *  that are not closed go with their file connection. */
MOBILEDEVICE_EXTERN int32_t (*AFCDeviceInfoOpen)(afc_connection* connection, afc_dictionary** info);

/** The next pair; null key and value at the end. The strings live until the iterator is closed. */
MOBILEDEVICE_EXTERN int32_t (*AFCKeyValueRead)(afc_dictionary* info, char** key, char** value);

/** Ends the reading of pairs. */
MOBILEDEVICE_EXTERN int32_t (*AFCKeyValueClose)(afc_dictionary* info);

#ifdef __cplusplus
}
#endif

#endif
