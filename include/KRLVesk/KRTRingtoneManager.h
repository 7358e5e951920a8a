/**
 * @file
 * The ringtones of one phone: what is on it, and how a set of changes gets there.
 *
 * A ringtone is a dictionary with the keys below; a ringtone list is a dictionary from ringtone
 * name to ringtone. The phone keeps its ringtones in files of one folder, which a catalogue lists.
 */
#ifndef KRLVESK_KRTRINGTONEMANAGER_H
#define KRLVESK_KRTRINGTONEMANAGER_H

#include <KRLVesk/KRTPhone.h>

KRL_BEGIN_C

/* ------------------------------------------------------------------ keys and paths */

/** "Name": the display name, a string, and the key of ringtone lists. */
extern KRL_EXPORT const CFStringRef KRTRingtoneName;
/** "GUID": the identity, a string, stable when the file moves. Every ringtone must have one. */
extern KRL_EXPORT const CFStringRef KRTFileKey;
/** "FileName": for applications; not used here. */
extern KRL_EXPORT const CFStringRef KRTFileName;
/** "FileSize": bytes of the file on the phone, a number. */
extern KRL_EXPORT const CFStringRef KRTFileSize;
/** "LocalPath": path of the source file on this computer. Travels into the phone's catalogue. */
extern KRL_EXPORT const CFStringRef KRTLocalPath;
/** "RemotePath": path of the file on the phone; present when the ringtone is there. */
extern KRL_EXPORT const CFStringRef KRTRemotePath;
/** "TrackID": for applications; passed through. */
extern KRL_EXPORT const CFStringRef KRTTrackPersistantID;
/** "Playlist": for applications; passed through. */
extern KRL_EXPORT const CFStringRef KRTPlaylist;

/** "/iTunes_Control/Ringtones": the folder of the files. */
extern KRL_EXPORT const CFStringRef KRTRingtonesPath;
/** "/iTunes_Control/iTunes/Ringtones.plist": the catalogue. */
extern KRL_EXPORT const CFStringRef KRTRingtonePath;
/** "Ringtones": the catalogue's top-level key. */
extern KRL_EXPORT const CFStringRef KRTRingtoneKeyName;

/*
 * Keys without a constant:
 *
 * "FileType": the file's extension without the point, a string. A new ringtone must have it, and
 * "hrlx" is stored as "m4r". Of a loaded ringtone it is the last three characters of the file name.
 *
 * "NeedsSync": for applications.
 *
 * "LocalData": see KRTRingtoneDataFunction.
 *
 * "FileType", "FileSize", "RemotePath" and "NeedsSync" stay on this computer. All else that a
 * ringtone holds travels into the phone's catalogue; a value that a property list cannot hold keeps
 * the whole catalogue from being written.
 */

/**
 * Makes the bytes of a new ringtone, in place of reading its file. A ringtone has one when it
 * holds, under "LocalData", the number that KRTRingtoneManagerRegisterDataFunction gave for it, as
 * a number of 64 bits (kCFNumberSInt64Type). Called on the thread of the submit.
 *
 * A ringtone whose "LocalData" is anything else, also the address of a function that was not
 * registered, has no bytes, as if its function had none.
 *
 * The number travels to the phone and comes back, whatever the phone has made of it, with the next
 * list that is loaded. It means nothing there: remove "LocalData" from a loaded ringtone before
 * handing it over as a new one.
 *
 * @param source  URL of the ringtone's "LocalPath", lent
 * @return the bytes, which the store releases once they are written; NULL when there are none: the
 *         ringtone is then passed over, without an error
 */
typedef CFDataRef (*KRTRingtoneDataFunction)(CFURLRef source);

/**
 * Makes a function one that "LocalData" may designate, for the rest of the process: what a number
 * of a catalogue leads to is chosen by the application, never by the phone. The function must stay
 * loaded. From any thread; registering it again changes nothing.
 *
 *     int64_t number = KRTRingtoneManagerRegisterDataFunction(makeBytes);
 *     CFNumberRef localData = CFNumberCreate(NULL, kCFNumberSInt64Type, &number);
 *
 * @return the number that stands for the function: its address, the same each time; 0, which stands
 *         for none, when function is NULL or memory is exhausted
 */
