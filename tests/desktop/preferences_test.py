#!/usr/bin/python3
"""The preferences as a person who cannot see them uses them.

    preferences_test.py BUILD SAMPLES [unittest's arguments]
"""
import json
import subprocess
import sys
import unittest
from pathlib import Path

from window_test import BELLS, BUILD, HARP, SUNRISE, KeptEdits, Window


class Preferences(Window):
    SWITCH = "check box"

    def setUp(self):
        super().setUp()
        if not (Path(BUILD) / "bin" / "vesk-prepare").exists():
            self.skipTest("built without FFmpeg")
        self.file = self.stage.folder / "config" / "krlvesk" / "preferences.json"

    def open_preferences(self):
        self.stage.see("Add", "push button")
        self.stage.activate("preferences")
        self.stage.watched_window = 1
        self.stage.see("Length", "spin button")

    def leave_preferences(self):
        self.stage.take_keys()
        self.stage.key("Escape")
        self.stage.watched_window = 0

    def choose(self, **kept):
        """Waits until that is on the disk."""
        self.stage.until(lambda: self.file.exists() and kept.items() <= json.loads(self.file.read_text()).items(),
                         f"{kept} among what is kept")

    def seconds_on_phone(self):
        """How long its ringtones are."""
        lengths = []
        for sound in self.stage.ringtones_on_phone():
            file = self.stage.folder / "ringtone.m4r"
            file.write_bytes(sound)
            found = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0",
                                    file], check=True, capture_output=True, text=True)
            lengths.append(round(float(found.stdout)))
        return sorted(lengths)

    def test_of_new_ringtones_hold_for_songs_that_are_added_afterwards(self):
        self.start()
        self.stage.see("No Ringtones Yet")
        self.stage.open_in_window(self.song("Before", seconds=45))
        self.stage.see_part("0:30 · ")
        self.open_preferences()
        self.stage.set_number("Length", 12)
        self.choose(seconds=12)
        self.leave_preferences()
        self.stage.open_in_window(self.song("Afterwards", seconds=45))
        self.stage.see_part("0:12 · ")
        # Also when the window makes them anew.
        KeptEdits.start_again(self)
        self.stage.see_part("0:30 · ")
        self.stage.see_part("0:12 · ")
        self.stage.press("Sync 2")
        self.stage.see("2 ringtones added")
        self.assertEqual(self.seconds_on_phone(), [12, 30])

    def test_are_there_when_the_window_is_opened_with_songs(self):
        self.file.parent.mkdir()
        self.file.write_text('{"version": 1, "seconds": 7, "level": false}')
        self.stage.start_phone()
        self.stage.start_window()
        self.stage.see("No Ringtones Yet")
        song = self.song("Long Walk", seconds=45)
        self.stage.open_in_window(song)
        self.stage.see_part("0:07 · ")
        self.stage.press("Edit “Long Walk”")
        self.stage.watched_window = 1
        self.stage.see("End 0:07.0", "slider")
        loudness = self.stage.see("As loud as the others", self.SWITCH)
        self.assertFalse(self.stage.is_on(loudness))

    def test_of_the_loudness_are_kept(self):
        self.start()
        self.open_preferences()
        self.assertTrue(self.stage.is_on(self.stage.see("As Loud as the Others", self.SWITCH)))
        self.stage.tab_to("As Loud as the Others", self.SWITCH)
        self.stage.key("space")
        self.choose(level=False)
        self.leave_preferences()
        KeptEdits.start_again(self)
        self.open_preferences()
        self.assertFalse(self.stage.is_on(self.stage.see("As Loud as the Others", self.SWITCH)))

    def syncs_to_undo(self):
        shown = subprocess.run([self.stage.bin / "vesk", "--json", "history"], check=True, capture_output=True)
        return len(json.loads(shown.stdout)["jobs"])

    def test_of_copies_hold_with_the_next_sync(self):
        self.stage.start_phone()
        for _ in range(2):
            self.stage.vesk("add", HARP)
            self.stage.vesk("remove", "Harp")
        self.assertEqual(self.syncs_to_undo(), 4)
        self.stage.start_window()
        self.stage.see("No Ringtones Yet")
        self.open_preferences()
        self.stage.set_number("Syncs That Can Be Undone", 2)
        self.choose(keptSyncs=2)
        self.leave_preferences()
        self.assertEqual(self.syncs_to_undo(), 4)
        self.stage.open_in_window(SUNRISE)
        self.stage.press("Sync 1")
        self.stage.see("1 ringtone added")
        self.assertEqual(self.syncs_to_undo(), 2)
        # Others go by it too.
        self.stage.vesk("add", BELLS)
        self.assertEqual(self.syncs_to_undo(), 2)

    def test_that_are_damaged_are_said_and_the_usual_ones_hold(self):
        self.file.parent.mkdir()
        self.file.write_text('{"version": 1, "seconds": 7')
        self.start(HARP)
        self.stage.see("Your preferences cannot be read; the usual ones are used")
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(self.song("Long Walk", seconds=45))
        self.stage.see_part("0:30 · ")
        self.assertEqual(self.file.read_text(), '{"version": 1, "seconds": 7')

    def test_typed_and_left_by_escape_hold(self):
        self.start()
        self.stage.see("No Ringtones Yet")
        self.stage.take_keys()
        self.stage.key("ctrl+comma")
        self.stage.watched_window = 1
        self.stage.tab_to("Length", "spin button")
        self.stage.key("ctrl+a", "2", "1", "Escape")
        self.choose(seconds=21)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
