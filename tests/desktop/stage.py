"""A screen, a bus, a phone and the window, all of them this process's own, and an eye on what the
window says of itself to a screen reader. One a process: the eye is on one bus for good."""
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from pace import LONGEST, Line, Pace


class NotSeen(AssertionError):
    pass


class Stage:
    """Set up before anything of accessibility is imported: it is told by the environment where to
    look."""

    def __init__(self, build, screen="1000x800x24"):
        self.bin = Path(build) / "bin"
        self.folder = Path(tempfile.mkdtemp(prefix="window-"))
        self.phone_folder = self.folder / "phone"
        self.processes = []
        self._atspi = None
        self._window = None
        self.watched_window = 0  # by its place among those that are open
        self._set_environment()
        self._start_screen(screen)
        self._start_bus()

    # ------------------------------------------------------------ what stands on it

    def _set_environment(self):
        for name in ("state", "config", "cache", "data", "runtime", "home"):
            (self.folder / name).mkdir(mode=0o700)
        os.environ.update(
            HOME=str(self.folder / "home"),
            XDG_STATE_HOME=str(self.folder / "state"),
            XDG_CONFIG_HOME=str(self.folder / "config"),
            XDG_CACHE_HOME=str(self.folder / "cache"),
            XDG_DATA_HOME=str(self.folder / "data"),
            XDG_RUNTIME_DIR=str(self.folder / "runtime"),
            TMPDIR=str(self.folder),
            USBMUXD_SOCKET_ADDRESS=f"UNIX:{self.folder}/usbmux",
            GSK_RENDERER="cairo",
            GDK_BACKEND="x11",
            LIBGL_ALWAYS_SOFTWARE="1",
            GSETTINGS_BACKEND="memory",
            LC_ALL="C.UTF-8",
            LANGUAGE="en",
        )
        # What has gone is gone at once, and is not found while it fades.
        settings = self.folder / "config" / "gtk-4.0" / "settings.ini"
        settings.parent.mkdir()
        settings.write_text("[Settings]\ngtk-enable-animations=false\n")
        for name in ("WAYLAND_DISPLAY", "GTK_A11Y", "NO_AT_BRIDGE", "AT_SPI_BUS_ADDRESS"):
            os.environ.pop(name, None)

    def _start(self, *command, **options):
        process = subprocess.Popen([str(part) for part in command], start_new_session=True, **options)
        self.processes.append(process)
        return process

    def _start_screen(self, screen):
        reading, writing = os.pipe()
        self._start("Xvfb", "-displayfd", writing, "-screen", "0", screen, "-nolisten", "tcp", "-noreset",
                    pass_fds=[writing], stderr=subprocess.DEVNULL)
        os.close(writing)
        with os.fdopen(reading) as pipe:
            os.environ["DISPLAY"] = ":" + pipe.readline().strip()

    def _start_bus(self):
        bus = self._start("dbus-daemon", "--session", "--nofork", "--print-address=1",
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = bus.stdout.readline().strip()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self._window is not None:
            # So that it has nobody left to tell: the reader ends before what is read.
            self._stop(self._window)
        for process in reversed(self.processes):
            self._stop(process)
            for pipe in (process.stdin, process.stdout):
                if pipe is not None:
                    pipe.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    @staticmethod
    def _stop(process):
        for ending in (signal.SIGTERM, signal.SIGKILL):
            try:
                os.killpg(process.pid, ending)
            except ProcessLookupError:
                pass
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                continue
        process.wait()

    # ------------------------------------------------------------ the phone

    def start_phone(self, *options):
        """One that listens to `tell`."""
        command = [self.bin / "virtualphone", "--root", self.phone_folder, "--name", "My Phone",
                   "--socket", self.folder / "usbmux", "--log", self.folder / "requests.log",
                   "--interactive", *options]
        self._phone = self._start(*command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        while "USBMUXD" not in self._phone.stdout.readline():
            assert self._phone.poll() is None, "the phone did not start"

    def tell_phone(self, command):
        self._phone.stdin.write(command + "\n")
        self._phone.stdin.flush()
        answer = self._phone.stdout.readline().strip()
        assert answer == "ok", answer

    def vesk(self, *arguments):
        subprocess.run([self.bin / "vesk", "--quiet", *arguments], check=True)

    def ringtones_on_phone(self):
        """File contents, those of placeholders apart."""
        folder = self.phone_folder / "iTunes_Control" / "Ringtones"
        contents = [file.read_bytes() for file in folder.glob("*")] if folder.exists() else []
        return sorted(content for content in contents if content)

    # ------------------------------------------------------------ the window

    def start_window(self, *files):
        self._window = self._start(self.bin / "vesk-desktop", *files)
        self._listen()
        return self._window

    def start_unwatched_window(self):
        """One that says nothing to screen readers, which is work too. Its line to ask it over."""
        self._window = self._start(self.bin / "vesk-desktop", env={**os.environ, "GTK_A11Y": "none"})
        line = Line()
        self.wait(lambda: line.can("look-again"), "a window")
        return line

    def wait(self, condition, what):
        """For what nobody tells of."""
        end = time.monotonic() + LONGEST
        while not condition():
            if time.monotonic() > end:
                raise NotSeen(f"{what} did not come")
            assert self._window.poll() is None, f"the window has ended with {self._window.returncode}"
            time.sleep(0.005)

    def pace(self):
        return Pace(self._window.pid)

    def resident_memory(self):
        """In MiB."""
        pages = int(Path(f"/proc/{self._window.pid}/statm").read_text().split()[1])
        return pages * os.sysconf("SC_PAGESIZE") / 2**20

    def close_window(self):
        """As a person does, and waits until it is gone."""
        subprocess.run(["gapplication", "action", "com.korvane.Vesk", "quit"], check=True, timeout=LONGEST)
        assert self._window.wait(LONGEST) == 0

    def kill_window(self):
        self._window.kill()
        self._window.wait()

    def open_in_window(self, *files):
        """As a file manager does: a second process hands its files to the first."""
        subprocess.run([self.bin / "vesk-desktop", *files], check=True, timeout=LONGEST)

    def _listen(self):
        if self._atspi is not None:
            return
        import gi

        gi.require_version("Atspi", "2.0")
        from gi.repository import Atspi, GLib

        Atspi.init()
        self._atspi = Atspi
        self._context = GLib.MainContext.default()
        self._glib = GLib
        self._listener = Atspi.EventListener.new(lambda event: None)
        for event in ("object:children-changed", "object:state-changed", "object:text-changed",
                      "object:property-change", "window:"):
            self._listener.register(event)

    def until(self, condition, what):
        """Waits for a condition; looks anew at each news of the window, and now and then."""
        end = time.monotonic() + LONGEST
        while True:
            try:
                seen = condition()
            except self._glib.Error:
                seen = None  # what was looked at has gone meanwhile
            if seen:
                return seen
            if time.monotonic() > end:
                raise NotSeen(f"{what} was not seen; there is:\n{self.tree()}")
            assert self._window.poll() is None, f"the window has ended with {self._window.returncode}"
            timer = self._glib.timeout_add(200, lambda: True)
            self._context.iteration(True)
            self._glib.source_remove(timer)

    def _applications(self):
        desktop = self._atspi.get_desktop(0)
        desktop.clear_cache()
        for i in range(desktop.get_child_count()):
            application = desktop.get_child_at_index(i)
            if application is not None and application.get_process_id() == self._window.pid:
                yield application

    def _walk(self, node):
        """What there is to see, without what is hidden and all that is in it."""
        if not node.get_state_set().contains(self._atspi.StateType.VISIBLE):
            return
        yield node
        for i in range(node.get_child_count()):
            child = node.get_child_at_index(i)
            if child is not None:
                yield from self._walk(child)

    def nodes(self):
        # One window: GTK 4.8 ends when it is asked for one that has gone since they were counted.
        for application in self._applications():
            application.clear_cache()
            if application.get_child_count() > self.watched_window:
                yield from self._walk(application.get_child_at_index(self.watched_window))

    @staticmethod
    def text_of(node):
        return node.get_name() or ""

    def tree(self):
        lines = []
        try:
            lines = [f"{node.get_role_name()}: {self.text_of(node)!r}" for node in self.nodes()]
        except self._glib.Error as error:
            lines.append(str(error))
        return "\n".join(lines)

    def find(self, name, role):
        # GTK 4.8 calls a button by its label and by what it shows, one after the other.
        names = (name, f"{name} {name}")
        for node in self.nodes():
            if self.text_of(node) in names and (role is None or node.get_role_name() == role):
                return node
        return None

    def see(self, name, role=None):
        return self.until(lambda: self.find(name, role), f"{role or 'something'} “{name}”")

    def see_none(self, name, role=None):
        self.until(lambda: self.find(name, role) is None, f"the end of “{name}”")

    def see_part(self, part):
        return self.until(lambda: next((node for node in self.nodes() if part in self.text_of(node)), None),
                          f"a text with “{part}”")

    def names(self, role):
        return [self.text_of(node) for node in self.nodes() if node.get_role_name() == role]

    def can_press(self, name):
        """The button, when it can be pressed now."""
        roles = ("push button", "toggle button", "menu item")
        node = next(filter(None, (self.find(name, role) for role in roles)), None)
        is_able = node is not None and node.get_state_set().contains(self._atspi.StateType.SENSITIVE)
        return node if is_able else None

    def press(self, name):
        button = self.until(lambda: self.can_press(name), f"a button “{name}” to be pressed")
        assert self._atspi.Action.do_action(button, 0), f"“{name}” could not be pressed"

    def activate(self, action):
        """What stands in the main menu."""
        subprocess.run(["gdbus", "call", "--session", "--dest", "com.korvane.Vesk", "--object-path",
                        "/com/korvane/Vesk/window/1", "--method", "org.gtk.Actions.Activate", action, "[]", "{}"],
                       check=True, stdout=subprocess.DEVNULL, timeout=LONGEST)

    def focused(self):
        """What has the focus: the innermost, for what is within it has it too."""
        focused = [node for node in self.nodes() if node.get_state_set().contains(self._atspi.StateType.FOCUSED)]
        return (focused[-1].get_role_name(), self.text_of(focused[-1])) if focused else None

    def tab_to(self, name, role):
        """Goes from one thing to the next until this one has the focus."""
        self.see(name, role)
        self.take_keys()
        seen = []
        while len(seen) < 30:
            before = self.focused()
            if before == (role, name):
                return
            self.key("Tab")
            seen.append(self.until(lambda: (now := self.focused()) != before and now, "the next focus"))
        raise NotSeen(f"{role} “{name}” does not get the focus, but {seen}")

    def take_keys(self):
        """There is no window manager that would give the window the keys."""
        found = subprocess.run(["xdotool", "search", "--sync", "--onlyvisible", "--pid", str(self._window.pid), ""],
                               check=True, timeout=LONGEST, capture_output=True, text=True)
        subprocess.run(["xdotool", "windowfocus", "--sync", found.stdout.split()[-1]], check=True, timeout=LONGEST)

    def write(self, name, text):
        """Into a field."""
        field = self.until(lambda: self.find(name, "entry") or self.find(name, "text"), f"a field “{name}”")
        assert self._atspi.EditableText.set_text_contents(field, text)

    def set_number(self, name, number):
        """Of a spin button."""
        field = self.see(name, "spin button")
        assert self._atspi.Value.set_current_value(field, number)

    def is_on(self, node):
        states = node.get_state_set()
        return any(states.contains(state) for state in (self._atspi.StateType.CHECKED, self._atspi.StateType.PRESSED))

    def copy(self, *uris):
        """As a file manager copies files."""
        text = "".join(uri + "\r\n" for uri in uris)
        subprocess.run(["xclip", "-selection", "clipboard", "-t", "text/uri-list"], input=text, text=True, check=True,
                       timeout=LONGEST, stdout=subprocess.DEVNULL)

    def copy_text(self, text):
        subprocess.run(["xclip", "-selection", "clipboard"], input=text, text=True, check=True, timeout=LONGEST,
                       stdout=subprocess.DEVNULL)

    def drag_onto_window(self, uri):
        """Another window beside ours, and a function that drags the file from it. It may have to be called again: who
        lets go before the window has said that it takes the file, has not dropped it."""
        source = self._start(sys.executable, "-B", Path(__file__).with_name("drag_source.py"), uri,
                             stdout=subprocess.PIPE, text=True)
        number = source.stdout.readline().strip()
        subprocess.run(["xdotool", "windowmove", "--sync", number, "760", "300"], check=True, timeout=LONGEST)

        def drag():
            moves = [f"mousemove {x} 350" for x in range(840, 300, -20)]
            steps = ["mousemove 860 350", "mousedown 1", *moves, "sleep 0.2", "mouseup 1"]
            self.pointer(*steps)

        return drag

    def type(self, text):
        subprocess.run(["xdotool", "type", "--delay", "5", text], check=True, timeout=LONGEST)

    def key(self, *keys):
        """As from the keyboard."""
        subprocess.run(["xdotool", "key", *keys], check=True)

    def extents(self, node):
        """Within its window, which lies where the screen begins."""
        return self._atspi.Component.get_extents(node, self._atspi.CoordType.WINDOW)

    def narrow(self, width):
        """Makes what is open so wide; nobody else would, without a window manager."""
        found = subprocess.run(["xdotool", "search", "--onlyvisible", "--pid", str(self._window.pid), ""], check=True,
                               timeout=LONGEST, capture_output=True, text=True)
        for number in found.stdout.split():
            subprocess.run(["xdotool", "windowsize", number, str(width), "780"], check=False, timeout=LONGEST)

    def beyond(self, width):
        """What reaches out of a window that is so wide."""
        seen = [node for node in self.nodes()
                if node.get_component_iface() is not None and not self.is_of_scroll_bar(node)]
        assert seen, "there is nothing to be seen"
        reaches = []
        for node in seen:
            extents = self.extents(node)
            # A line around everything has its pixel outside.
            if extents.x < -1 or extents.x + extents.width > width + 1:
                reaches.append(f"{node.get_role_name()} “{self.text_of(node)}”: {extents.x} to {extents.x + extents.width}")
        return reaches

    @staticmethod
    def is_of_scroll_bar(node):
        """One that is not needed any more stays where it was, out of sight."""
        return any(one is not None and one.get_role_name() == "scroll bar" for one in (node, node.get_parent()))

    def pointer(self, *steps):
        """In xdotool's words."""
        subprocess.run(["xdotool", *" ".join(steps).split()], check=True, timeout=LONGEST)

    # ------------------------------------------------------------ for pictures

    def click(self, x, y):
        subprocess.run(["xdotool", "mousemove", str(x), str(y), "click", "1"], check=True)

    @staticmethod
    def settle():
        """So that what slides and fades has arrived. Tests have no use for this."""
        time.sleep(0.7)

    @staticmethod
    def picture(file):
        subprocess.run(f"xwd -root -silent | convert xwd:- {file}", shell=True, check=True)
