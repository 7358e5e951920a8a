#include "library/phone/KRTPhoneInternal.h"

#include "library/errors/ErrorReport.h"
#include "library/phone/DeviceLayer.h"
#include "library/system/Clock.h"

#include <CoreFoundation/CFRef.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

using krl::cf::adopt;
using krl::phone::hasDeviceLayer;

constinit const CFStringRef KRTPhoneNameKey = CFSTR("PhoneName");
constinit const CFStringRef KRTPhoneClassKey = CFSTR("PhoneClass");
constinit const CFStringRef KRTPhoneFreeSpaceKey = CFSTR("PhoneFreeSpace");
constinit const CFStringRef KRTPhoneNumberKey = CFSTR("PhoneNumber");
constinit const CFStringRef KRTPhoneSizeKey = CFSTR("PhoneSize");

CFArrayRef KRTPhoneSupportedFormats = nullptr;

namespace {

constexpr krl::ErrorReporter reportError{"KRTPhoneInternal"};

// Codes of this module's own; others are the small numbers at their reports.
constexpr int kNotOpen = -500;
constexpr int kNoFileService = -1000;

constexpr char kSyncLockPath[] = "/com.apple.itunes.lock_sync";
constexpr int kLockAttempts = 7;
constexpr uintptr_t kWriteChunkBytes = uintptr_t{4} * 1024 * 1024;

} // namespace

// ---------------------------------------------------------------------------- the record

KRTPhoneRef KRTPhoneWithDevice(am_device* device) {
    auto* phone = static_cast<KRTPhoneRef>(std::malloc(sizeof(__KRTPhone)));
    if (phone == nullptr) {
        return nullptr;
    }
    *phone = {};
    phone->device = device;
    if (hasDeviceLayer()) {
        AMDeviceRetain(device);
    }
    return phone;
}

// Contract: releasing closes no connection and does not disconnect, whatever the counts are.
// [PhoneRecord.ReleaseOfAnOpenPhoneNeitherClosesNorDisconnects]
void KRTPhoneRelease(KRTPhoneRef phone) {
    if (phone != nullptr) {
        krl::phone::release(phone);
    }
}

am_device* KRTPhoneRawDevice(KRTPhoneRef phone) {
    return phone->device;
}

// ---------------------------------------------------------------------------- connection

namespace {

void forgetFileConnection(KRTPhoneRef phone) {
    phone->fileConnection = nullptr;
    phone->fileService = nullptr;
}

void disconnect(KRTPhoneRef phone) {
    if (hasDeviceLayer()) {
        AMDeviceDisconnect(phone->device);
    }
}

// Contract: a failed open always disconnects, even a null device and even one that a failed start
// of the file service has disconnected already, and forgets the file connection without closing it.
// [PhoneOpenFailure.RecordsTheStatusDisconnectsAndForgetsTheHandles]
int failOpen(KRTPhoneRef phone) {
    disconnect(phone);
    phone->openCount = 0;
    forgetFileConnection(phone);
    return 0;
}

void closeFileConnection(KRTPhoneRef phone) {
    if (phone->fileConnection != nullptr && hasDeviceLayer()) {
        AFCConnectionClose(phone->fileConnection);
    }
}

int failStartOnClosedPhone(KRTPhoneRef phone) {
    closeFileConnection(phone);
    forgetFileConnection(phone);
    return 0;
}

// Contract: a start that fails after it closed the connection of an earlier start closes that one a
// second time. [FileServiceStartFailure.ClosesTheLeftoverConnectionTwiceAndThePhoneOnce]
int failStart(KRTPhoneRef phone) {
    closeFileConnection(phone);
    KRTPhoneClose(phone);
    forgetFileConnection(phone);
    return 0;
}

} // namespace

