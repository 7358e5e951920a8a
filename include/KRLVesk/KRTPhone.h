/**
 * @file
 * One attached phone: its record, its connection, its files, its sync lock and what is known of it.
 *
 * Opening and the file service are counted. Every file operation opens the phone and starts the
 * file service itself and gives both back, and giving the file service back takes one open back as
 * well: a phone that was opened once is closed and disconnected after one file operation, and the
 * next one reconnects. Callers that do several operations need not open the phone themselves.
 */
#ifndef KRLVESK_KRTPHONE_H
#define KRLVESK_KRTPHONE_H

#include <KRLVesk/KRLBase.h>
#include <MobileDevice/MobileDevice.h>

KRL_BEGIN_C

/* ------------------------------------------------------------------ information */

/** "PhoneName": the phone's name, a string. */
extern KRL_EXPORT const CFStringRef KRTPhoneNameKey;
/** "PhoneClass": "iPhone" or another device class, a string. */
extern KRL_EXPORT const CFStringRef KRTPhoneClassKey;
/** "PhoneFreeSpace": free bytes of the media partition, a signed 64-bit number. */
extern KRL_EXPORT const CFStringRef KRTPhoneFreeSpaceKey;
/** "PhoneNumber": never filled. */
extern KRL_EXPORT const CFStringRef KRTPhoneNumberKey;
/** "PhoneSize": never filled. */
extern KRL_EXPORT const CFStringRef KRTPhoneSizeKey;

/** File extensions that a ringtone may have; NULL until the first ringtone manager object is
 *  made. */
extern KRL_EXPORT CFArrayRef KRTPhoneSupportedFormats;

/* ------------------------------------------------------------------ the record */

/**
 * Makes the record of a phone, closed.
 *
 * @param device  retained for the record's lifetime; may be NULL, then it cannot be opened
 * @return the record, given back with KRTPhoneRelease; NULL when memory is exhausted
 */
KRL_EXPORT KRTPhoneRef KRTPhoneWithDevice(am_device* device);

/**
 * Frees the record with its store record and its information, and releases the device. It closes no
 * connection and does not disconnect: close the phone before. NULL is ignored.
 *
 * A phone of the phone manager is the manager's, and left alone. As long as an object of the object
 * interface refers to the record, it stays as one without a device; while a sync of such an object
 * runs, all of this waits for its end.
 */
KRL_EXPORT void KRTPhoneRelease(KRTPhoneRef phone);

/** The device handle, lent. */
KRL_EXPORT am_device* KRTPhoneRawDevice(KRTPhoneRef phone);

/**
 * What KRTPhoneUpdateInformation read: the keys above that the phone answered for, "PhoneVersions"
 * (all values of the phone, "ProductVersion" and "UniqueDeviceID" among them) and "iTunesVersions".
 *
 * @return a copy that the caller releases; NULL before the first KRTPhoneUpdateInformation
 */
KRL_EXPORT CFDictionaryRef KRTPhoneGetPhoneInformation(KRTPhoneRef phone);

/**
 * Reads the phone's information anew. Has no result: what could not be read is missing from the
 * dictionary, which is never NULL afterwards. A phone that fails half-way may stay open.
 */
KRL_EXPORT void KRTPhoneUpdateInformation(KRTPhoneRef phone);

/**
 * The firmware as one number: major * 1000 + minor * 10 + patch (1.1.1 is 1011). 1014 when unknown.
 * From the information read last; the phone is not asked.
 */
KRL_EXPORT int KRTPhoneFirmwareVersion(KRTPhoneRef phone);

/** 1 when the firmware is 1.0.2 to 1.1.1, else 0. Posts nothing, whatever its name says. */
KRL_EXPORT int KRTPhonePostUpdate(KRTPhoneRef phone);

/** The phone's store record, made at the first call and owned by the phone record. */
KRL_EXPORT KRTRingtoneManagerRef KRTPhoneGetRingtoneManager(KRTPhoneRef phone);

/* ------------------------------------------------------------------ connection */

/**
 * Opens the phone: connects, checks the pairing, starts the file service. On an open phone it only
 * counts.
 *
 * @return 1; 0 when it failed, and then the phone is closed whatever the count was. Codes: 0 no
 *         device or not paired, otherwise the device layer's status
 */
KRL_EXPORT int KRTPhoneOpen(KRTPhoneRef phone);

/** Takes one open back; the last one disconnects. Does nothing on a closed phone. */
KRL_EXPORT void KRTPhoneClose(KRTPhoneRef phone);

/**
 * Starts the file service. Where starts are counted already it only counts, without a look at
 * whether the phone is open: after a file operation on a phone that was opened once it is not, and
 * a start is still counted.
 *
 * @return 1; 0 when it failed, and then one open is taken back. Codes: -500 no start is counted and
 *         the phone is not open, -1000 no device, otherwise the device layer's status
 */
KRL_EXPORT int KRTPhoneStartFileService(KRTPhoneRef phone);

/** Takes one file-service start back and, with it, one open. Does nothing on a closed phone. */
KRL_EXPORT void KRTPhoneEndFileService(KRTPhoneRef phone);