KRL_EXPORT int64_t KRTRingtoneManagerRegisterDataFunction(KRTRingtoneDataFunction function);

/* ------------------------------------------------------------------ progress */

/**
 * Told of each step of a submit, on the thread of the submit. Which steps there are: see
 * KRTRingtoneManagerSubmitChanges.
 *
 * @param mode     0 preparing and renaming, 4 before the uploads, 5 upload, 3 removal
 * @param status   1 when an item of a counted phase begins, else 0
 * @param max      number of items, 0 when not counted
 * @param value    position
 * @param message  the ringtone's whole name in UTF-8, or NULL; valid during the call
 * @param context  as given to KRTRingtoneManagerSetStatusResponder
 * @return true to go on, false to cancel
 */
typedef bool (*KRTRingtoneStatusFunction)(int32_t mode, int32_t status, uint32_t max,
                                          uint32_t value, const char* message, void* context);

/* ------------------------------------------------------------------ the store record */

/**
 * Makes a store record for a phone, which it does not own and which must outlive it. Most callers
 * want KRTPhoneGetRingtoneManager.
 *
 * @return the record, given back with KRTRingtoneManagerRelease; NULL when memory is exhausted
 */
KRL_EXPORT KRTRingtoneManagerRef KRTRingtoneManagerForPhone(KRTPhoneRef phone);

/** Frees the record. The phone forgets its own store record, also when that is another one. */
KRL_EXPORT void KRTRingtoneManagerRelease(KRTRingtoneManagerRef manager);

/** Sets who is told of progress; a NULL function turns reports, and with them cancelling, off. */
KRL_EXPORT void KRTRingtoneManagerSetStatusResponder(KRTRingtoneManagerRef manager,
                                                     KRTRingtoneStatusFunction function,
                                                     void* context);

/* ------------------------------------------------------------------ lists and names */

/** The first ringtone of a list with this GUID, in the list's order, lent; NULL when there is
 *  none. */
KRL_EXPORT CFDictionaryRef KRTRingtoneManagerFindToneForGUID(CFDictionaryRef list,
                                                             CFStringRef guid);

/** Copies of a dictionary's keys, which must be strings, in its order. The caller releases it. */
KRL_EXPORT CFMutableArrayRef CFGetAllKeys(CFDictionaryRef dictionary);

/** A new base name for a file on the phone: four letters from "A" to "R", drawn with random(). The
 *  caller releases it. */
KRL_EXPORT CFStringRef KRTRingtoneManagerGenerateHash(void);

/* ------------------------------------------------------------------ reading */

/**
 * Reads the phone's ringtones: those of the catalogue whose files are there. "FileType",
 * "RemotePath" and "FileSize" are added to each. A phone without a catalogue, or with one that
 * cannot be parsed, has an empty list.
 *
 * An entry whose file name is no plain one (it is empty, "." or "..", or has a "/") is damage and
 * left out, as one whose file is gone: no path is ever made of it.
 *
 * A catalogue of more than 64 MiB, or of more than 50,000 entries, companions among them, is not
 * read: a list of a part of it would cost the other files at the next submit.
 *
 * @return a ringtone list that the caller releases; NULL on failure. Codes: 0 the phone does not
 *         open, 2 the catalogue cannot be read, is too large, or memory is exhausted, 4 it has no
 *         "Ringtones", or the status of the step below
 */
KRL_EXPORT CFMutableDictionaryRef
KRTRingtoneManagerLoadCurrentRingtoneList(KRTRingtoneManagerRef manager);

/* ------------------------------------------------------------------ the new catalogue */

/**
 * Computes the catalogue that a submit of these lists would write; the phone is only asked which
 * files are there. Seeds random() anew, so that equal lists give equal names.
 *
 * @param added      ringtones to put on the phone; NULL is an empty list
 * @param removed    not used
 * @param unchanged  ringtones that stay; NULL is an empty list
 * @param catalogue  out: file name to entry; the caller releases it
 * @param renames    out: GUID to {"new": base name, "fileType": extension} of the files that must
 *                   move; the caller releases it
 * A ringtone whose "RemotePath" has a component "." or ".." is left out, as one whose file is gone.
 *
 * @return 1; 0 on failure, and then the out-parameters are untouched. Codes: -1 "RemotePath" is no
 *         string, -2 to -5 it cannot be split, 0 no memory, or no layout was found that the
 *         firmware copes with, 2 the catalogue would have more than 50,000 entries
 */