int KRTPhoneOpen(KRTPhoneRef phone) {
    if (phone->device == nullptr || !hasDeviceLayer()) {
        reportError(0);
        return failOpen(phone);
    }
    if (phone->openCount != 0) {
        ++phone->openCount;
        return 1;
    }
    if (const int32_t status = AMDeviceConnect(phone->device); status != 0) {
        reportError(status);
        return failOpen(phone);
    }
    if (AMDeviceIsPaired(phone->device) == 0) {
        reportError(0);
        return failOpen(phone);
    }
    if (const int32_t status = AMDeviceValidatePairing(phone->device); status != 0) {
        reportError(status);
        return failOpen(phone);
    }
    phone->openCount = 1;
    // Contract: only here are starts forgotten that were never ended; an open that fails before
    // leaves their count as it was. [PhoneOpen.ForgetsStartsThatWereNeverEnded]
    phone->fileServiceCount = 0;
    if (KRTPhoneStartFileService(phone) != 1) {
        reportError(kNoFileService);
        return failOpen(phone);
    }
    return 1;
}

// Contract: closing never closes the file connection: the file service that is ended here finds the
// phone closed already. The next start of the file service closes what was left.
// [PhoneClose.OfTheLastOpenDisconnectsAndKeepsTheFileConnection]
void KRTPhoneClose(KRTPhoneRef phone) {
    if (phone->openCount < 1) {
        return;
    }
    --phone->openCount;
    if (phone->openCount > 0) {
        return;
    }
    KRTPhoneEndFileService(phone);
    if (phone->device != nullptr) {
        disconnect(phone);
    }
}

int KRTPhoneStartFileService(KRTPhoneRef phone) {
    // Contract: a running service is counted without a look at whether the phone is still open.
    // [FileService.StartCountsARunningServiceAlsoWhenThePhoneIsClosed]
    if (phone->fileServiceCount > 0) {
        ++phone->fileServiceCount;
        return 1;
    }
    if (phone->openCount == 0) {
        reportError(kNotOpen);
        return failStartOnClosedPhone(phone);
    }
    if (phone->device == nullptr || !hasDeviceLayer()) {
        reportError(kNoFileService);
        return failStart(phone);
    }
    closeFileConnection(phone);
    if (const int32_t status = AMDeviceStartSession(phone->device); status != 0) {
        reportError(status);
        return failStart(phone);
    }
    // Contract: the session is not stopped when the service does not start.
    // [FileServiceStartFailure.ClosesTheLeftoverConnectionTwiceAndThePhoneOnce]
    if (const int32_t status = AMDeviceStartService(phone->device, CFSTR("com.apple.afc"),
                                                    &phone->fileService, nullptr);
        status != 0) {
        reportError(status);
        return failStart(phone);
    }
    if (const int32_t status = AMDeviceStopSession(phone->device); status != 0) {
        reportError(status);
        return failStart(phone);
    }
    if (const int32_t status = AFCConnectionOpen(phone->fileService, 0, &phone->fileConnection);
        status != 0) {
        reportError(status);
        return failStart(phone);
    }
    phone->fileServiceCount = 1;
    return 1;
}

// Contract: on a closed phone nothing is ended, however often the service was started.
// [FileService.EndOnAClosedPhoneDoesNothingHoweverOftenItWasStarted]
void KRTPhoneEndFileService(KRTPhoneRef phone) {
    if (phone->openCount == 0 || phone->fileServiceCount == 0) {
        return;
    }
    --phone->fileServiceCount;
    if (phone->fileServiceCount == 0) {
        closeFileConnection(phone);
        phone->fileConnection = nullptr;
    }
    // Contract: ending the file service takes one open back as well, always. A file operation on a
    // phone that was opened once leaves it disconnected, and the next operation reconnects.
    // [PhoneCounts.EndingTheFileServiceAlsoClosesOnce]
    KRTPhoneClose(phone);
}

// ---------------------------------------------------------------------------- sync lock

namespace {

// Contract: whether the lock was taken is not told: after the last attempt the sync goes on
// without. [SyncLock.BeginSucceedsAfterSevenRefusals]
void waitForSyncLock(KRTPhoneRef phone) {
    for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
        if (AFCFileRefLock(phone->fileConnection, phone->lockFile) == 0) {
            return;
        }
        krl::system::sleepSeconds(1);
    }
}

} // namespace