/* ------------------------------------------------------------------ sync lock */

/**
 * Takes the phone's sync lock, the one that the desktop media library takes too. The phone is to be
 * open. Waits about 7 seconds at most for the lock, a second at a time without the run loop; a lock
 * that stays held elsewhere is no failure: the sync is then open without it. Unless a sync was open
 * already, success takes one open back.
 *
 * @return 1 when a sync is open, also when it was before the call; 0 on failure, and then nothing
 *         done before the failing step is undone. Codes: 0 no file service, else the device
 *         layer's status
 */
KRL_EXPORT int KRTPhoneBeginSync(KRTPhoneRef phone);

/**
 * Gives the sync lock back and tells the phone. Whether the phone took note is not looked at.
 *
 * @return 1; 0 when no sync is open (code 0) or the file service could not be started (code 1)
 */
KRL_EXPORT int KRTPhoneEndSync(KRTPhoneRef phone);

/* ------------------------------------------------------------------ files
 *
 * Paths are absolute on the phone's media partition; a NULL path is a failure (code 7 unless a
 * function says otherwise). Each call opens the phone and starts the file service itself. Codes are
 * the file service's statuses, or those of opening the phone. What a failure undoes differs from
 * call to call; a failed call may leave the phone open once more. */

/** Creates a directory. 1 / 0. */
KRL_EXPORT int KRTPhoneCreateDirectoryAtPath(KRTPhoneRef phone, const char* path);

/**
 * Names in a directory, in the phone's order, without "." and ".."; names that are not UTF-8 are
 * left out. A listing that breaks off half-way is handed over as far as it came.
 *
 * @return an array of strings that the caller releases; NULL on failure
 */
KRL_EXPORT CFMutableArrayRef KRTPhoneListDirectoryAtPath(KRTPhoneRef phone, const char* path);

/** Removes a file or an empty directory. 1 / 0. */
KRL_EXPORT int KRTPhoneRemoveObjectAtPath(KRTPhoneRef phone, const char* path);

/** Renames; a file of the new name is replaced. 1 / 0. */
KRL_EXPORT int KRTPhoneRenameObjectAtPath(KRTPhoneRef phone, const char* oldPath,
                                          const char* newPath);

/**
 * Writes a whole file, replacing what was there.
 *
 * @param bytes   not copied; may be NULL when count is 0
 * @param count   bytes to write; 0 makes an empty file
 * @return 1; 0 on failure, and then the file on the phone may be incomplete
 */
KRL_EXPORT int KRTPhoneWriteDataToFileAtPath(KRTPhoneRef phone, const char* path, const void* bytes,
                                             uintptr_t count);

/**
 * Reads a file into the caller's buffer, once: ask its size before. The file is opened for reading
 * and writing: one that is not there is made, and 0 bytes are read.
 *
 * @param path    NULL is a failure (code 0) before the phone is asked anything; so is a NULL buffer
 * @param length  in: size of the buffer; out: bytes read, 0 when the file could not be opened. Not
 *                NULL
 * @return 1 / 0
 */
KRL_EXPORT int KRTPhoneReadFileAtPath(KRTPhoneRef phone, const char* path, void* buffer,
                                      uint32_t* length);

/**
 * Asks a file's size.
 *
 * @param path  NULL is a failure (code 0) before the phone is asked anything
 * @param size  out: bytes; 0 when the phone does not say, untouched on failure. Not NULL. Sizes of
 *              2^31 and more do not fit
 * @return 1; 0 on failure, also when there is no such file
 */
KRL_EXPORT int KRTPhoneSizeOfFileAtPath(KRTPhoneRef phone, const char* path, uint32_t* size);

KRL_END_C

/* ------------------------------------------------------------------ the object */

#ifdef __cplusplus

#include <CoreFoundation/CFRef.h>

#include <memory>

class KRTRingtoneManager;

/**
 * One phone as an object: the face of a phone record, and the way to its ringtones.
 *
 *     void phoneConnected(const std::shared_ptr<KRTPhone>& phone) override {
 *         auto tones = phone->ringtoneManager();
 *         ...
 *     }
 *
 * Most methods forward to the function above that they name; counts, blocking and the error record
 * are as described there. Methods that can fail return an error object, null on success. It says
 * what the error record says: domain "com.korvane.vesk", the code, and in its user information
 * "file" and "line". The record is not cleared: call KRTErrorClear before an action whose failure
 * you want to see, or an older failure is shown instead.
 *
 * Paths are absolute on the phone's media partition. A null path is handed on; where a path is
 * needed, that is a failure.
 *
 * A phone that was unplugged leaves its object behind: safe to call, but without a device, so that
 * open() fails with code 0 and phoneInformation() is null. The same holds after the record was
 * given to KRTPhoneRelease. There is no way back: a phone that is plugged in again is a new object.
 *
 * One thread at a time, and while a sync on the phone runs on another thread none but _rawDevice(),
 * _phoneRef(), phoneInformation(), ringtoneManager() and the destructor.
 */
