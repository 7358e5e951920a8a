/*
 * Phones as they come and go, in a program with a GLib main loop. Answers each line of input, also
 * while a phone is silent, and ends when the input ends.
 */
#include "phone_thread.h"

#include <glib-unix.h>
#include <glib.h>
#include <stdio.h>
#include <unistd.h>

static gboolean phonesCameOrWent(gint descriptor, GIOCondition condition, gpointer phones) {
    PhoneEvent event;
    (void)descriptor;
    (void)condition;
    while (phoneThreadNext(phones, &event)) {
        printf("%s %s\n", event.connected ? "connected" : "removed", event.name);
    }
    fflush(stdout);
    return G_SOURCE_CONTINUE;
}

static gboolean inputCame(gint descriptor, GIOCondition condition, gpointer loop) {
    char input[256];
    (void)condition;
    if (read(descriptor, input, sizeof input) > 0) {
        puts("still here");
        fflush(stdout);
        return G_SOURCE_CONTINUE;
    }
    g_main_loop_quit(loop);
    return G_SOURCE_REMOVE;
}

int main(void) {
    PhoneThread* phones = phoneThreadStart();
    if (phones == NULL) {
        return 1;
    }
    GMainLoop* loop = g_main_loop_new(NULL, FALSE);
    const guint watch =
        g_unix_fd_add(phoneThreadDescriptor(phones), G_IO_IN, phonesCameOrWent, phones);
    g_unix_fd_add(STDIN_FILENO, G_IO_IN | G_IO_HUP, inputCame, loop);
    g_main_loop_run(loop);
    g_source_remove(watch);
    g_main_loop_unref(loop);
    phoneThreadStop(phones);
    return 0;
}