// Contract: a failure undoes nothing. The session, the proxy, the lock file and the start of the
// file service stay as they are, so that after a failed post the next call finds a sync open.
// [SyncLockBeginFailure.RecordsTheStatusAndUndoesNothing]
int KRTPhoneBeginSync(KRTPhoneRef phone) {
    if (phone->notificationProxy != nullptr) {
        return 1;
    }
    if (!hasDeviceLayer()) {
        reportError(0);
        return 0;
    }
    // Contract: the phone is not opened here. A closed phone whose service count is above 0 goes on
    // over its disconnected device. [SyncLock.BeginDoesNotOpenThePhone]
    if (const int started = KRTPhoneStartFileService(phone); started != 1) {
        reportError(started);
        return 0;
    }
    if (const int32_t status = AMDeviceStartSession(phone->device); status != 0) {
        reportError(status);
        return 0;
    }
    if (const int32_t status =
            AMDeviceStartService(phone->device, CFSTR("com.apple.mobile.notification_proxy"),
                                 &phone->notificationProxy, nullptr);
        status != 0) {
        reportError(status);
        return 0;
    }
    AMDeviceStopSession(phone->device);
    if (const int32_t status = AMDPostNotification(
            phone->notificationProxy, CFSTR("com.apple.itunes-mobdev.syncWillStart"), nullptr);
        status != 0) {
        reportError(status);
        return 0;
    }
    if (const int32_t status = AFCFileRefOpen(phone->fileConnection, kSyncLockPath,
                                              kAFCOpenReadWrite, &phone->lockFile);
        status != 0) {
        reportError(status);
        return 0;
    }
    if (const int32_t status = AMDPostNotification(
            phone->notificationProxy, CFSTR("com.apple.itunes-mobdev.syncLockRequest"), nullptr);
        status != 0) {
        reportError(status);
        return 0;
    }
    waitForSyncLock(phone);
    KRTPhoneEndFileService(phone);
    return 1;
}

int KRTPhoneEndSync(KRTPhoneRef phone) {
    if (phone->notificationProxy == nullptr) {
        reportError(0);
        return 0;
    }
    if (!hasDeviceLayer() || KRTPhoneStartFileService(phone) == 0) {
        reportError(1);
        return 0;
    }
    // Contract: the phone may have been reconnected since the lock was taken, which freed it;
    // unlock and close then go to the new connection and fail, and no failure here keeps the sync
    // open. [SyncLock.ReconnectingDuringASyncFreesTheLockAndEndStillSucceeds]
    AFCFileRefUnlock(phone->fileConnection, phone->lockFile);
    AFCFileRefClose(phone->fileConnection, phone->lockFile);
    AMDPostNotification(phone->notificationProxy, CFSTR("com.apple.itunes-mobdev.syncDidFinish"),
                        nullptr);
    AMDShutdownNotificationProxy(phone->notificationProxy);
    phone->spareConnection = nullptr;
    phone->notificationProxy = nullptr;
    phone->lockFile = 0;
    KRTPhoneEndFileService(phone);
    return 1;
}

// ---------------------------------------------------------------------------- files
//
// What a failing operation gives back differs from one to the next and is part of the contract; so
// each says it in its own text.

