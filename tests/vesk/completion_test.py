#!/usr/bin/env python3
"""Completions as a person has them: shells at a terminal, with a phone behind vesk. Manual pages as
groff reads them.

    completion_test.py BUILD SAMPLES [unittest's arguments]
"""
import os
import pty
import re
import select
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

BUILD, SAMPLES = Path(sys.argv[1]), Path(sys.argv[2])
MANUAL = BUILD / "manual"
VESK = BUILD / "bin" / "vesk"


class Terminal:
    """A shell at a terminal, which shows its line at Ctrl-X."""

    def __init__(self, command, setup, folder, environment):
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.chdir(folder)
            os.execvpe(command[0], command, {**environment, "TERM": "dumb", "LC_ALL": "C.UTF-8"})
        self.seen = ""
        self.write(setup + "; echo REA''DY\r")
        self.read_until(r"READY\r?\n")

    def close(self):
        os.close(self.terminal)
        os.waitpid(self.process, 0)

    def write(self, text):
        os.write(self.terminal, text.encode())

    def read_until(self, pattern):
        """What matches the pattern in all that is shown from now on."""
        while True:
            found = re.search(pattern, self.seen)
            if found:
                self.seen = self.seen[found.end():]
                return found
            if not select.select([self.terminal], [], [], 60)[0]:
                raise AssertionError(f"no {pattern!r} in {self.seen!r}")
            self.seen += os.read(self.terminal, 4096).decode(errors="replace")

    def completed(self, line):
        """The line after Tab. Ctrl-U empties it first."""
        self.seen = ""
        self.write("\x15" + line + "\t\x18")
        return self.read_until(r"<<(.*?)>>").group(1)


