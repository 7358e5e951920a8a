/**
 * @file
 * Phones as they come and go.
 *
 * There is one manager in a process. Arrivals and removals are handled, and delegates called, on
 * the run loop of the thread that added the first delegate, while that run loop runs; use the
 * manager from that thread only.
 *
 * A device that arrives is opened and asked before the delegates are told. That blocks the run loop
 * until the device has answered or the deadline of the device layer is over, 10 seconds unless
 * AMDeviceSetCallTimeout says otherwise. A program whose main loop must not stand still for a
 * silent device adds its delegates on a thread of its own, and ends what that thread waits for with
 * AMDeviceCancelCalls; the example phone_thread.c shows both.
 *
 * In a callback the phone is closed and may be opened. Delegates may be added and removed from
 * within a callback. The manager owns the phones: one that was removed is gone when the removed
 * callbacks have returned. A callback that works with its phone blocks the run loop as long as the
 * phone takes, and with it the news of other phones.
 *
 * A callback may run the run loop; what comes meanwhile is told before it returns. Of one phone
 * everybody hears in order all the same: a removal that comes while the delegates are being told of
 * the arrival is told when the last of them has heard of the arrival, to all of them, those whose
 * callback still runs included. Who hears of such an arrival gets a phone that does not open any
 * more. For the callbacks that still run, the record stays as one without a device.
 */
#ifndef KRLVESK_KRTPHONEMANAGER_H
#define KRLVESK_KRTPHONEMANAGER_H

#include <KRLVesk/KRTPhone.h>

KRL_BEGIN_C

/** Told of a phone; phone is NULL when a device arrived that is not an iPhone. */
typedef void (*KRTPhoneManagerCallback)(void* context, KRTPhoneRef phone);

/** Makes the manager unless there is one. Always returns 1. */
KRL_EXPORT int KRTPhoneManagerInit(void);

/** Ends the manager, its delegates and phones, telling nobody. Remove the delegates before: that is
 *  what ends the subscription. Events of one that was left are ignored. Does nothing without a
 *  manager. */
KRL_EXPORT void KRTPhoneManagerShutdown(void);

/** Number of connected phones; -1 without a manager. The one function below that may be called
 *  without a manager. */
KRL_EXPORT int32_t KRTGetConnectedPhoneCount(void);

/**
 * Registers a delegate. The first one subscribes to phones, so that an arrival follows for each
 * phone that is there already. Note the order of the arguments.
 *
 * @param context    handed back as the first argument of both callbacks
 * @param connected  called for every arrival
 * @param removed    called for every removal, while the phone is still valid
 * @return the handle for KRTPhoneManagerRemoveDelegate; NULL when memory is exhausted, and without
 *         a device layer (code 0)
 */
KRL_EXPORT KRTPhoneManagerDelegateRef KRTPhoneManagerAddDelegate(void* context,
                                                                 KRTPhoneManagerCallback connected,
                                                                 KRTPhoneManagerCallback removed);

/** Removes a registered delegate, which is invalid afterwards. The last one ends the subscription.
 * A delegate that is not registered is ignored. */
KRL_EXPORT void KRTPhoneManagerRemoveDelegate(KRTPhoneManagerDelegateRef delegate);

/** Subscribes to phones without a delegate. A subscription that is there already goes on, and can
 * no longer be ended. Returns the device layer's status, 0 for success; kAMDNotConnected without a
 * device layer (code 0). */
KRL_EXPORT int32_t KRTPhoneManagerBeginSearch(void);

/** Ends the subscription. */
KRL_EXPORT void KRTPhoneManagerEndSearch(void);

/** The connected phones in order of arrival, as KRTPhoneRef values: a snapshot, given back with
 *  KRTPhoneManagerReleasePhoneList. The array does not keep the phones alive. */
KRL_EXPORT CFArrayRef KRTPhoneManagerGetPhones(void);

/** Gives a list of phones back. */
KRL_EXPORT void KRTPhoneManagerReleasePhoneList(CFArrayRef phones);

/** Always NULL. */
KRL_EXPORT KRTPhoneRef KRTPhoneManagerPhoneForInfo(CFDictionaryRef information);

/** The connected phone of a device, the latest to arrive where there are several; NULL for none. */
KRL_EXPORT KRTPhoneRef KRTPhoneManagerPhoneForDevice(am_device* device);

/**
 * Handles an arrival: opens the phone, reads its information, closes it, keeps it if it is an
 * iPhone and tells the delegates. Called by the subscription; the run loop stands still until the
 * phone has answered.
 *
 * What is not kept is told on standard error, without a newline at the end. A phone that does not
 * open: "Error: KRTPhoneManagerPhoneConnectedNotification, Unable to open phone"; the reason is in
 * the error record, and no delegate is told. Another device: the same text and ", not an iPhone";
 * nothing is recorded, and the delegates are told with NULL.
 */
KRL_EXPORT void KRTPhoneManagerPhoneConnectedNotification(am_device* device);

/** Handles a removal: tells the delegates, then frees the phone. Called by the subscription. */
KRL_EXPORT void KRTPhoneManagerPhoneDisconnectedNotification(am_device* device);

KRL_END_C

/* ------------------------------------------------------------------ the object */

#ifdef __cplusplus

#include <functional>
#include <memory>
#include <vector>