KRL_EXPORT int KRTRingtoneManagerGeneratePList(KRTRingtoneManagerRef manager, CFDictionaryRef added,
                                               CFDictionaryRef removed, CFDictionaryRef unchanged,
                                               CFMutableDictionaryRef* catalogue,
                                               CFMutableDictionaryRef* renames);

/** Adds the entries of one list to a catalogue, and their base names to the end of the names in
 *  use. 1 / 0; codes as above. */
KRL_EXPORT int KRTRingtoneManagerGeneratorParseDictionary(KRTRingtoneManagerRef manager,
                                                          CFDictionaryRef list,
                                                          CFMutableDictionaryRef catalogue,
                                                          CFMutableArrayRef baseNames);

/**
 * Moves entries to new names until KRTRingtoneManagerIsValidFor111 accepts the catalogue. Of
 * baseNames the first occurrence of each old name goes and the new name comes to the end; renames
 * gets a record, as above, for each entry whose "Name" is a key of unchanged.
 *
 * @return 1; 0 after 10,000 attempts or without memory, code 0
 */
KRL_EXPORT int KRTRingtoneManagerFixResultDictionary(CFMutableDictionaryRef catalogue,
                                                     CFMutableArrayRef baseNames,
                                                     CFMutableDictionaryRef renames,
                                                     CFDictionaryRef unchanged);

/**
 * Whether firmware 1.1.1 copes with a catalogue (file name to entry). What the firmware makes of it
 * depends on the order in which the entries come: it is the dictionary's own, the one in which they
 * were put in, in which the file is written and the phone reads it.
 *
 * @return NULL when it does; otherwise the file names in the way, perhaps more than once and
 *         perhaps names that the catalogue does not have, which the caller releases
 */
KRL_EXPORT CFMutableArrayRef KRTRingtoneManagerIsValidFor111(CFDictionaryRef catalogue);

/* ------------------------------------------------------------------ writing */

/**
 * Carries changes to the phone: renames what must move, uploads, removes, writes the catalogue and
 * deletes every file of the folder that is none of the new list's, also what others put there (not
 * after a failure, nor when cancelled). The caller has opened the phone and holds the sync
 * lock. The catalogue is written last: after a failure the old one stays.
 *
 * Reports, in this order (mode, status, max, value, message):
 *   0, 0, 0, 0            once before the renames and after each catalogue entry
 *   4, 0, 0, 0            before the uploads
 *   5, 1, added, n, name  before each upload; n begun before it. false cancels
 *   5, 0, added, n        after each upload; n including it. false cancels
 *   3, 0, 0, 0            before and after the removals
 *   3, 1, removed, i      each removal
 *
 * Cancelling returns 1 at once: what was moved and uploaded stays, under the old catalogue, and the
 * phone stays open.
 *
 * @param added      ringtones to put on the phone; one with "LocalPath" is uploaded
 * @param removed    ringtones to take off it
 * @param unchanged  ringtones that stay, as loaded
 * Nothing is written outside of the ringtone folder, and a removed ringtone whose "RemotePath" has a
 * component "." or ".." is passed over.
 *
 * @return 1, also when cancelled; 0 on failure, and then one open is taken back. Codes: 0 no memory,
 *         1 a list is missing, 2 a companion's file cannot be written, 5 an upload cannot be written, or the
 *         first reason recorded below
 */
KRL_EXPORT int KRTRingtoneManagerSubmitChanges(KRTRingtoneManagerRef manager, CFDictionaryRef added,
                                               CFDictionaryRef removed, CFDictionaryRef unchanged);

/** Deletes from the phone's ringtone folder every file that the list of names does not hold, letter
 *  for letter, whoever put it there. What cannot be deleted stays, with the reason in the error
 *  record. What the phone lists under a name that no file can have ("..", one with a "/") is left
 *  alone. */
KRL_EXPORT void KRTRingtoneManagerCleanupPhoneDirectories(KRTRingtoneManagerRef manager,
                                                          CFArrayRef keptNames);

