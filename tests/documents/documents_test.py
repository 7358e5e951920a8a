#!/usr/bin/env python3
"""The documents: each link leads somewhere, each command in them works and prints what it is said
to print.

    documents_test.py BUILD SOURCE [unittest's arguments]

A block of the language "sh" is run as it stands and has to succeed; a "console" block is typed line by
line, and what each command prints is compared; programs ("cpp") are compiled and run. All have a
folder, a home and, where the document needs one, a virtual phone of their own.
"""
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

from document import anchors_of, blocks_of, commands_of, links_of, pattern_of
from terminal_picture import picture, screen

BUILD, SOURCE = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
DOCUMENTS = sorted([*SOURCE.glob("*.md"), *(SOURCE / "docs").rglob("*.md")])
LONGEST = 120


def blocks(document, *languages):
    return [block for block in blocks_of(SOURCE / document) if block.language in languages]


class Documents(unittest.TestCase):
    def test_links_lead_somewhere(self):
        for document in DOCUMENTS:
            for link in links_of(document):
                if re.match(r"\w+:", link):
                    continue
                with self.subTest(document=document.name, link=link):
                    path, _, anchor = link.partition("#")
                    target = (document.parent / path).resolve() if path else document
                    self.assertTrue(target.exists())
                    if anchor:
                        self.assertIn(anchor, anchors_of(target))

    def test_commands_stand_in_blocks_that_are_run(self):
        for document in DOCUMENTS:
            name = document.relative_to(SOURCE).as_posix()
            self.assertEqual(len(blocks(name, "sh", "console", "cpp")), Commands.RUN.get(name, 0), name)
            for block in blocks(name, ""):
                for line in block.lines:
                    self.assertFalse(line.startswith("$ "), f"{block}: say console")

    def test_what_is_made_is_a_target(self):
        targets = set(re.findall(r"^([\w -]+):(?: |$)", (SOURCE / "Makefile").read_text(), flags=re.M))
        targets = {name for names in targets for name in names.split()}
        for document in DOCUMENTS:
            for name in re.findall(r"(?<=[`\n])make ([a-z-]+)", document.read_text()):
                self.assertIn(name, targets, document)


