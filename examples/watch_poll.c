/*
 * Phones as they come and go, in a program that waits with poll. Answers each line of input, also
 * while a phone is silent, and ends when the input ends.
 */
#include "phone_thread.h"

#include <poll.h>
#include <stdio.h>
#include <unistd.h>

static void printEvents(PhoneThread* phones) {
    PhoneEvent event;
    while (phoneThreadNext(phones, &event)) {
        printf("%s %s\n", event.connected ? "connected" : "removed", event.name);
    }
    fflush(stdout);
}

static bool answerInput(void) {
    char input[256];
    const ssize_t size = read(STDIN_FILENO, input, sizeof input);
    if (size > 0) {
        puts("still here");
        fflush(stdout);
    }
    return size > 0;
}

int main(void) {
    PhoneThread* phones = phoneThreadStart();
    if (phones == NULL) {
        return 1;
    }
    struct pollfd descriptors[] = {
        {.fd = STDIN_FILENO, .events = POLLIN},
        {.fd = phoneThreadDescriptor(phones), .events = POLLIN},
    };
    while (poll(descriptors, 2, -1) > 0) {
        if (descriptors[1].revents != 0) {
            printEvents(phones);
        }
        if (descriptors[0].revents != 0 && !answerInput()) {
            break;
        }
    }
    phoneThreadStop(phones);
    return 0;
}
