#define _GNU_SOURCE /* pthread_timedjoin_np */

#include "phone_thread.h"

#include "text.h"

#include <KRLVesk/KRLVesk.h>

#include <errno.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

struct PhoneThread {
    pthread_t thread;
    int reading; /* events are packets in a pair of sockets, the main loop's end and the thread's */
    int writing;
    sem_t hasLoop;
    CFRunLoopRef loop;
    atomic_bool isEnding;
};

/* ---------------------------------------------------------------- on the thread */

static void tell(PhoneThread* self, bool connected, KRTPhoneRef phone) {
    PhoneEvent event = {.connected = connected, .name = "?"};
    CFDictionaryRef information = KRTPhoneGetPhoneInformation(phone);
    if (information != NULL) {
        shown(CFDictionaryGetValue(information, KRTPhoneNameKey), event.name, sizeof event.name);
        CFRelease(information);
    }
    send(self->writing, &event, sizeof event, MSG_NOSIGNAL);
}

static void phoneConnected(void* self, KRTPhoneRef phone) {
    if (phone != NULL) { /* NULL: a device that is not an iPhone */
        tell(self, true, phone);
    }
}

static void phoneRemoved(void* self, KRTPhoneRef phone) {
    tell(self, false, phone);
}

static void* run(void* context) {
    PhoneThread* self = context;
    self->loop = CFRunLoopGetCurrent();
    CFRetain(self->loop);
    sem_post(&self->hasLoop);
    KRTPhoneManagerInit();
    KRTPhoneManagerDelegateRef delegate =
        KRTPhoneManagerAddDelegate(self, phoneConnected, phoneRemoved);
    while (!self->isEnding) {
        CFRunLoopRun();
    }
    KRTPhoneManagerRemoveDelegate(delegate);
    KRTPhoneManagerShutdown();
    return NULL;
}

/* ---------------------------------------------------------------- on the main loop's thread */

static PhoneThread* newThread(void) {
    int sockets[2];
    PhoneThread* self = calloc(1, sizeof *self);
    if (self == NULL || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) != 0) {
        free(self);
        return NULL;
    }
    self->reading = sockets[0];
    self->writing = sockets[1];
    sem_init(&self->hasLoop, 0, 0);
    return self;
}

static void freeThread(PhoneThread* self) {
    sem_destroy(&self->hasLoop);
    close(self->reading);
    close(self->writing);
    free(self);
}

PhoneThread* phoneThreadStart(void) {
    if (!KRTVeskInitLight()) {
        fprintf(stderr, "phones cannot be reached: MobileDevice.so is missing\n");
        return NULL;
    }
    PhoneThread* self = newThread();
    if (self == NULL || pthread_create(&self->thread, NULL, run, self) != 0) {
        fprintf(stderr, "no thread for phones can be started\n");
        if (self != NULL) {
            freeThread(self);
        }
        return NULL;
    }
    while (sem_wait(&self->hasLoop) != 0 && errno == EINTR) {
    }
    return self;
}

int phoneThreadDescriptor(const PhoneThread* self) {
    return self->reading;
}

bool phoneThreadNext(PhoneThread* self, PhoneEvent* event) {
    return recv(self->reading, event, sizeof *event, MSG_DONTWAIT) == (ssize_t)sizeof *event;
}

static bool hasEndedSoon(PhoneThread* self) {
    struct timespec soon;
    clock_gettime(CLOCK_REALTIME, &soon);
    soon.tv_nsec += 5 * 1000 * 1000;
    soon.tv_sec += soon.tv_nsec / (1000 * 1000 * 1000);
    soon.tv_nsec %= 1000 * 1000 * 1000;
    return pthread_timedjoin_np(self->thread, NULL, &soon) == 0;
}

void phoneThreadStop(PhoneThread* self) {
    shutdown(self->reading, SHUT_RDWR); /* nobody waits for a reader any more */
    self->isEnding = true;
    do {
        CFRunLoopStop(self->loop);
        /* Again and again, since a call that fails may be followed by one to another phone. */
        if (AMDeviceCancelCalls != NULL) {
            AMDeviceCancelCalls(NULL);
        }
    } while (!hasEndedSoon(self));
    CFRelease(self->loop);
    freeThread(self);
}
