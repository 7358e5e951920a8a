/*
 * Phones as they come and go, in a program with a GLib main loop, which watches the run loop's
 * descriptor. Ends when standard input ends.
 */
#include "watch.h"

#include <glib-unix.h>
#include <glib.h>
#include <unistd.h>

static gboolean runLoopHasWork(gint descriptor, GIOCondition condition, gpointer unused) {
    (void)descriptor;
    (void)condition;
    (void)unused;
    runWhatIsDue();
    return G_SOURCE_CONTINUE;
}

static gboolean inputCame(gint descriptor, GIOCondition condition, gpointer loop) {
    char input[256];
    (void)condition;
    if (read(descriptor, input, sizeof input) > 0) {
        return G_SOURCE_CONTINUE;
    }
    g_main_loop_quit(loop);
    return G_SOURCE_REMOVE;
}

int main(void) {
    KRTPhoneManagerDelegateRef delegate = startWatching();
    if (delegate == NULL) {
        return 1;
    }
    GMainLoop* loop = g_main_loop_new(NULL, FALSE);
    const guint runLoop = g_unix_fd_add(CFRunLoopGetPollDescriptor(CFRunLoopGetCurrent()), G_IO_IN,
                                        runLoopHasWork, NULL);
    g_unix_fd_add(STDIN_FILENO, G_IO_IN | G_IO_HUP, inputCame, loop);
    g_main_loop_run(loop);
    g_source_remove(runLoop);
    g_main_loop_unref(loop);
    stopWatching(delegate);
    return 0;
}
