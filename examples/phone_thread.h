/*
 * Phones as they come and go, on a thread of their own, for a program whose main loop must never
 * stand still. The library talks to a phone as soon as it arrives, and a phone that is silent holds
 * that up until the call's time is over (AMDeviceSetCallTimeout), 10 seconds as a rule.
 */
#ifndef EXAMPLES_PHONE_THREAD_H
#define EXAMPLES_PHONE_THREAD_H

#include <stdbool.h>

typedef struct PhoneThread PhoneThread;

/* What has happened to a phone. Records of the library stay on their thread. */
typedef struct PhoneEvent {
    bool connected; /* or else removed */
    char name[256]; /* UTF-8, harmless on a terminal */
} PhoneEvent;

/* Starts to look for phones; NULL, with a line on standard error, when they cannot be reached. */
PhoneThread* phoneThreadStart(void);

/* A descriptor that is readable while an event is there. Read nothing from it. */
int phoneThreadDescriptor(const PhoneThread* thread);

/* Takes the next event; false when there is none. Never waits. */
bool phoneThreadNext(PhoneThread* thread, PhoneEvent* event);

/* Ends the calls to phones that are under way, and the thread. */
void phoneThreadStop(PhoneThread* thread);

#endif
