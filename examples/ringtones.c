/*
 * Lists the ringtones of a phone, and puts one more on it, through the procedural interface.
 *
 *     ringtones [FILE NAME]
 *
 * Waits for the first phone for half a minute.
 */
#include "text.h"

#include <KRLVesk/KRLVesk.h>

#include <stdio.h>
#include <string.h>

static CFStringRef createString(const char* text) {
    return CFStringCreateWithCString(NULL, text, kCFStringEncodingUTF8);
}

static CFMutableDictionaryRef createDictionary(void) {
    return CFDictionaryCreateMutable(NULL, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

/* ---------------------------------------------------------------- finding a phone */

static void phoneConnected(void* context, KRTPhoneRef phone) {
    if (phone != NULL) { /* NULL: a device that is not an iPhone */
        *(KRTPhoneRef*)context = phone;
        CFRunLoopStop(CFRunLoopGetCurrent());
    }
}

static void phoneRemoved(void* context, KRTPhoneRef phone) {
    if (*(KRTPhoneRef*)context == phone) {
        *(KRTPhoneRef*)context = NULL;
    }
}

/* ---------------------------------------------------------------- what is on it */

static void printRingtone(const void* name, const void* ringtone, void* unused) {
    char nameText[256];
    char path[1024];
    (void)unused;
    printf(
        "%s (%s)\n", shown(name, nameText, sizeof nameText),
        shown(CFDictionaryGetValue((CFDictionaryRef)ringtone, KRTRemotePath), path, sizeof path));
}

static int listRingtones(KRTPhoneRef phone) {
    CFDictionaryRef list =
        KRTRingtoneManagerLoadCurrentRingtoneList(KRTPhoneGetRingtoneManager(phone));
    if (list == NULL) {
        return 0;
    }
    printf("%ld ringtones\n", (long)CFDictionaryGetCount(list));
    CFDictionaryApplyFunction(list, printRingtone, NULL);
    CFRelease(list);
    return 1;
}

/* ---------------------------------------------------------------- one more */

static CFMutableDictionaryRef createRingtone(const char* file, const char* name) {
    const char* point = strrchr(file, '.');
    CFStringRef path = createString(file);
    CFStringRef title = createString(name);
    CFStringRef type = createString(point != NULL ? point + 1 : "m4r");
    CFUUIDRef uuid = CFUUIDCreate(NULL);
    CFStringRef guid = CFUUIDCreateString(NULL, uuid);
    CFMutableDictionaryRef ringtone = createDictionary();
    CFDictionarySetValue(ringtone, KRTRingtoneName, title);
    CFDictionarySetValue(ringtone, KRTFileKey, guid);
    CFDictionarySetValue(ringtone, KRTLocalPath, path);
    CFDictionarySetValue(ringtone, CFSTR("FileType"), type);
    CFRelease(guid);
    CFRelease(uuid);
    CFRelease(type);
    CFRelease(title);
    CFRelease(path);
    return ringtone;
}

static bool printProgress(int32_t mode, int32_t status, uint32_t max, uint32_t value,
                          const char* message, void* context) {
    (void)context;
    if (mode == 5 && status == 1) {
        char name[256];
        snprintf(name, sizeof name, "%s", message != NULL ? message : "?");
        printf("uploading %u of %u: %s\n", value + 1, max, harmless(name));
    }
    return true; /* false would cancel */
}

static int addRingtone(KRTPhoneRef phone, const char* file, const char* name) {
    KRTRingtoneManagerRef store = KRTPhoneGetRingtoneManager(phone);
    CFMutableDictionaryRef unchanged = KRTRingtoneManagerLoadCurrentRingtoneList(store);
    if (unchanged == NULL || KRTPhoneOpen(phone) != 1) {
        CFRelease(unchanged);
        return 0;
    }
    CFMutableDictionaryRef ringtone = createRingtone(file, name);
    CFMutableDictionaryRef added = createDictionary();
    CFMutableDictionaryRef removed = createDictionary();
    CFDictionarySetValue(added, CFDictionaryGetValue(ringtone, KRTRingtoneName), ringtone);

    KRTRingtoneManagerSetStatusResponder(store, printProgress, NULL);
    KRTPhoneBeginSync(phone);
    const int result = KRTRingtoneManagerSubmitChanges(store, added, removed, unchanged);
    KRTPhoneEndSync(phone);
    KRTPhoneClose(phone);

    CFRelease(removed);
    CFRelease(added);
    CFRelease(ringtone);
    CFRelease(unchanged);
    return result;
}

int main(int argc, char** argv) {
    if (argc != 1 && argc != 3) {
        fprintf(stderr, "usage: %s [FILE NAME]\n", argv[0]);
        return 2;
    }
    if (!KRTVeskInitLight()) {
        fprintf(stderr, "phones cannot be reached: MobileDevice.so is missing\n");
        return 1;
    }
    KRTPhoneRef phone = NULL;
    KRTPhoneManagerInit();
    KRTPhoneManagerDelegateRef delegate =
        KRTPhoneManagerAddDelegate(&phone, phoneConnected, phoneRemoved);
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 30, false);

    int done = 0;
    if (phone == NULL) {
        fprintf(stderr, "no phone\n");
    } else {
        KRTErrorClear();
        done =
            (argc == 1 || addRingtone(phone, argv[1], argv[2]) == 1) && listRingtones(phone) == 1;
        if (!done) {
            fprintf(stderr, "failed: code %d (%s:%d)\n", KRTErrorGetCode(),
                    KRTErrorGetFile() != NULL ? KRTErrorGetFile() : "?", KRTErrorGetLine());
        }
    }
    KRTPhoneManagerRemoveDelegate(delegate);
    KRTPhoneManagerShutdown();
    return done ? 0 : 1;
}