class KRL_EXPORT KRTPhone final {
public:
    /**
     * An object for a phone record, which it releases when it goes. A record of the phone manager
     * stays the manager's: it is released when the phone is removed or the manager shut down.
     *
     * @return null when phoneRef is null
     */
    static std::shared_ptr<KRTPhone> _phoneWithPhoneRef(KRTPhoneRef phoneRef);

    /** The initialiser behind _phoneWithPhoneRef; the same. */
    static std::shared_ptr<KRTPhone> _initWithPhoneRef(KRTPhoneRef phoneRef);

    /**
     * Never makes an object: there is no initialiser for a device.
     * @throws KRLException "UnrecognizedSelector", always
     */
    [[noreturn]] static std::shared_ptr<KRTPhone> _phoneWithDevice(am_device* device);

    KRTPhone(const KRTPhone&) = delete;
    KRTPhone& operator=(const KRTPhone&) = delete;

    /** KRTPhoneRelease. Closes no connection and does not disconnect: close the phone before. */
    ~KRTPhone();

    /** KRTPhoneRawDevice. Null for a phone that was unplugged. */
    am_device* _rawDevice() const;

    /** The phone record, lent; valid as long as this object. */
    KRTPhoneRef _phoneRef() const;

    /** Does nothing: a phone tells nobody of anything. */
    void setDelegate(const std::shared_ptr<void>& delegate);

    /** Always null, also after setDelegate. */
    std::shared_ptr<void> delegate() const;

    /** KRTPhoneOpen. */
    [[nodiscard]] krl::cf::CFRef<CFErrorRef> open();

    /** KRTPhoneClose. */
    void close();

    /** Does nothing: the file operations start the file service themselves. */
    void _startFileService();

    /** Does nothing. */
    void _endFileService();

    /** KRTPhoneBeginSync: 1 when a sync is open, 0 on failure with the reason in the error
     *  record. */
    int beginSync();

    /** KRTPhoneEndSync: 1, or 0 with the reason in the error record. */
    int endSync();

    /** KRTPhoneGetPhoneInformation: a copy of what was read last, null when nothing was. */
    krl::cf::CFRef<CFDictionaryRef> phoneInformation() const;

    /** KRTPhoneUpdateInformation. */
    void updateInformation();

    /** KRTPhonePostUpdate: 1 when the firmware is 1.0.2 to 1.1.1, else 0. Posts nothing. */
    int postEvilUpdate() const;

    /** KRTPhoneFirmwareVersion: 1011 for 1.1.1; 1014 when unknown. */
    int phoneFirmwareVersion() const;

    /**
     * The phone's ringtones, made at the first request; always the same object afterwards. The
     * first request reads the phone's catalogue and asks for the size of every file that it names,
     * reconnecting each time, so it blocks. Whether there is something to convert is told by the
     * firmware that updateInformation read. Where the list cannot be read, the object is made all
     * the same: empty, with the reason in the error record. Whoever keeps it may keep it longer
     * than this object. Null when memory is exhausted.
     */
    std::shared_ptr<KRTRingtoneManager> ringtoneManager();

    /**
     * KRTPhoneSizeOfFileAtPath.
     * @param size  receives the bytes; untouched on failure; not null. Note that it comes first
     */
    [[nodiscard]] krl::cf::CFRef<CFErrorRef> size(uint32_t* size, CFStringRef ofFileAtPath);

    /**
     * Reads a whole file.
     * @param into  untouched when the size cannot be had. Otherwise it receives a new data object
     *              of the file's size, before the file is read: on failure, and where the phone
     *              gave fewer bytes, the rest is zeros. Not null
     */
    [[nodiscard]] krl::cf::CFRef<CFErrorRef> readFileAtPath(CFStringRef path,
                                                            krl::cf::CFRef<CFMutableDataRef>* into);

    /** KRTPhoneWriteDataToFileAtPath. Null data writes an empty file. */
    [[nodiscard]] krl::cf::CFRef<CFErrorRef> writeData(CFDataRef data, CFStringRef toFileAtPath);

    /** KRTPhoneRenameObjectAtPath. */
    [[nodiscard]] krl::cf::CFRef<CFErrorRef> renameFileAtPath(CFStringRef path, CFStringRef to);

    /** KRTPhoneRemoveObjectAtPath. */
    [[nodiscard]] krl::cf::CFRef<CFErrorRef> removeObjectAtPath(CFStringRef path);

    /** KRTPhoneListDirectoryAtPath: the names, or null with the reason in the error record
     *  alone. */
    krl::cf::CFRef<CFArrayRef> listDirectoryAtPath(CFStringRef path);

    /** KRTPhoneCreateDirectoryAtPath. */
    [[nodiscard]] krl::cf::CFRef<CFErrorRef> createDirectoryAtPath(CFStringRef path);

private:
    KRL_PRIVATE explicit KRTPhone(KRTPhoneRef phoneRef);

    KRTPhoneRef _phone;
    std::shared_ptr<KRTRingtoneManager> _ringtones;
};

#endif

#endif
