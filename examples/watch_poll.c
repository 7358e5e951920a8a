/*
 * Phones as they come and go, in a program that waits with poll: the run loop's descriptor is one
 * of its own. Ends when standard input ends.
 */
#include "watch.h"

#include <poll.h>
#include <unistd.h>

int main(void) {
    KRTPhoneManagerDelegateRef delegate = startWatching();
    if (delegate == NULL) {
        return 1;
    }
    struct pollfd descriptors[] = {
        {.fd = STDIN_FILENO, .events = POLLIN},
        {.fd = CFRunLoopGetPollDescriptor(CFRunLoopGetCurrent()), .events = POLLIN},
    };
    char input[256];
    for (;;) {
        if (poll(descriptors, 2, -1) < 0) {
            break;
        }
        if (descriptors[1].revents != 0) {
            runWhatIsDue();
        }
        if (descriptors[0].revents != 0 && read(STDIN_FILENO, input, sizeof input) <= 0) {
            break;
        }
    }
    stopWatching(delegate);
    return 0;
}