namespace krl::discovery {
class NewsOnTheirWay;
}

/**
 * Told of phones by a KRTPhoneManager, on the thread whose run loop brings them, before the phone
 * is used for anything else. A message may add and remove delegates, shut the manager down, open
 * and use the phone, start an asynchronous sync, and run the run loop, see above. It must not
 * throw, which ends the process.
 */
class KRL_EXPORT KRTPhoneManagerDelegate {
public:
    virtual ~KRTPhoneManagerDelegate();

    // phoneConnected:
    /** A phone arrived: closed, with its information read. Null: a device arrived that is not an
     *  iPhone. A phone that could not be opened is not announced at all. */
    virtual void phoneConnected(const std::shared_ptr<KRTPhone>& phone) = 0;

    // phoneRemoved:
    /** A phone was unplugged: the object that phoneConnected gave. Whatever is asked of the phone
     *  fails from now on; after this message its object has no device any more. */
    virtual void phoneRemoved(const std::shared_ptr<KRTPhone>& phone) = 0;
};

/**
 * Phones as they come and go, as objects.
 *
 *     auto manager = KRTPhoneManager::sharedManager();
 *     manager->addDelegate(delegate);
 *     CFRunLoopRun();
 *
 * Phones are looked for as long as there is a delegate. One thread: the one that added the first
 * delegate, on whose run loop arrivals and removals come; nothing is locked. Stands on the
 * functions above and on their one manager for the process: use either those or this object.
 */
class KRL_EXPORT KRTPhoneManager final : public std::enable_shared_from_this<KRTPhoneManager> {
public:
    /** The manager of the process, made at the first call and kept until shutdown. */
    static std::shared_ptr<KRTPhoneManager> sharedManager();

    /** Another manager object over the same one of the process, for its one user. Most callers want
     *  sharedManager. */
    static std::shared_ptr<KRTPhoneManager> init();

    KRTPhoneManager(const KRTPhoneManager&) = delete;
    KRTPhoneManager& operator=(const KRTPhoneManager&) = delete;

    /** KRTPhoneManagerShutdown, unless shutdown did it: the phones of the process go, also those of
     *  another manager object. Remove the delegates before: that is what ends the subscription. */
    ~KRTPhoneManager();

    /**
     * Registers a delegate and retains it. The first one starts the search, so that an arrival
     * follows for each phone that is there already; phones that were announced before are in
     * phones(). A delegate that is registered twice is told twice. Null is ignored. After shutdown
     * of this object none is registered any more. Without a device layer nothing is found (code 0):
     * remove the delegates and add them again once there is one.
     */
    void addDelegate(std::shared_ptr<KRTPhoneManagerDelegate> delegate);

    /** Removes a delegate, as often as it was registered; it is told nothing from now on. Without
     *  delegates the search ends. One that is not registered is ignored. */
    void removeDelegate(const std::shared_ptr<KRTPhoneManagerDelegate>& delegate);

    /** All phones that were announced, in order of arrival. Phones that were unplugged stay in the
     *  list; nothing marks them but that they have no device. */
    std::vector<std::shared_ptr<KRTPhone>> phones() const;

    /**
     * The first phone that is plugged in and has the name (KRTPhoneNameKey) that the information
     * says; a phone without a name goes with any information. Null when there is none.
     * @param information  may be null
     */
    std::shared_ptr<KRTPhone> phoneForInfo(CFDictionaryRef information) const;

    /**
     * Ends the shared manager: forgets the delegates, ends the search, releases all phones and lets
     * go of the object; the next sharedManager makes a new one. Phones that are still held are as
     * if unplugged. Final: whoever still holds this object finds no more phones with it, registers
     * no delegate, and cannot end its successor; a second call does nothing.
     */
    void shutdown();

    // What the above is made of.

    /** Starts the search, unless there is no delegate. */
    void _beginPhoneSearch();

    /** Ends the search, if there is one. */
    void _endPhoneSearch();

    /** Handles an arrival: keeps the phone and tells the delegates. Null: no phone, but told. */
    void _phoneConnected(KRTPhoneRef phoneRef);

    /** Handles a removal: tells the delegates. */
    void _phoneRemoved(KRTPhoneRef phoneRef);

    /** The first announced phone with this device, or null. */
    std::shared_ptr<KRTPhone> _phoneForDevice(am_device* device) const;

    /** The first announced phone with this record, or null. */
    std::shared_ptr<KRTPhone> _phoneForPhoneRef(KRTPhoneRef phoneRef) const;

private:
    using Message = std::function<void(KRTPhoneManagerDelegate&)>;

    KRL_PRIVATE KRTPhoneManager();
    /** Sends a message to all delegates in order. A message may change the list: one that is no
     *  longer in it is not told, and one that was added is not told yet. */
    KRL_PRIVATE void tellAll(KRTPhoneRef phoneRef, const Message& message);

    std::vector<std::shared_ptr<KRTPhoneManagerDelegate>> _delegateList;
    std::vector<std::shared_ptr<KRTPhone>> _connectedPhones;
    KRTPhoneManagerDelegateRef _internalRef = nullptr;
    bool isSearching_ = false;
    bool isShutDown_ = false;
    std::unique_ptr<krl::discovery::NewsOnTheirWay> news_;
};

#endif

#endif