KRL_END_C

/* ------------------------------------------------------------------ the object */

#ifdef __cplusplus

#include <CoreFoundation/CFRef.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

namespace krl::phone {
class SyncUse;
}

namespace krl::ringtones {
class ChangeObservers;
class ConditionLock;
} // namespace krl::ringtones

/**
 * Told of a sync by a KRTRingtoneManager, on the thread that the sync runs on: pass what you get on
 * to your own thread. A message must not edit the working list or use the phone, and must not
 * throw, which ends the process.
 */
class KRL_EXPORT KRTRingtoneManagerDelegate {
public:
    virtual ~KRTRingtoneManagerDelegate();

    // syncStatus:mode:max:value:message:
    /**
     * One step. Note the order: status before mode, unlike in KRTRingtoneStatusFunction.
     *
     * The sync's own steps never wait for an answer: status 1 with mode 0 while the phone is open,
     * status 1 with mode 1 while the sync lock is held, status 0 with mode 0 at the end; max and
     * value are 0. Between them come the steps of KRTRingtoneManagerSubmitChanges (modes 0, 3, 4,
     * 5, the mode 0 with status 0). In asynchronous mode each of these waits until continueSync or
     * cancelSync is called, from any thread or from within this message. An answer to a step that
     * does not wait is harmless.
     *
     * @param message  the ringtone's name, or null; lent
     */
    virtual void syncStatus(int32_t status, int32_t mode, uint32_t max, uint32_t value,
                            CFStringRef message) = 0;

    // reportError:canCancel:
    /**
     * The sync failed. Comes once at most; the completion notification follows.
     * @param error      domain, code and in its user information "file" and "line"; lent
     * @param canCancel  always false
     */
    virtual void reportError(CFErrorRef error, bool canCancel) = 0;
};

/**
 * The ringtones of one phone as an application edits them, and the sync that carries the changes to
 * the phone. KRTPhone::ringtoneManager makes it.
 *
 *     auto tones = phone->ringtoneManager();
 *     tones->addRingtone(tone);
 *     tones->syncCurrentListToPhone(delegate);
 *
 * A new ringtone has "Name", "GUID", "FileType" and "LocalPath"; its "FileSize" is for
 * sizeOfChanges.
 *
 * The working list is three lists from name to ringtone: what stays on the phone, what is to be
 * added, what is to be removed. Ringtones are mutable dictionaries with the keys above, shared and
 * not copied between the lists and the application. A ringtone's "Name" must not change while it is
 * in a list. None of the editing methods reports a failure: when the phone's list cannot be read,
 * the working list starts empty and the reason is in the error record.
 *
 * Threads: one at a time, and while an asynchronous sync runs none but those that say so, until the
 * notification "com.korvane.KRLRingtoneSyncComplete" of this object has come. It comes on the local
 * notification centre, on the sync's thread, in every case. Keep the process alive until then. A
 * phone that is unplugged during the sync makes it fail and is safe; so is letting go of this
 * object, of the phone's and of the delegate.
 */