class Phone(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        phone = subprocess.Popen(
            [BUILD / "bin" / "virtualphone", "--root", cls.folder / "phone", "--", "sh", "-c",
             'echo "$USBMUXD_SOCKET_ADDRESS"; exec cat'],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        cls.addClassCleanup(phone.communicate)
        cls.environment = {
            **os.environ,
            "USBMUXD_SOCKET_ADDRESS": phone.stdout.readline().strip(),
            "XDG_STATE_HOME": str(cls.folder / "state"),
            "PATH": f"{BUILD / 'bin'}:{os.environ['PATH']}",
        }
        for name in ("Marimba", "Old Phone", 'Say "Hi"'):
            subprocess.run([VESK, "-q", "add", "--unchecked", "--name", name, SAMPLES / "harp.m4a"],
                           env=cls.environment, check=True)
        (cls.folder / "work" / "Music").mkdir(parents=True)
        (cls.folder / "work" / "song.flac").touch()


class Interactive:
    """What every shell at a terminal does."""

    def completed(self, line):
        return self.terminal.completed(line)

    def test_commands(self):
        self.assertEqual(self.completed("vesk syn"), "vesk sync ")
        self.assertEqual(self.completed("vesk plugin ins"), "vesk plugin install ")

    def test_options_of_the_command_and_of_all(self):
        self.assertEqual(self.completed("vesk sync --rec"), "vesk sync --recursive ")
        self.assertEqual(self.completed("vesk sync --dry"), "vesk sync --dry-run ")
        self.assertEqual(self.completed("vesk list --rec"), "vesk list --rec")

    def test_values_of_options(self):
        self.assertEqual(self.completed("vesk add --name-from t"), "vesk add --name-from tags ")
        self.assertEqual(self.completed("vesk watch --sync Mu").rstrip("/ "), "vesk watch --sync Music")

    def test_values_behind_an_equals_sign(self):
        self.assertEqual(self.completed("vesk add --name-from=t"), "vesk add --name-from=tags ")
        self.assertEqual(self.completed("vesk --timeout=5 remove Mar"), "vesk --timeout=5 remove Marimba ")

    def test_files_where_files_are_wanted(self):
        self.assertEqual(self.completed("vesk add so"), "vesk add song.flac ")
        self.assertEqual(self.completed("vesk sync so"), "vesk sync so")

    def test_ringtones_of_the_phone(self):
        self.assertEqual(self.completed("vesk remove Mar"), "vesk remove Marimba ")
        self.assertEqual(self.completed("vesk --timeout 5 remove Marimba Old"),
                         "vesk --timeout 5 remove Marimba Old\\ Phone ")
        self.assertEqual(self.completed("vesk remove Say"), 'vesk remove Say\\ \\"Hi\\" ')

    def test_only_the_first_word_behind_replace_is_a_ringtone(self):
        self.assertEqual(self.completed("vesk replace Mar"), "vesk replace Marimba ")
        self.assertEqual(self.completed("vesk replace Marimba so"), "vesk replace Marimba song.flac ")


class Bash(Interactive, Phone):
    def setUp(self):
        self.terminal = Terminal(
            ["bash", "--norc", "--noprofile"],
            f"""source {MANUAL}/bash/vesk; bind 'set bell-style none'; bind 'set enable-bracketed-paste off'; """
            """bind -x '"\\C-x":printf "<%s%s>>\\n" "<" "$READLINE_LINE"'""",
            self.folder / "work", self.environment)
        self.addCleanup(self.terminal.close)


class Zsh(Interactive, Phone):
    def setUp(self):
        self.terminal = Terminal(
            ["zsh", "-f", "-i"],
            f"""fpath=({MANUAL}/zsh $fpath); autoload -U compinit; compinit -u -D; setopt no_beep no_auto_remove_slash; """
            """show() {{ print -r -- "<""<$BUFFER>>" }}; zle -N show; bindkey '^X' show; bindkey '^U' kill-whole-line"""
            .replace("{{", "{").replace("}}", "}"),
            self.folder / "work", self.environment)
        self.addCleanup(self.terminal.close)


class Fish(Phone):
    """Fish says what it would suggest without a terminal."""

    def suggested(self, line):
        said = subprocess.run(
            ["fish", "--no-config", "-c", f"source {MANUAL}/fish/vesk.fish; complete -C '{line}'"],
            env={**self.environment, "HOME": str(self.folder)}, cwd=self.folder / "work",
            capture_output=True, text=True, check=True)
        self.assertEqual(said.stderr, "")
        return sorted(one.split("\t")[0] for one in said.stdout.splitlines())

    def test_commands(self):
        self.assertEqual(self.suggested("vesk sy"), ["sync"])
        self.assertEqual(self.suggested("vesk plugin "), ["install", "run", "status", "validate"])

    def test_options_of_the_command_and_of_all(self):
        self.assertEqual(self.suggested("vesk sync --rec"), ["--recursive"])
        self.assertEqual(self.suggested("vesk sync --dry"), ["--dry-run"])
        self.assertEqual(self.suggested("vesk list --rec"), [])

    def test_values_of_options(self):
        self.assertEqual(self.suggested("vesk add --name-from "), ["file", "tags"])
        self.assertEqual(self.suggested("vesk watch --sync "), ["Music/"])

    def test_files_where_files_are_wanted(self):
        self.assertIn("song.flac", self.suggested("vesk add so"))
        self.assertEqual(self.suggested("vesk sync "), ["Music/"])

    def test_ringtones_of_the_phone(self):
        self.assertEqual(self.suggested("vesk remove "), ["Marimba", "Old Phone", 'Say "Hi"'])
        self.assertEqual(self.suggested("vesk --timeout 5 remove Marimba Old"), ["Old Phone"])

    def test_only_the_first_word_behind_replace_is_a_ringtone(self):
        self.assertEqual(self.suggested("vesk replace "), ["Marimba", "Old Phone", 'Say "Hi"'])
        self.assertNotIn("Marimba", self.suggested("vesk replace Marimba "))


class Pages(unittest.TestCase):
    def test_are_understood_by_groff(self):
        pages = sorted((MANUAL / "man1").iterdir())
        self.assertGreater(len(pages), 20)
        for page in pages:
            said = subprocess.run(["groff", "-ww", "-man", "-Tutf8", "-P-cbou", page], capture_output=True,
                                  text=True, check=True)
            self.assertEqual(said.stderr, "", page.name)
            self.assertIn("DESCRIPTION", said.stdout)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