namespace {

bool isSelfOrParent(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// Contract: a read of a directory that fails ends the list like its last name does.
// [Listing.ThatBreaksOffHalfWayIsASuccess]
krl::cf::CFRef<CFMutableArrayRef> readNames(afc_connection* connection, afc_directory* directory) {
    auto names = adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    char* name = nullptr;
    while (AFCDirectoryRead(connection, directory, &name) == 0 && name != nullptr) {
        if (isSelfOrParent(name)) {
            continue;
        }
        const auto string = adopt(CFStringCreateWithCString(nullptr, name, kCFStringEncodingUTF8));
        if (string) {
            CFArrayAppendValue(names.get(), string.get());
        }
    }
    return names;
}

int32_t writeChunks(afc_connection* connection, afc_file_ref file, const void* bytes,
                    uintptr_t count) {
    const auto* next = static_cast<const char*>(bytes);
    while (count > 0) {
        const uintptr_t chunk = std::min(count, kWriteChunkBytes);
        const int32_t status =
            AFCFileRefWrite(connection, file, next, static_cast<uint32_t>(chunk));
        if (status != 0) {
            return status;
        }
        next += chunk;
        count -= chunk;
    }
    return 0;
}

// Contract: the size is read as a C integer literal is, so that "010" is 8 and "0x10" is 16; the
// first "st_size" counts. Without one the size is 0. [SizeOfFileText.IsReadLikeACIntegerLiteral]
uint32_t readSize(afc_dictionary* info) {
    int size = 0;
    char* key = nullptr;
    char* value = nullptr;
    while (AFCKeyValueRead(info, &key, &value) == 0 && key != nullptr && value != nullptr) {
        if (std::strcmp(key, "st_size") == 0) {
            std::sscanf(value, "%iu", &size);
            break;
        }
    }
    return static_cast<uint32_t>(size);
}

} // namespace

int KRTPhoneCreateDirectoryAtPath(KRTPhoneRef phone, const char* path) {
    if (KRTPhoneOpen(phone) != 1) {
        reportError(0);
        return 0;
    }
    if (KRTPhoneStartFileService(phone) != 1) {
        reportError(0);
        KRTPhoneClose(phone);
        return 0;
    }
    if (const int32_t status = AFCDirectoryCreate(phone->fileConnection, path); status != 0) {
        reportError(status);
        // Contract: the file service is not ended.
        // [FileOperationFailure.OnAPhoneOpenedFiveTimesRecordsTheStatusAndGivesBackExactlyThis]
        KRTPhoneClose(phone);
        return 0;
    }
    KRTPhoneEndFileService(phone);
    KRTPhoneClose(phone);
    return 1;
}

CFMutableArrayRef KRTPhoneListDirectoryAtPath(KRTPhoneRef phone, const char* path) {
    if (KRTPhoneOpen(phone) != 1) {
        reportError(0);
        return nullptr;
    }
    if (KRTPhoneStartFileService(phone) != 1) {
        reportError(1);
        KRTPhoneClose(phone);
        return nullptr;
    }
    afc_directory* directory = nullptr;
    if (const int32_t status = AFCDirectoryOpen(phone->fileConnection, path, &directory);
        status != 0) {
        reportError(status);
        KRTPhoneEndFileService(phone);
        KRTPhoneClose(phone);
        // Contract: one close more than was opened; it takes one of the caller's opens.
        // [FileOperationFailure.OnAPhoneOpenedFiveTimesRecordsTheStatusAndGivesBackExactlyThis]
        KRTPhoneClose(phone);
        return nullptr;
    }
    krl::cf::CFRef<CFMutableArrayRef> names;
    try {
        names = readNames(phone->fileConnection, directory);
    } catch (const std::bad_alloc&) {
        reportError(0);
    }
    AFCDirectoryClose(phone->fileConnection, directory);
    KRTPhoneEndFileService(phone);
    KRTPhoneClose(phone);
    return names.leak();
}

int KRTPhoneRemoveObjectAtPath(KRTPhoneRef phone, const char* path) {
    if (KRTPhoneOpen(phone) != 1) {
        reportError(1);
        return 0;
    }
    if (KRTPhoneStartFileService(phone) != 1) {
        reportError(0);
        KRTPhoneClose(phone);
        return 0;
    }
    if (const int32_t status = AFCRemovePath(phone->fileConnection, path); status != 0) {
        reportError(status);
        // Contract: the file service is not ended.
        // [FileOperationFailure.OnAPhoneOpenedFiveTimesRecordsTheStatusAndGivesBackExactlyThis]
        KRTPhoneClose(phone);
        return 0;
    }
    KRTPhoneEndFileService(phone);
    KRTPhoneClose(phone);
    return 1;
}

int KRTPhoneRenameObjectAtPath(KRTPhoneRef phone, const char* oldPath, const char* newPath) {
    if (KRTPhoneOpen(phone) != 1) {
        reportError(1);
        return 0;
    }
    if (KRTPhoneStartFileService(phone) != 1) {
        reportError(0);
        KRTPhoneClose(phone);
        return 0;
    }
    if (const int32_t status = AFCRenamePath(phone->fileConnection, oldPath, newPath);
        status != 0) {
        reportError(status);
        // Contract: the file service is not ended.
        // [FileOperationFailure.OnAPhoneOpenedFiveTimesRecordsTheStatusAndGivesBackExactlyThis]
        KRTPhoneClose(phone);
        return 0;
    }
    KRTPhoneEndFileService(phone);
    KRTPhoneClose(phone);
    return 1;
}

// Contract: a failed write gives neither the file service nor the open back.
// [FileOperationFailure.OnAPhoneOpenedFiveTimesRecordsTheStatusAndGivesBackExactlyThis]
int KRTPhoneWriteDataToFileAtPath(KRTPhoneRef phone, const char* path, const void* bytes,
                                  uintptr_t count) {
    if (KRTPhoneOpen(phone) != 1) {
        reportError(1);
        return 0;
    }
    if (KRTPhoneStartFileService(phone) != 1) {
        reportError(0);
        return 0;
    }
    afc_file_ref file = 0;
    if (const int32_t status = AFCFileRefOpen(phone->fileConnection, path, kAFCOpenWrite, &file);
        status != 0) {
        reportError(status);
        return 0;
    }
    if (const int32_t status = writeChunks(phone->fileConnection, file, bytes, count);
        status != 0) {
        reportError(status);
        AFCFileRefClose(phone->fileConnection, file);
        return 0;
    }
    AFCFileRefClose(phone->fileConnection, file);
    KRTPhoneEndFileService(phone);
    KRTPhoneClose(phone);
    return 1;
}

int KRTPhoneReadFileAtPath(KRTPhoneRef phone, const char* path, void* buffer, uint32_t* length) {
    if (path == nullptr || buffer == nullptr) {
        reportError(0);
        return 0;
    }
    if (KRTPhoneOpen(phone) != 1) {
        reportError(1);
        return 0;
    }
    if (KRTPhoneStartFileService(phone) != 1) {
        reportError(2);
        // Contract: the phone is not closed.
        // [FileOperationFailure.OnAPhoneOpenedFiveTimesRecordsTheStatusAndGivesBackExactlyThis]
        return 0;
    }
    // Contract: opened for reading and writing, so that reading a file that is not there makes it.
    // [Reading.OpensForReadingAndWritingAndReadsOnce]
    afc_file_ref file = 0;
    if (const int32_t status =
            AFCFileRefOpen(phone->fileConnection, path, kAFCOpenReadWrite, &file);
        status != 0) {
        reportError(status);
        *length = 0;
        KRTPhoneEndFileService(phone);
        KRTPhoneClose(phone);
        return 0;
    }
    if (const int32_t status = AFCFileRefRead(phone->fileConnection, file, buffer, length);
        status != 0) {
        reportError(status);
        AFCFileRefClose(phone->fileConnection, file);
        KRTPhoneEndFileService(phone);
        KRTPhoneClose(phone);
        return 0;
    }
    AFCFileRefClose(phone->fileConnection, file);
    KRTPhoneEndFileService(phone);
    KRTPhoneClose(phone);
    return 1;
}

int KRTPhoneSizeOfFileAtPath(KRTPhoneRef phone, const char* path, uint32_t* size) {
    if (path == nullptr) {
        reportError(0);
        return 0;
    }
    if (KRTPhoneOpen(phone) != 1) {
        reportError(0);
        return 0;
    }
    if (KRTPhoneStartFileService(phone) != 1) {
        reportError(0);
        KRTPhoneClose(phone);
        return 0;
    }
    afc_dictionary* info = nullptr;
    if (const int32_t status = AFCFileInfoOpen(phone->fileConnection, path, &info); status != 0) {
        reportError(status);
        KRTPhoneEndFileService(phone);
        KRTPhoneClose(phone);
        return 0;
    }
    *size = readSize(info);
    AFCKeyValueClose(info);
    KRTPhoneEndFileService(phone);
    KRTPhoneClose(phone);
    return 1;
}

// ---------------------------------------------------------------------------- information

namespace {

// The most keys that an update adds.
constexpr CFIndex kInformationKeys = 5;

// Stores a value of the phone, or nothing when the phone has none of this type.
template <typename Type>
void storeDeviceValue(KRTPhoneRef phone, CFStringRef key, CFStringRef domain, CFStringRef name) {
    const auto value = adopt(AMDeviceCopyValue(phone->device, domain, name));
    if (const auto typed = krl::cf::cast<Type>(value.get())) {
        CFDictionarySetValue(phone->information, key, typed);
    }
}

// Contract: the text is read as an unsigned number and kept in a signed one, where it wraps from
// 2^63 on; the first "FSFreeBytes" counts. [Information.FreeSpaceAboveTheLargestSignedNumberWraps]
void storeFreeSpace(KRTPhoneRef phone, const char* text) {
    unsigned long long bytes = 0;
    if (std::sscanf(text, "%llu", &bytes) != 1) {
        return;
    }
    const auto wrapped = static_cast<int64_t>(bytes);
    const auto number = adopt(CFNumberCreate(nullptr, kCFNumberSInt64Type, &wrapped));
    CFDictionaryAddValue(phone->information, KRTPhoneFreeSpaceKey, number.get());
}

void storeDeviceInformation(KRTPhoneRef phone, afc_dictionary* info) {
    char* key = nullptr;
    char* value = nullptr;
    while (AFCKeyValueRead(info, &key, &value) == 0 && key != nullptr && value != nullptr) {
        if (std::strcmp(key, "FSFreeBytes") == 0) {
            storeFreeSpace(phone, value);
        }
    }
}

} // namespace

CFDictionaryRef KRTPhoneGetPhoneInformation(KRTPhoneRef phone) {
    return phone->information == nullptr ? nullptr
                                         : CFDictionaryCreateCopy(nullptr, phone->information);
}

void KRTPhoneUpdateInformation(KRTPhoneRef phone) {
    if (phone->information != nullptr) {
        CFRelease(phone->information);
    }
    phone->information =
        CFDictionaryCreateMutable(nullptr, kInformationKeys, &kCFTypeDictionaryKeyCallBacks,
                                  &kCFTypeDictionaryValueCallBacks);
    if (KRTPhoneOpen(phone) != 1) {
        return;
    }
    if (KRTPhoneStartFileService(phone) != 1) {
        KRTPhoneClose(phone);
        return;
    }
    storeDeviceValue<CFStringRef>(phone, KRTPhoneNameKey, nullptr, CFSTR("DeviceName"));
    storeDeviceValue<CFStringRef>(phone, KRTPhoneClassKey, nullptr, CFSTR("DeviceClass"));
    // Contract: without a session, and below without device information, the phone stays open and
    // its file service started. Only the latter is reported.
    // [Information.WithoutASessionStopsUnreportedAndLeavesThePhoneOpenAndTheServiceStarted]
    if (AMDeviceStartSession(phone->device) != 0) {
        return;
    }
    storeDeviceValue<CFDictionaryRef>(phone, CFSTR("PhoneVersions"), nullptr, nullptr);
    storeDeviceValue<CFDictionaryRef>(phone, CFSTR("iTunesVersions"),
                                      CFSTR("com.apple.mobile.iTunes"), nullptr);
    AMDeviceStopSession(phone->device);
    afc_dictionary* info = nullptr;
    if (const int32_t status = AFCDeviceInfoOpen(phone->fileConnection, &info); status != 0) {
        reportError(status);
        return;
    }
    storeDeviceInformation(phone, info);
    // Contract: the pairs are not closed. They end with the file connection that they came over.
    // [Information.UpdateNeverClosesThePairsOfTheDeviceInformation]
    KRTPhoneEndFileService(phone);
    KRTPhoneClose(phone);
}