class KRL_EXPORT KRTRingtoneManager final
    : public std::enable_shared_from_this<KRTRingtoneManager> {
public:
    /**
     * Takes over a store record and reads the phone's ringtones. The record's phone must be valid
     * now and may be released at any time later. Makes KRTPhoneSupportedFormats if there is none.
     *
     * @return null when managerRef is null
     */
    static std::shared_ptr<KRTRingtoneManager>
    _initWithRingtoneManagerRef(KRTRingtoneManagerRef managerRef);

    KRTRingtoneManager(const KRTRingtoneManager&) = delete;
    KRTRingtoneManager& operator=(const KRTRingtoneManager&) = delete;

    /** Releases the store record. The phone forgets its own one then, see
     * KRTRingtoneManagerRelease. */
    ~KRTRingtoneManager();

    // ---------------------------------------------------------------- the phone's list

    /** Reads the phone's list anew, without touching the working list. Blocks. */
    void _loadRingtoneList();

    /**
     * Reads the phone's list anew and starts again from it: all pending changes are dropped.
     * Blocks. "ringtonesUpdated" becomes false when changes were pending, true when none were and
     * the phone needs conversion, and otherwise stays, without a notice.
     */
    void rebuildRingtoneListFromOriginal();

    /** Whether a rebuild has found, on firmware 1.1.3 or later (or unknown), a ringtone that is not
     * an m4r. Never false again once it is true. */
    bool needsConversionFor113() const;

    /**
     * Merges a catalogue in the phone's own layout into what stays on the phone. Ringtones of the
     * catalogue that are being removed or added are left as they are; others are kept from now on,
     * and what the catalogue does not name is kept no longer. An entry whose file name is no plain
     * one brings no ringtone in.
     *
     * @param catalogue  with the key "Ringtones"; a catalogue without is one of no ringtones
     */
    void updateRingtoneListFromList(CFDictionaryRef catalogue);

    /** Always null: this object does not check the layout for firmware 1.1.1. */
    krl::cf::CFRef<CFArrayRef> isValidDictionaryFor111(CFDictionaryRef dictionary) const;

    // ---------------------------------------------------------------- looking

    /** What will be on the phone: the ringtones that stay, then those to be added. */
    krl::cf::CFRef<CFArrayRef> currentRingtonesManaged() const;

    /** Their names, sorted without regard to case. */
    krl::cf::CFRef<CFArrayRef> currentRingtonesManagedByNameOnly() const;

    /** The ringtone of this name among them, or null; letter for letter. */
    krl::cf::CFRef<CFMutableDictionaryRef> ringtoneForName(CFStringRef name) const;

    /** The first ringtone among them that is listed under this key and any extension, or null:
     * "Ring" finds one listed under "Ring.m4r". Looks at all of them in turn. */
    krl::cf::CFRef<CFMutableDictionaryRef> ringtoneForFileKey(CFStringRef key) const;

    // ---------------------------------------------------------------- editing

    /**
     * Makes the changes that lead from what is on the phone to a whole list; pending changes are
     * dropped first, the phone's list is read anew. Ringtones are told apart by name alone. One on
     * the phone that the list does not name is removed, unless its file is an m4r and it has no
     * "LocalPath". Blocks.
     *
     * @param wanted  name to ringtone (mutable dictionaries), none of this object's own lists; null
     *                is the same as an empty list
     */
    void compareList(CFDictionaryRef wanted);

    /**
     * Adds a ringtone. One of the same name on the phone is removed by the same sync, one that was
     * to be added is forgotten.
     * @param ringtone  retained; without a "Name" it is ignored. It needs a "GUID" of its own
     */
    void addRingtone(CFMutableDictionaryRef ringtone);

    /**
     * Removes the ringtone of this one's name. What is kept for the sync is the record passed in:
     * use one that came from this object, as only that has the "RemotePath". Does nothing when the
     * name is being removed already, so that a replaced ringtone cannot be taken back here.
     */
    void removeRingtone(CFMutableDictionaryRef ringtone);

    /** Removes all ringtones from the phone and forgets those to be added. */
    void removeAllRingtones();

    // ---------------------------------------------------------------- "ringtonesUpdated"

    /** Says whether there is something to sync. Observers are told even when nothing changes. */
    void setRingtonesUpdated(bool ringtonesUpdated);

    /** Whether there is something to sync. From any thread, at any time. */
    bool ringtonesUpdated() const;

    /**
     * Has functions called before and after each change of "ringtonesUpdated", on the thread of the
     * change, which at the end of a sync is the sync's. They must not throw. From any thread.
     *
     * @param willChange, didChange  either may be empty
     * @return a number for removeRingtonesUpdatedObserver, never 0
     */
    uint64_t addRingtonesUpdatedObserver(std::function<void()> willChange,
                                         std::function<void()> didChange);

    /** Ends that; unknown numbers are ignored. A function that runs on another thread right now is
     * not waited for. From any thread. */
    void removeRingtonesUpdatedObserver(uint64_t observer);

    // ---------------------------------------------------------------- sync

    /** Whether syncs run on a thread of their own; false at first. From any thread; a sync that
     * runs looks at it at each report, to see whether to wait for an answer. */
    void setAsyncMode(bool asyncMode);
    /** What setAsyncMode has set. From any thread. */
    bool asyncMode() const;

    /**
     * Carries the changes to the phone. Without changes only the completion notification is posted.
     * In asynchronous mode it returns at once and the rest runs on a thread of its own, which keeps
     * this object and the delegate until it ends; otherwise it returns when all is done. One sync
     * at a time. It takes as long as the files do to travel, and up to 7 seconds for the lock. A
     * phone that cannot be opened is told by one reportError with code 328, a thread that cannot be
     * started by one with the system's code; the changes stay pending then, as after any failure.
     * After a success, and after a cancelled sync too, the list is read anew from the phone and no
     * change is pending.
     *
     * What reportError tells otherwise is the first failure in the error record. A failure that the
     * store goes on after is often the first, such as that the phone has the ringtone folder
     * already (16): call KRTErrorClear before the sync, and from within syncStatus, to be told the
     * one that ended it.
     *
     * @param delegate  may be null: then nobody can answer from within a message
     */
    void syncCurrentListToPhone(std::shared_ptr<KRTRingtoneManagerDelegate> delegate);

    /** The whole sync, on this thread. */
    void _beginSync(const std::shared_ptr<KRTRingtoneManagerDelegate>& delegate) noexcept;

    /** A new dictionary of the working lists themselves, under "added", "removed" and "unchanged",
     * to show or measure them. The last is missing when the phone's list could not be read. Editing
     *  goes on in the lists that it holds. */
    krl::cf::CFRef<CFDictionaryRef> generateChangeLists() const;

    /**
     * Submits changes to the phone, which must be open, and reads the list anew. Part of a sync:
     * reports go to its delegate, and in asynchronous mode wait for its answers.
     * @return null on success, then no change is pending; otherwise the error, in the domain that
     *         KRTErrorDomain says, with the error record cleared and the working list as it was
     */
    [[nodiscard]] krl::cf::CFRef<CFErrorRef> submitChanges(CFDictionaryRef changes);

    /** Bytes that the changes add to the phone, negative when they free some: "FileSize" of the
     * added ringtones of changes, less that of the removed ones of this object (not of changes).
     * Ringtones without it count 0. */
    int64_t sizeOfChanges(CFDictionaryRef changes) const;

    /** Passes a report of the store on to the delegate and waits for the answer.
     *  @return true to go on */
    bool _internal_status_function(int32_t mode, int32_t status, uint32_t max, uint32_t value,
                                   const char* message);

    /** In asynchronous mode, begins to wait for an answer. */
    void _startContinueNoticeLock();

    /** Waits for the answer, if one is waited for. */
    void _waitForContinueNotice();

    /** Answers the report that waits, if one does: go on. An answer without a report is not kept
     * for the next one, but ends the state of being cancelled. From any thread. */
    void continueSync();

    /** Answers the report that waits, if one does: cancel. In synchronous mode it cancels when
     * called from within a message. Stays until continueSync: until then every later sync is
     * cancelled at its first upload. From any thread. */
    void cancelSync();

private:
    KRL_PRIVATE explicit KRTRingtoneManager(KRTRingtoneManagerRef managerRef);
    KRL_PRIVATE void sync(const std::shared_ptr<KRTRingtoneManagerDelegate>& delegate,
                          std::unique_ptr<krl::phone::SyncUse> use) noexcept;

    krl::cf::CFRef<CFMutableDictionaryRef> _removedList;
    krl::cf::CFRef<CFMutableDictionaryRef> _addedList;
    krl::cf::CFRef<CFMutableDictionaryRef> _unchangedList;
    [[maybe_unused]] bool _remoteListBuilt = false;
    krl::cf::CFRef<CFMutableDictionaryRef> _remotePlist;
    std::atomic<bool> _async = false;
    std::atomic<bool> _ringtonesChanged = false;
    bool _collapsingUpdates = false;
    KRTRingtoneManagerDelegate* _delegate = nullptr;
    std::shared_ptr<krl::ringtones::ConditionLock> _continueLock;
    std::atomic<bool> _shouldCancel = false;
    bool _needsConversionFor113 = false;
    KRTRingtoneManagerRef _manager;

    mutable std::mutex continueMutex_; // guards _continueLock
    std::unique_ptr<krl::ringtones::ChangeObservers> observers_;
};

#endif

#endif
