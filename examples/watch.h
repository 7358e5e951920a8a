/*
 * What the two programs with a main loop of their own have in common: a line for each phone that
 * comes and goes.
 */
#ifndef EXAMPLES_WATCH_H
#define EXAMPLES_WATCH_H

#include <KRLVesk/KRLVesk.h>

#include <stdio.h>

static inline void printPhone(const char* what, KRTPhoneRef phone) {
    char name[256] = "?";
    CFDictionaryRef information = KRTPhoneGetPhoneInformation(phone);
    if (information != NULL) {
        CFTypeRef value = CFDictionaryGetValue(information, KRTPhoneNameKey);
        if (value != NULL) {
            CFStringGetCString((CFStringRef)value, name, sizeof name, kCFStringEncodingUTF8);
        }
        CFRelease(information);
    }
    printf("%s %s\n", what, name);
    fflush(stdout);
}

static inline void printConnected(void* context, KRTPhoneRef phone) {
    (void)context;
    if (phone != NULL) {
        printPhone("connected", phone);
    }
}

static inline void printRemoved(void* context, KRTPhoneRef phone) {
    (void)context;
    printPhone("removed", phone);
}

/* Starts looking for phones on this thread; 0 when they cannot be reached. */
static inline KRTPhoneManagerDelegateRef startWatching(void) {
    if (!KRTVeskInitLight()) {
        fprintf(stderr, "phones cannot be reached: MobileDevice.so is missing\n");
        return NULL;
    }
    KRTPhoneManagerInit();
    return KRTPhoneManagerAddDelegate(NULL, printConnected, printRemoved);
}

/* Does what the run loop of this thread has to do now, without waiting. */
static inline void runWhatIsDue(void) {
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false);
}

static inline void stopWatching(KRTPhoneManagerDelegateRef delegate) {
    KRTPhoneManagerRemoveDelegate(delegate);
    KRTPhoneManagerShutdown();
}

#endif