class Commands(unittest.TestCase):
    """Each document's commands, in the order in which they stand."""
    # How many blocks each has: one that comes needs a test below.
    RUN = {"README.md": 6, "docs/audio.md": 2, "docs/embedding.md": 1, "docs/layouts.md": 1,
           "docs/plugin.md": 1, "docs/vesk.md": 3, "docs/virtual-phone.md": 2}

    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        (self.folder / "home").mkdir()
        (self.folder / "build").mkdir()
        (self.folder / "build" / "debug").symlink_to(BUILD)
        for name in ("samples", "docs", "examples"):
            (self.folder / name).symlink_to(SOURCE / name)
        self.environment = {
            **os.environ, "PATH": f"{BUILD / 'bin'}:{os.environ['PATH']}", "TERM": "dumb",
            "HOME": str(self.folder / "home"), "XDG_STATE_HOME": str(self.folder / "home/state"),
            "XDG_CACHE_HOME": str(self.folder / "home/cache")}
        # What a person's path, home, phone and socket are called here.
        self.called = {"/tmp/phone": str(self.folder / "phone"),
                       "/home/me": str(self.folder / "home"), "5f0c": ""}

    def here(self, text):
        for theirs, ours in self.called.items():
            text = text.replace(theirs, ours)
        return text

    def plug_in(self, *options):
        """A virtual phone for all commands that follow."""
        socket = self.folder / "usbmux"
        phone = subprocess.Popen(["virtualphone", "--root", self.folder / "phone", "--name", "My Phone",
                                  "--socket", socket, "--interactive", *options],
                                 env=self.environment, stdin=subprocess.PIPE,
                                 stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                                 bufsize=1)
        self.addCleanup(phone.communicate, "quit\n")
        self.assertIn("USBMUXD_SOCKET_ADDRESS", phone.stdout.readline())
        self.phone = phone
        self.environment["USBMUXD_SOCKET_ADDRESS"] = f"UNIX:{socket}"
        self.called["/var/run/usbmuxd"] = str(socket)

    def tell(self, command):
        """Has the phone do something."""
        self.phone.stdin.write(command + "\n")
        self.assertEqual(self.phone.stdout.readline(), "ok\n")

    def song(self, path):
        """A song of two tones, four minutes long."""
        path.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                        "aevalsrc=0.3*sin(2*PI*440*t)|0.3*sin(2*PI*554*t):s=44100:d=240",
                        "-metadata", "title=Söng (Me & I)", "-sample_fmt", "s32",
                        "-bits_per_raw_sample", "24", path], check=True, env=self.environment)

    def run_all(self, block):
        """A block of sh: all its lines, by one shell that ends at the first failure. A shell that a
        line opens has the lines below it."""
        done = subprocess.run(["bash", "-s"], input=self.here(block.text), cwd=self.folder,
                              env={**self.environment, "SHELLOPTS": "errexit"}, timeout=LONGEST,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.assertEqual(done.returncode, 0, f"{block}:\n{done.stdout}")
        return done.stdout

    def type_all(self, block):
        """A console block: what is printed is what the block shows."""
        for command in commands_of(block):
            done = subprocess.run(["bash", "-c", self.here(command.typed)], cwd=self.folder,
                                  env=self.environment, timeout=LONGEST, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, text=True)
            shown = [self.here(line) for line in command.printed]
            self.assertIsNotNone(pattern_of(shown).fullmatch(done.stdout),
                                 f"{block}: {command.typed} prints\n{done.stdout}")

    def type_until(self, block, *deeds):
        """A console block of one command that runs until Ctrl-C. Each deed is done once the lines
        that the block shows before it have come: pairs of a number of lines and what to do then."""
        (command,) = commands_of(block)
        shown = [self.here(line) for line in command.printed]
        # The shell has the command in its place, so that it is the one to be interrupted.
        running = subprocess.Popen(["bash", "-c", "exec " + self.here(command.typed)],
                                   cwd=self.folder, env=self.environment, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, text=True)
        deeds, printed = dict(deeds), []
        try:
            while len(printed) < len(shown):
                line = running.stdout.readline()
                self.assertNotEqual(line, "", f"{block} has ended after\n{''.join(printed)}")
                printed.append(line)
                deeds.pop(len(printed), lambda: None)()
        finally:
            running.send_signal(signal.SIGINT)
            rest, _ = running.communicate(timeout=LONGEST)
        self.assertEqual(deeds, {})
        self.assertEqual(rest, "")
        self.assertIsNotNone(pattern_of(shown).fullmatch("".join(printed)),
                             f"{block} prints\n{''.join(printed)}")

    # ------------------------------------------------------------------------- README.md

    def readme(self, beginning):
        """The block whose text begins so."""
        found = [block for block in blocks("README.md", "sh") if block.text.startswith(beginning)]
        self.assertEqual(len(found), 1, beginning)
        return found[0]

    def test_readme_try_it(self):
        block = self.readme("build/debug/bin/virtualphone")
        # Nobody listens, and there may be no sound device.
        play = block.lines.index(next(line for line in block.lines if " play " in line))
        block.lines[play] = block.lines[play].split("#")[0] + " --sink fakesink"
        printed = self.run_all(block)
        self.assertIn("6 added", printed)
        self.assertIn("Lyre", printed)
        self.assertEqual(len(list((self.folder / "mine").iterdir())), 6)

    def test_readme_the_terminal_in_the_picture_is_real(self):
        self.assertEqual((SOURCE / "docs/pictures/terminal.svg").read_text(),
                         picture(screen(BUILD, SOURCE)))

    def test_readme_songs(self):
        self.plug_in()
        self.song(self.folder / "song.flac")
        self.song(self.folder / "Music" / "one" / "other.flac")
        block = self.readme("vesk add song.flac")
        # That a song does not play as it is, is an answer and a status of its own.
        inspect = block.lines.index(next(line for line in block.lines if " inspect " in line))
        block.lines[inspect] = block.lines[inspect].split("#")[0] + " || [ $? = 52 ]"
        printed = self.run_all(block)
        self.assertIn("1 added", printed)
        self.assertTrue((self.folder / "song.m4r").stat().st_size > 0)

    def test_readme_a_folder_follows_its_phone(self):
        self.plug_in()
        block = self.readme("vesk watch --sync")
        (self.folder / "home" / "Ringtones").mkdir()
        shutil.copy(SOURCE / "samples" / "sunrise.m4r", self.folder / "home" / "Ringtones")
        (line,) = block.lines
        watching = subprocess.Popen(["bash", "-c", "exec " + line], cwd=self.folder,
                                    env=self.environment, stdout=subprocess.PIPE,
                                    stderr=subprocess.DEVNULL, text=True)
        try:
            while "1 added" not in (said := watching.stdout.readline()):
                self.assertNotEqual(said, "")
        finally:
            watching.send_signal(signal.SIGINT)
            watching.communicate(timeout=LONGEST)
        self.assertEqual(watching.returncode, 0)

    def test_readme_a_real_phone(self):
        self.plug_in("--unpaired")
        self.assertIn("My Phone", self.run_all(self.readme("vesk pair")))

    def test_readme_building_against_it(self):
        prefix = self.folder / "prefix"
        subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True,
                       stdout=subprocess.DEVNULL)
        libraries = next(prefix.rglob("libKRLVesk.so")).parent
        self.environment["PKG_CONFIG_PATH"] = str(libraries / "pkgconfig")
        self.run_all(self.readme("gcc examples/ringtones.c"))
        self.assertTrue((self.folder / "ringtones").exists())

    # ------------------------------------------------------------------------- docs

    def test_audio(self):
        self.song(self.folder / "song.flac")
        shutil.copy(SOURCE / "samples" / "sunrise.m4r", self.folder)
        for block in blocks("docs/audio.md", "console"):
            self.type_all(block)

    def test_embedding(self):
        (block,) = blocks("docs/embedding.md", "cpp")
        program, source = self.folder / "program", self.folder / "program.cpp"
        source.write_text(block.text)
        subprocess.run(["g++", "-std=c++20", source, "-o", program, f"-I{SOURCE}/include",
                        f"-I{SOURCE}/mobiledevice/include", f"-I{SOURCE}/corefoundation/include",
                        f"-L{BUILD}/bin", "-lKRLVesk", "-lKRLCoreFoundation"], check=True)
        self.plug_in()
        self.environment["LD_LIBRARY_PATH"] = str(BUILD / "bin")
        for file in ("sunrise.m4r", "harp.m4a"):
            subprocess.run(["vesk", "-q", "add", SOURCE / "samples" / file], check=True,
                           env=self.environment)
        done = subprocess.run([program], env=self.environment, capture_output=True, text=True,
                              timeout=LONGEST)
        self.assertEqual((done.stdout, done.stderr), ("Harp\nSunrise 🌅\n", ""))

    def test_layouts(self):
        for block in blocks("docs/layouts.md", "console"):
            self.type_all(block)

    def test_layouts_drawn_table_is_the_firmwares(self):
        drawn = [block for block in blocks("docs/layouts.md", "") if block.text.startswith("slot")]
        self.assertEqual(len(drawn), 2)
        before = json.loads(subprocess.run(
            ["vesk", "check", "--json", SOURCE / "docs/layouts/drawn.plist"], env=self.environment,
            capture_output=True, text=True).stdout)
        self.assertEqual(slots_of(drawn[0]), {entry["slot"]: entry["file"] for entry in before["order"]})

        self.plug_in()
        for name, file in (("Bell", "tick.wav"), ("Horn", "tick.wav"), ("Lyre", "sunrise.m4r")):
            shutil.copy(SOURCE / "samples" / file, self.folder / (name + Path(file).suffix))
        subprocess.run(["vesk", "-q", "add", "--name-from", "file", "Bell.wav", "Horn.wav", "Lyre.m4r"],
                       cwd=self.folder, env=self.environment, check=True)
        catalogue = self.folder / "phone/iTunes_Control/iTunes/Ringtones.plist"
        after = json.loads(subprocess.run(["vesk", "check", "--json", catalogue], check=True,
                                          env=self.environment, capture_output=True).stdout)
        self.assertEqual(slots_of(drawn[1]), {entry["slot"]: entry["file"] for entry in after["order"]})

    def test_plugin(self):
        (block,) = blocks("docs/plugin.md", "sh")
        bus = subprocess.Popen(["dbus-daemon", "--session", "--print-address", "--nofork"],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                               env=self.environment)
        self.addCleanup(bus.stdout.close)
        self.addCleanup(bus.wait)
        self.addCleanup(bus.terminate)
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = bus.stdout.readline().strip()
        asking = subprocess.Popen(["vesk", "plugin", "validate", "--json"], env=self.environment,
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        while asking.poll() is None:
            self.run_all(block)
            time.sleep(0.2)
        printed, said = asking.communicate()
        self.assertEqual(json.loads(printed), {"running": True}, said)

    def test_vesk_doctor(self):
        block = self.vesk_block("vesk doctor")
        self.plug_in("--fault", "lockdown/ValidatePair#1+=error:InvalidHostID")
        self.type_all(block)

    def test_vesk_watch(self):
        block = self.vesk_block("vesk watch")
        ringtones = self.folder / "home" / "Ringtones"
        ringtones.mkdir()
        for file in ("harp.m4a", "horn.aiff"):
            shutil.copy(SOURCE / "samples" / file, ringtones)
        self.plug_in()
        subprocess.run(["vesk", "-q", "sync", ringtones], env=self.environment, check=True)
        new = ringtones / "sunrise.m4r"
        self.type_until(block, (3, lambda: shutil.copy(SOURCE / "samples" / "sunrise.m4r", new)),
                        (5, lambda: self.tell("unplug")))

    def test_vesk_service(self):
        (block,) = blocks("docs/vesk.md", "sh")
        stubs = self.folder / "stubs"
        stubs.mkdir()
        for name in ("systemctl", "journalctl"):
            (stubs / name).write_text(f'#!/bin/sh\necho {name} "$@"\n')
            (stubs / name).chmod(0o755)
        self.environment["PATH"] = f"{stubs}:{self.environment['PATH']}"
        printed = self.run_all(block).splitlines()
        self.assertEqual(len(printed), 3)
        for line in printed:
            self.assertRegex(line, r"--user .*-?\bvesk-watch@.*-Ringtones\.service")
        self.assertTrue((SOURCE / "packaging/systemd/vesk-watch@.service.in").exists())

    def test_vesk_answers_in_json(self):
        """An example has the keys of a real answer, and none is kept back but those that the text
        names."""
        self.plug_in("--unpaired")
        for file in ("sunrise.m4r", "bells.mp3"):
            shutil.copy(SOURCE / "samples" / file, self.folder)
        self.song(self.folder / "song.flac")
        text = (SOURCE / "docs/vesk.md").read_text()
        named = set(re.findall(r'"(\w+)"', text))
        examples = {block.line: json.loads(block.text) for block in blocks("docs/vesk.md", "json")}
        titles = {title: line for line in examples for title in titles_above(text, line)}
        compared = set()
        for title, command in (
                ("pair", "pair"), ("sync", "add sunrise.m4r bells.mp3"), ("devices", "devices"),
                ("info", "info"), ("list", "list"), ("get", "get 'Sunrise 🌅' -o mine"),
                ("play", "play ./sunrise.m4r --sink fakesink"), ("undo", "undo"),
                ("history", "history"), ("backup", "backup copy"), ("doctor", "doctor"),
                ("inspect", "inspect song.flac"), ("prepare", "prepare song.flac"),
                ("check", "check docs/layouts/drawn.plist"), ("plugin status", "plugin status"),
                ("Errors", "get Nothing")):
            if title == "doctor":
                self.tell("forget-hosts")
            done = subprocess.run(["bash", "-c", f"vesk --json {command}"], cwd=self.folder,
                                  env=self.environment, capture_output=True, text=True)
            with self.subTest(command=command):
                answer, example = json.loads(done.stdout), examples[titles[title]]
                self.assertEqual(keys_of(example) - keys_of(answer), set())
                self.assertLessEqual({key.split("/")[-1] for key in keys_of(answer)}, named)
            compared.add(titles[title])
        # What is said of a ringtone that was put right needs a damaged phone.
        self.assertEqual([list(examples[line]) for line in examples if line not in compared],
                         [["repaired"]])

    def vesk_block(self, command):
        found = [block for block in blocks("docs/vesk.md", "console")
                 if block.text.startswith(f"$ {command}")]
        self.assertEqual(len(found), 1, command)
        return found[0]

    def test_the_virtual_phone(self):
        (block,) = blocks("docs/virtual-phone.md", "sh")
        self.assertIn("DeviceName: My Phone", self.run_all(block))
        (block,) = blocks("docs/virtual-phone.md", "console")
        self.type_until(block)


def titles_above(text, line):
    """What the last words before a block say it is: commands, or the first word."""
    above = next(words for words in reversed(text.splitlines()[:line - 1]) if words)
    return re.findall(r"`([\w ]+)`", above) or [re.match(r"\w+", above).group()]


def keys_of(answer, path=""):
    """Each key of an answer, with those that lead to it."""
    if isinstance(answer, list):
        return {key for item in answer for key in keys_of(item, path)}
    if not isinstance(answer, dict):
        return set()
    below = {key for name, value in answer.items() for key in keys_of(value, f"{path}/{name}")}
    return below | {f"{path}/{name}" for name in answer}


def slots_of(block):
    """Slot to file name, of a table that is drawn in a block."""
    slots, columns = {}, []
    for line in block.lines:
        if line.startswith("slot"):
            columns = [(match.start(), int(match.group())) for match in re.finditer(r"\d+", line)]
        for match in re.finditer(r"\w+\.\w+", line):
            slots[dict(columns)[match.start()]] = match.group()
    return slots


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
