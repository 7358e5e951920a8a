"""How long the window's main loop does anything at a stretch, asked from outside."""
import os
import threading
import time
from pathlib import Path

WINDOW = "/com/korvane/Vesk/window/1"
LONGEST = 120  # seconds; what takes longer does not come


class Line:
    """A connection of its own to the window, over which its actions are asked for: the main loop answers, and needs no
    screen reader for that."""

    def __init__(self):
        from gi.repository import Gio

        flags = Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION
        self._gio = Gio
        self._bus = Gio.DBusConnection.new_for_address_sync(os.environ["DBUS_SESSION_BUS_ADDRESS"], flags, None, None)

    def _call(self, method, parameters):
        return self._bus.call_sync("com.korvane.Vesk", WINDOW, "org.gtk.Actions", method, parameters, None,
                                   self._gio.DBusCallFlags.NO_AUTO_START, LONGEST * 1000, None)

    def ask(self):
        self._call("List", None)

    def can(self, action):
        """Whether something can be done now; not before there is a window."""
        from gi.repository import GLib

        try:
            [(is_enabled, _, _)] = self._call("Describe", GLib.Variant("(s)", (action,))).unpack()
        except GLib.Error:
            return False
        return is_enabled

    def do(self, action):
        from gi.repository import GLib

        self._call("Activate", GLib.Variant("(sava{sv})", (action, [], {})))


class Pace:
    """Asks until it is ended. Two figures: the longest wait for an answer, in which other programs may have had the
    processor, and the most work that the main loop's thread did during one."""

    def __init__(self, process):
        self._times = Path(f"/proc/{process}/task/{process}/schedstat")
        self._ends = threading.Event()
        self._waits = []
        self._thread = threading.Thread(target=self._ask)
        self._thread.start()

    def _worked(self):
        return int(self._times.read_text().split()[0]) / 1e9

    def _ask(self):
        line = Line()
        while not self._ends.wait(0.001):
            worked, begin = self._worked(), time.monotonic()
            line.ask()
            self._waits.append((time.monotonic() - begin, self._worked() - worked))

    def end(self):
        """In words, for people: how long it is depends on what else this computer does."""
        self._ends.set()
        self._thread.join()
        waits, works = zip(*self._waits)
        return f"{max(works) * 1000:.0f} ms of work at a stretch, {max(waits) * 1000:.0f} ms without an answer"
