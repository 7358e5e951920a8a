"""A virtual phone for each test, and vesk to ask beside the module."""
import ctypes
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

BUILD, SOURCE = Path(sys.argv[1]), Path(sys.argv[2])
SAMPLES = SOURCE / "samples"
BIN = BUILD / "bin"
LONGEST = 120  # seconds; what takes longer does not come

import krlvesk  # noqa: E402  PYTHONPATH leads to the build tree


def main():
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])


class VirtualPhone:
    """One that listens to commands."""

    def __init__(self, folder, *options):
        self.root = folder / "phone"
        self.log_file = folder / "requests.log"
        self.socket = folder / "usbmux"
        self._process = subprocess.Popen(
            [BIN / "virtualphone", "--root", self.root, "--name", "My Phone", "--socket", self.socket,
             "--log", self.log_file, "--interactive", *options],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        while "USBMUXD" not in (line := self._process.stdout.readline()):
            assert line, "the phone did not start"

    def tell(self, command):
        self._process.stdin.write(command + "\n")
        self._process.stdin.flush()
        answer = self._process.stdout.readline().strip()
        assert answer == "ok", answer

    def log(self):
        return [json.loads(line) for line in self.log_file.read_text().splitlines()]

    def silenced(self):
        """How many requests a fault has left without an answer."""
        return self.log_file.read_text().count('"silent"')

    def wait_for_silence(self, before):
        """Until there are more than so many."""
        while self.silenced() <= before:
            time.sleep(0.001)

    def files(self):
        """What the ringtone folder holds, without empty placeholders."""
        folder = self.root / "iTunes_Control" / "Ringtones"
        contents = {file.name: file.read_bytes() for file in folder.glob("*")} if folder.exists() else {}
        return {name: content for name, content in contents.items() if content}

    def catalogue(self):
        file = self.root / "iTunes_Control" / "iTunes" / "Ringtones.plist"
        return file.read_bytes() if file.exists() else None

    def close(self):
        self._process.terminate()
        self._process.wait(LONGEST)
        self._process.stdin.close()
        self._process.stdout.close()


def set_call_timeout(milliseconds):
    """How long the device layer waits for a silent phone."""
    library = ctypes.CDLL(BIN / "libKRLVesk.so.0")
    function = ctypes.CFUNCTYPE(None, ctypes.c_uint32).in_dll(library, "AMDeviceSetCallTimeout")
    function(milliseconds)


class PhoneTest(unittest.TestCase):
    options = ()

    def setUp(self):
        self.folder = Path(tempfile.mkdtemp(prefix="krlvesk-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.phone = VirtualPhone(self.folder, *self.options)
        self.addCleanup(self.phone.close)
        for name in ("state", "cache"):
            (self.folder / name).mkdir(mode=0o700)
        os.environ.update(
            HOME=str(self.folder),
            XDG_STATE_HOME=str(self.folder / "state"),
            XDG_CACHE_HOME=str(self.folder / "cache"),
            USBMUXD_SOCKET_ADDRESS=f"UNIX:{self.phone.socket}")

    def open(self):
        """The phones, until the test ends."""
        phones = krlvesk.Phones()
        self.addCleanup(phones.close)
        return phones

    def silence_for_ever(self, requests="lockdown"):
        """Whoever waits for an answer now waits for an hour, which is longer than any test takes."""
        set_call_timeout(3_600_000)
        self.addCleanup(set_call_timeout, 10_000)
        self.phone.tell(f"fault {requests}#1+=silent")

    def interrupt(self, call):
        """Ctrl-C while the phone is asked."""
        before = self.phone.silenced()

        def interrupt():
            self.phone.wait_for_silence(before)
            os.kill(os.getpid(), signal.SIGINT)

        thread = threading.Thread(target=interrupt)
        thread.start()
        with self.assertRaises(KeyboardInterrupt):
            call()
        thread.join(LONGEST)

    def vesk(self, *arguments):
        """What vesk answers in JSON, and what it ends with."""
        done = subprocess.run([BIN / "vesk", "--json", *map(str, arguments)], capture_output=True, text=True,
                              timeout=LONGEST)
        return done.returncode, json.loads(done.stdout) if done.stdout else None

    def names(self):
        """Of the phone's ringtones, by vesk."""
        return [one["name"] for one in self.vesk("list")[1]["ringtones"]]

    def put(self, *songs):
        """Songs of the samples on the phone."""
        code, _ = self.vesk("add", *(SAMPLES / song for song in songs))
        self.assertEqual(code, 0)

    def assert_lock_is_free(self):
        """Another program's sync gets it."""
        done = subprocess.run([BIN / "vesk", "rename", self.names()[0], "Renamed"], capture_output=True, text=True,
                              timeout=LONGEST)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def assert_refused_as_by_vesk(self, error, *arguments):
        code, document = self.vesk(*arguments)
        said = document["error"]
        self.assertEqual(
            (error.code, error.name, error.message, error.advice, sorted(error.details)),
            (code, said["name"], said["message"], said["hint"], sorted(said["details"])))
