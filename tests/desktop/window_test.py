#!/usr/bin/python3
"""The window as a person who cannot see it uses it: by what it says of itself to a screen reader.

    window_test.py BUILD SAMPLES [unittest's arguments]
"""
import array
import gettext
import json
import os
import plistlib
import subprocess
import sys
import time
import unittest
import wave
from pathlib import Path

from stage import Stage

BUILD, SAMPLES = sys.argv[1], Path(sys.argv[2])
HARP, BELLS, SUNRISE = SAMPLES / "harp.m4a", SAMPLES / "bells.mp3", SAMPLES / "sunrise.m4r"


class Window(unittest.TestCase):
    def setUp(self):
        self.stage = Stage(BUILD)
        self.addCleanup(self.stage.__exit__)

    def start(self, *ringtones, phone=()):
        """The window over a phone with these ringtones."""
        self.stage.start_phone(*phone)
        if ringtones:
            self.stage.vesk("add", *ringtones)
        self.stage.start_window()

    def song(self, name, seconds):
        file = self.stage.folder / f"{name}.wav"
        with wave.open(str(file), "wb") as sound:
            sound.setparams((1, 2, 8000, 0, "NONE", ""))
            sound.writeframes(bytes(range(250)) * 64 * seconds)
        return file

    def pause_at_the_beginning_of(self, sync):
        self.stage.see(sync, "push button")
        self.stage.tell_phone("silence")
        self.stage.press(sync)
        self.stage.press("Pause")
        self.stage.see("Continue", "push button")
        self.stage.tell_phone("talk")
        self.stage.see("Paused")

    def pause_before_the_first_file(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(SUNRISE, BELLS)
        self.pause_at_the_beginning_of("Sync 2")
        self.assert_phone_holds(HARP)

    def assert_phone_holds(self, *files):
        self.assertEqual(self.stage.ringtones_on_phone(), sorted(file.read_bytes() for file in files))


class Phones(Window):
    def test_without_one_say_what_to_plug_in(self):
        self.stage.start_window()
        self.stage.see("Plug In an iPhone")

    def test_appear_when_they_are_plugged_in(self):
        self.start(phone=["--unplugged"])
        self.stage.see("Plug In an iPhone")
        self.stage.tell_phone("plug")
        self.stage.see("My Phone")
        self.stage.see("No Ringtones Yet")

    def test_show_name_firmware_space_and_ringtones(self):
        self.stage.start_phone("--free-bytes", "500m", "--total-bytes", "1000m")
        self.stage.vesk("add", HARP, BELLS)
        self.stage.start_window()
        self.stage.see("Harp", "list item")
        self.assertEqual(self.stage.names("list item"), ["Glöckchen", "Harp"])
        self.stage.see("My Phone")
        self.stage.see_part("Firmware 1.1.1 · ")
        self.stage.see("2 ringtones")

    def test_that_are_not_paired_are_paired_by_a_button(self):
        self.start(phone=["--unpaired", "--session", "ssl3"])
        self.stage.see("“My Phone” does not know this computer")
        self.stage.press("Pair")
        self.stage.see("No Ringtones Yet")

    def test_of_another_kind_are_said_to_be(self):
        self.start(phone=["--class", "iPod"])
        self.stage.see("“My Phone” is not an iPhone")

    def choose_phone(self, name):
        self.stage.tab_to("Phone", "push button")
        self.stage.key("space")
        self.stage.press(name)

    def start_two(self):
        self.stage.start_phone("--root", self.stage.folder / "other", "--name", "Old Phone")
        self.stage.vesk("add", "--udid", "My Phone", HARP)
        self.stage.vesk("add", "--udid", "Old Phone", BELLS)
        self.stage.start_window()
        self.stage.see("Phone", "push button")
        self.choose_phone("My Phone")
        self.stage.press("Remove “Harp”")
        self.stage.see("Sync 1", "push button")

    def test_are_chosen_from_the_title(self):
        self.start_two()
        self.choose_phone("Old Phone")
        self.stage.see("Glöckchen", "list item")
        self.stage.see_none("Sync 1", "push button")
        # What is said of one is taken back there.
        self.stage.press("Undo")
        self.choose_phone("My Phone")
        self.stage.see("Remove “Harp”", "push button")

    def test_are_gone_back_to_by_the_undo_of_their_sync(self):
        self.start_two()
        self.stage.press("Sync 1")
        self.stage.see("1 removed")
        self.choose_phone("Old Phone")
        self.stage.see("Glöckchen", "list item")
        self.stage.press("Undo")
        self.stage.see_part("Undone: ")
        self.stage.see("Harp", "list item")
        self.assert_phone_holds(HARP)

    def test_that_are_unplugged_keep_their_changes(self):
        self.start(HARP)
        self.stage.press("Remove “Harp”")
        self.stage.see("Sync 1", "push button")
        self.stage.tell_phone("unplug")
        self.stage.see("“My Phone” Is Unplugged")
        self.stage.tell_phone("plug")
        self.stage.see("Sync 1", "push button")
        self.stage.see("Keep “Harp”", "push button")
        self.assert_phone_holds(HARP)


class Edits(Window):
    def test_add_a_file_and_sync_it(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(SUNRISE)
        self.stage.see("1 new (6.0 KiB)")
        self.stage.press("Sync 1")
        self.stage.see("1 ringtone added")
        self.assert_phone_holds(HARP, SUNRISE)
        self.stage.see("2 ringtones")

    def test_remove_and_undo(self):
        self.start(HARP)
        self.stage.press("Remove “Harp”")
        self.stage.see("1 to be removed")
        self.stage.press("Undo")
        self.stage.see("1 ringtone")
        self.stage.see("Remove “Harp”", "push button")

    def test_of_a_folder_bring_what_is_in_it(self):
        self.start()
        self.stage.see("No Ringtones Yet")
        self.stage.open_in_window(SAMPLES)
        self.stage.see("Sync 6", "push button")
        self.assertIn("make", self.stage.names("list item"))

    def test_paste_copied_files(self):
        self.start(HARP)
        self.stage.copy(SUNRISE.resolve().as_uri(), BELLS.resolve().as_uri())
        self.stage.tab_to("Add", "push button")
        self.stage.key("ctrl+v")
        self.stage.see("Sync 2", "push button")
        self.assertEqual(self.stage.names("list item"), ["Glöckchen", "Harp", "Sunrise 🌅"])

    def test_take_dropped_files(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        drag = self.stage.drag_onto_window(SUNRISE.resolve().as_uri())

        def dropped():
            drag()
            return self.stage.find("Sunrise 🌅", "list item")

        self.stage.until(dropped, "what was dropped")
        self.stage.see_part(" new (")

    def test_add_chosen_files(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        self.stage.tab_to("Add", "push button")
        self.stage.key("space")
        self.stage.watched_window = 1
        self.stage.see("Add Ringtones")
        self.stage.type(str(SUNRISE.resolve()))
        self.stage.key("Return")
        self.stage.watched_window = 0
        self.stage.see("Sync 1", "push button")
        self.stage.see("Sunrise 🌅", "list item")

    def test_leave_out_files_of_other_computers(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        self.stage.open_in_window("sftp://example.invalid/song.mp3", SUNRISE)
        self.stage.see("What is not on this computer has to be copied to it first")
        self.stage.see("Sync 1", "push button")

    def test_make_a_ringtone_of_a_song(self):
        if not (Path(BUILD) / "bin" / "vesk-prepare").exists():
            self.skipTest("built without FFmpeg")
        self.start()
        self.stage.see("No Ringtones Yet")
        self.stage.open_in_window(self.song("Long Walk", seconds=45))
        self.stage.see("Long Walk", "list item")
        self.stage.press("Sync 1")
        self.stage.see("1 ringtone added")
        [ringtone] = self.stage.ringtones_on_phone()
        self.assertEqual(ringtone[4:8], b"ftyp")

    def test_hold_back_what_has_a_name_that_is_taken(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(HARP)
        self.stage.see("There is a ringtone of this name already")
        self.stage.press("Remove “Harp”")
        self.stage.see("1 new (5.3 KiB), 1 to be removed")


class Names(Window):
    def catalogue(self):
        """The phone's own: names, files and GUIDs."""
        file = self.stage.phone_folder / "iTunes_Control" / "iTunes" / "Ringtones.plist"
        entries = plistlib.loads(file.read_bytes())["Ringtones"]
        return {(entry["Name"], name, entry["GUID"]) for name, entry in entries.items()}

    def rename(self, old, new):
        self.stage.press(f"Rename “{old}”")
        self.stage.write(f"Name of “{old}”", new)
        self.stage.press("Take This Name")

    def test_on_the_phone_are_given_by_a_sync(self):
        # A later firmware may have its file moved on the phone, for the order in which it reads them.
        self.start(HARP, BELLS, phone=["--firmware", "1.0"])
        self.stage.see("Harp", "list item")
        before = self.catalogue()
        self.rename("Harp", "Harfe")
        self.stage.see("Harfe", "list item")
        self.stage.see_part("Was “Harp” · ")
        self.stage.see("1 to be renamed")
        self.assertEqual(self.catalogue(), before)
        self.stage.press("Sync 1")
        self.stage.see("1 renamed")
        after = self.catalogue()
        self.assertEqual(after, {("Harfe" if name == "Harp" else name, *rest) for name, *rest in before})
        self.assert_phone_holds(HARP, BELLS)
        self.stage.press("Undo")
        self.stage.see_part("Undone: ")
        self.stage.see("Harp", "list item")
        self.assertEqual(self.catalogue(), before)

    def test_are_taken_back_before_a_sync(self):
        self.start(HARP)
        self.rename("Harp", "Harfe")
        self.stage.see("“Harp” is called “Harfe” now")
        self.stage.press("Undo")
        self.stage.see("Rename “Harp”", "push button")
        self.stage.see("1 ringtone")
        self.rename("Harp", "Laute")
        self.rename("Laute", "Harp")
        self.stage.see("Rename “Harp”", "push button")
        self.stage.see("1 ringtone")

    def test_that_others_have_are_refused_where_they_are_typed(self):
        self.start(HARP, BELLS)
        self.stage.press("Rename “Harp”")
        self.stage.write("Name of “Harp”", "Glöckchen")
        self.stage.see("There is a ringtone of this name already")
        self.assertFalse(self.stage.can_press("Take This Name"))
        self.stage.write("Name of “Harp”", " ")
        self.stage.see("A ringtone needs a name")

    def test_of_songs_let_them_go_beside_what_the_phone_has(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(SUNRISE)
        self.rename("Sunrise 🌅", "Morning")
        self.stage.press("Sync 1")
        self.stage.see("1 ringtone added")
        self.assertEqual({name for name, *_ in self.catalogue()}, {"Harp", "Morning"})
        self.assert_phone_holds(HARP, SUNRISE)

    def test_of_songs_given_while_they_are_sent_are_the_ringtones(self):
        self.start(HARP, phone=["--link-speed", "2k"])
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(SUNRISE)
        self.stage.press("Sync 1")
        self.stage.see_part("Ringtone 1 of 1")
        self.rename("Sunrise 🌅", "Morning")
        self.stage.see_part("Was “Sunrise 🌅” · ")
        self.stage.press("Sync 1")
        self.stage.see("1 renamed")
        self.assertEqual({name for name, *_ in self.catalogue()}, {"Harp", "Morning"})
        self.assert_phone_holds(HARP, SUNRISE)

    def test_of_songs_given_while_they_are_sent_outlast_a_broken_sync_and_the_window(self):
        self.start(HARP, phone=["--link-speed", "2k"])
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(SUNRISE)
        self.stage.press("Sync 1")
        self.stage.see_part("Ringtone 1 of 1")
        self.rename("Sunrise 🌅", "Morning")
        self.stage.see("Rename “Morning”", "push button")
        self.stage.tell_phone("unplug")
        self.stage.see("“My Phone” Is Unplugged")
        self.stage.close_window()
        self.stage.tell_phone("plug")
        self.stage.start_window()
        self.stage.press("Finish")
        self.stage.see_part("Was “Sunrise 🌅” · ")
        self.stage.press("Sync 1")
        self.stage.see("1 renamed")
        self.assertEqual({name for name, *_ in self.catalogue()}, {"Harp", "Morning"})
        self.assert_phone_holds(HARP, SUNRISE)

    def test_are_edited_with_keys_alone(self):
        self.start(HARP)
        self.stage.tab_to("Rename “Harp”", "push button")
        self.stage.key("F2")
        self.stage.see("Name of “Harp”")
        self.stage.key("X", "Return")
        self.stage.see("“Harp” is called “X” now")
        self.stage.key("F2")
        self.stage.see("Name of “X”")
        self.stage.key("Y", "Escape")
        self.stage.see("Rename “X”", "push button")
        self.stage.key("ctrl+z")
        self.stage.see("Rename “Harp”", "push button")


class Sounds(Window):
    SECONDS = 2  # of the short song
    RATE = 8000

    def setUp(self):
        super().setUp()
        self.heard = self.stage.folder / "heard"

    def start(self, *ringtones, sink):
        if not (Path(BUILD) / "bin" / "vesk-play").exists():
            self.skipTest("built without GStreamer")
        self.stage.start_phone()
        self.stage.vesk("add", "--unchecked", *ringtones)
        self.stage.start_window("--sink", sink)

    def into_file(self):
        """A byte for each sample, as fast as it goes."""
        return f"capsfilter caps=audio/x-raw,format=U8,rate={self.RATE},channels=1 ! filesink location={self.heard}"

    def as_long_as_it_is(self):
        """The same while it is played."""
        return ("tee name=t ! queue ! fakesink sync=true t. ! queue ! "
                f"filesink buffer-mode=unbuffered location={self.heard}")

    def bytes_heard(self):
        return self.heard.stat().st_size if self.heard.exists() else 0

    def test_of_the_phone_are_played_to_their_end(self):
        self.start(self.song("Long", seconds=self.SECONDS), sink=self.into_file())
        self.stage.press("Play “Long”")
        self.stage.until(lambda: self.bytes_heard() == self.SECONDS * self.RATE, "all that there is to hear")
        self.stage.see("Play “Long”", "push button")

    def test_are_fetched_once(self):
        self.start(self.song("Long", seconds=self.SECONDS), sink=self.into_file())
        self.stage.press("Play “Long”")
        self.stage.until(lambda: self.bytes_heard() == self.SECONDS * self.RATE, "all that there is to hear")
        self.stage.see("Play “Long”", "push button")
        self.heard.unlink()
        self.stage.tell_phone("fault afc/Open+=status:18")
        self.stage.press("Play “Long”")
        self.stage.until(lambda: self.bytes_heard() == self.SECONDS * self.RATE, "it once more")

    def test_are_heard_one_at_a_time_and_stopped(self):
        self.start(self.song("Long", 600), self.song("Longer", 601), sink=self.as_long_as_it_is())
        self.stage.press("Play “Long”")
        self.stage.see("Stop “Long”", "push button")
        self.stage.until(self.bytes_heard, "a sound")
        self.stage.press("Play “Longer”")
        self.stage.see("Stop “Longer”", "push button")
        self.stage.see("Play “Long”", "push button")
        self.stage.press("Stop “Longer”")
        self.stage.see("Play “Longer”", "push button")

    def test_of_songs_are_what_would_be_sent(self):
        self.start(HARP, sink=self.into_file())
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(self.song("Long Walk", seconds=45))
        self.stage.press("Play “Long Walk”")
        self.stage.until(lambda: self.bytes_heard() >= 30 * self.RATE, "thirty seconds of it")
        self.stage.see("Play “Long Walk”", "push button")
        self.assertLess(self.bytes_heard(), 31 * self.RATE, "more than the encoding fills up")

    def test_go_on_without_the_phone(self):
        self.start(self.song("Long", 600), sink=self.as_long_as_it_is())
        self.stage.press("Play “Long”")
        self.stage.until(self.bytes_heard, "a sound")
        self.stage.tell_phone("unplug")
        self.stage.see("Plug In an iPhone")
        before = self.bytes_heard()
        self.stage.until(lambda: self.bytes_heard() > before, "more of it")
        self.stage.tell_phone("plug")
        self.stage.see("Stop “Long”", "push button")

    def test_that_were_not_fetched_say_why(self):
        self.start(HARP, sink=self.into_file())
        self.stage.see("Harp", "list item")
        self.stage.tell_phone("fault afc/Read#1=unplug")
        self.stage.press("Play “Harp”")
        self.stage.see("“Harp” cannot be played: “My Phone” was unplugged")

    def test_without_a_device_say_so(self):
        self.start(HARP, sink="no_such_sink")
        self.stage.press("Play “Harp”")
        self.stage.see("There is no sound device to play on")
        self.stage.see("Play “Harp”", "push button")


class KeptEdits(Window):
    def start_again(self):
        self.stage.close_window()
        self.stage.start_window()

    def test_are_there_again_after_the_window_was_closed(self):
        self.start(HARP, BELLS)
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(SUNRISE)
        Names.rename(self, "Sunrise 🌅", "Morning")
        Names.rename(self, "Glöckchen", "Bells")
        self.stage.press("Remove “Harp”")
        self.stage.see("Sync 3", "push button")
        self.start_again()
        self.stage.see("Your last changes to “My Phone” are here again")
        self.stage.see("1 new (6.0 KiB), 1 to be removed, 1 to be renamed")
        self.stage.press("Sync 3")
        self.stage.see("1 ringtone added, 1 removed, 1 renamed")
        self.assertEqual({name for name, *_ in Names.catalogue(self)}, {"Bells", "Morning"})
        self.assert_phone_holds(BELLS, SUNRISE)
        folder = self.stage.folder / "state" / "krlvesk" / "window"
        self.stage.until(lambda: not any(folder.iterdir()), "nothing that is kept")
        self.start_again()
        self.stage.see("2 ringtones")

    def test_can_be_discarded(self):
        self.start(HARP)
        self.stage.press("Remove “Harp”")
        self.stage.see("Sync 1", "push button")
        self.start_again()
        self.stage.press("Discard")
        self.stage.see("Remove “Harp”", "push button")
        self.stage.see("1 ringtone")

    def test_are_kept_when_the_window_is_killed(self):
        self.start(HARP)
        folder = self.stage.folder / "state" / "krlvesk" / "window"
        self.stage.press("Remove “Harp”")
        self.stage.until(lambda: folder.is_dir() and any(folder.glob("*.json")), "what is kept")
        self.stage.kill_window()
        self.stage.start_window()
        self.stage.see("Keep “Harp”", "push button")

    def test_whose_song_is_gone_are_dropped(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        song = self.song("Long Walk", seconds=20)
        self.stage.open_in_window(song, SUNRISE)
        self.stage.see("Sync 2", "push button")
        self.stage.close_window()
        song.unlink()
        self.stage.start_window()
        self.stage.see("“Long Walk.wav” is not there any more and was left out")
        self.stage.see("Sync 1", "push button")
        self.start_again()
        self.stage.see("Your last changes to “My Phone” are here again")
        self.stage.see("Sync 1", "push button")

    def test_that_are_damaged_are_left_out(self):
        self.start(HARP)
        self.stage.press("Remove “Harp”")
        self.stage.see("Sync 1", "push button")
        self.stage.close_window()
        [file] = (self.stage.folder / "state" / "krlvesk" / "window").iterdir()
        file.write_bytes(file.read_bytes()[:-20])
        self.stage.start_window()
        self.stage.see("Your last changes to “My Phone” cannot be read")
        self.stage.see("Remove “Harp”", "push button")


class Editors(Window):
    def setUp(self):
        super().setUp()
        if not (Path(BUILD) / "bin" / "vesk-prepare").exists():
            self.skipTest("built without FFmpeg")

    def open_editor(self, *options):
        """Of a song with a stroke ten seconds from its beginning."""
        song = self.stage.folder / "Long Walk.flac"
        sound = "0.05*sin(2*PI*330*t)+if(between(t,10,10.005),0.8*sin(2*PI*3000*t),0)"
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"aevalsrc='{sound}':s=44100:d=60", song],
                       check=True)
        self.stage.start_phone()
        self.stage.start_window(*options)
        self.stage.see("No Ringtones Yet")
        self.stage.open_in_window(song)
        self.stage.press("Edit “Long Walk”")
        self.stage.watched_window = 1
        self.stage.see("Start 0:00.0", "slider")
        self.stage.see("End 0:30.0", "slider")

    def ringtone_on_phone(self):
        """Its seconds, and those to its stroke."""
        self.stage.press("Sync 1")
        self.stage.see("1 ringtone added")
        [ringtone] = self.stage.ringtones_on_phone()
        file = self.stage.folder / "ringtone.m4r"
        file.write_bytes(ringtone)
        raw = subprocess.run(["ffmpeg", "-v", "error", "-i", file, "-ac", "1", "-ar", "8000", "-f", "s16le", "-"],
                             check=True, stdout=subprocess.PIPE).stdout
        samples = [abs(sample) for sample in array.array("h", raw)]
        loud = max(samples) / 2
        stroke = next(i for i, sample in enumerate(samples) if sample > loud)
        return len(samples) / 8000, stroke / 8000

    def test_cut_another_part_by_the_keyboard(self):
        self.open_editor()
        self.stage.key("shift+Right", "shift+Right", "Right", "Right", "Right")
        self.stage.see("Start 0:02.3", "slider")
        self.stage.key("Tab", "shift+Left", "Left")
        self.stage.see("End 0:28.9", "slider")
        self.stage.see_part("26.6 seconds · about ")
        self.stage.press("Apply")
        self.stage.watched_window = 0
        self.stage.see_part("0:27 · ")
        seconds, stroke = self.ringtone_on_phone()
        # An encoder's run-up and last block are 1024 samples each.
        self.assertAlmostEqual(seconds, 26.6, delta=0.06)
        self.assertAlmostEqual(stroke, 10 - 2.3, delta=0.04)

    def files_to_send(self):
        files = (self.stage.folder / "cache").rglob("outgoing-*/*")
        return [file.read_bytes() for file in files if file.name != "lock"]

    def test_leave_cuts_that_are_there_again_after_the_window_was_closed(self):
        self.open_editor()
        self.stage.key("shift+Right", "shift+Right", "Right", "Right", "Right")
        self.stage.see("Start 0:02.3", "slider")
        self.stage.key("Tab", "shift+Left", "Left")
        self.stage.see("End 0:28.9", "slider")
        self.stage.write("Name", "Short Walk")
        self.stage.press("Apply")
        self.stage.watched_window = 0
        self.stage.see_part("0:27 · ")
        before = self.files_to_send()
        KeptEdits.start_again(self)
        self.stage.see_part("0:27 · ")
        [cut] = self.files_to_send()
        self.assertIn(cut, before)
        self.stage.press("Edit “Short Walk”")
        self.stage.watched_window = 1
        self.stage.see("Start 0:02.3", "slider")
        self.stage.see("End 0:28.9", "slider")
        self.stage.key("Escape")
        self.stage.watched_window = 0
        seconds, stroke = self.ringtone_on_phone()
        self.assertAlmostEqual(seconds, 26.6, delta=0.06)
        self.assertAlmostEqual(stroke, 10 - 2.3, delta=0.04)

    def test_move_all_of_the_cut_and_keep_its_length(self):
        self.open_editor()
        self.stage.key("ctrl+shift+Right", "ctrl+Right")
        self.stage.see("Start 0:01.1", "slider")
        self.stage.see("End 0:31.1", "slider")

    def test_cut_forty_seconds_at_most(self):
        self.open_editor()
        self.stage.key("Tab", "End")
        self.stage.see("End 1:00.0", "slider")
        self.stage.see("Start 0:20.0", "slider")

    def handle(self, side):
        """Its name and where the middle of it is."""
        name = next(name for name in self.stage.names("slider") if name.startswith(side))
        extents = self.stage.extents(self.stage.find(name, "slider"))
        return name, extents.x + extents.width / 2, extents.y + extents.height / 2

    def place(self, side):
        return self.handle(side)[1]

    def seconds(self, side):
        minutes, seconds = self.handle(side)[0].split()[1].split(":")
        return int(minutes) * 60 + float(seconds)

    def length_on_screen(self):
        # The middle of a handle is eight pixels outside of the cut.
        return self.place("End") - self.place("Start") - 16

    def drag(self, begin, by):
        height = self.handle("Start")[2]
        moves = [f"mousemove {begin + by * step / 10:.0f} {height:.0f}" for step in range(11)]
        self.stage.pointer(moves[0], "mousedown 1", *moves[1:], "mouseup 1")

    def await_place(self, side, place):
        self.stage.until(lambda: abs(self.place(side) - place) <= 1, f"{side} at {place}")

    def test_follow_the_pointer_with_a_handle(self):
        self.open_editor()
        pixels = self.length_on_screen() / 30
        start, end = self.place("Start"), self.place("End")
        self.drag(start, 100)
        self.await_place("Start", start + 100)
        self.assertAlmostEqual(self.seconds("Start"), 100 / pixels, delta=0.2)
        self.stage.see("End 0:30.0", "slider")
        self.drag(end, 80)
        self.await_place("End", end + 80)
        self.assertAlmostEqual(self.seconds("End"), 30 + 80 / pixels, delta=0.2)
        self.assertAlmostEqual(self.seconds("Start"), 100 / pixels, delta=0.2)

    def test_follow_the_pointer_with_all_of_the_cut(self):
        self.open_editor()
        pixels = self.length_on_screen() / 30
        start, end = self.place("Start"), self.place("End")
        self.drag((start + end) / 2, 60)
        self.await_place("Start", start + 60)
        self.await_place("End", end + 60)
        self.assertAlmostEqual(self.seconds("Start"), 60 / pixels, delta=0.2)
        self.stage.see_part("30.0 seconds")

    def test_show_more_or_another_part_of_the_song_by_the_wheel(self):
        self.open_editor()
        length = self.length_on_screen()
        middle = (self.place("Start") + self.place("End")) / 2
        self.stage.pointer(f"mousemove {middle:.0f} {self.handle('Start')[2]:.0f}")
        self.stage.pointer("keydown ctrl", *["click 4"] * 3, "keyup ctrl")
        self.stage.until(lambda: abs(self.length_on_screen() - length * 1.25**3) <= 3, "a cut that is wider")
        start = self.place("Start")
        self.stage.pointer("click 5")
        self.stage.until(lambda: self.place("Start") < start - 20, "a later part")
        # What was dragged so far before is half as far in the song now.
        pixels = self.length_on_screen() / 30
        self.drag(middle, 60)
        self.stage.see_none("Start 0:00.0", "slider")
        self.stage.until(lambda: abs(self.seconds("Start") - 60 / pixels) < 0.2, "the cut to be dragged")
        self.stage.pointer("keydown ctrl", *["click 5"] * 3, "keyup ctrl")
        self.stage.until(lambda: abs(self.length_on_screen() - length) <= 3, "all of the song")

    def test_suggest_a_beginning(self):
        self.open_editor()
        self.stage.press("Suggest")
        self.stage.see_none("Start 0:00.0", "slider")
        self.stage.see_part("30.0 seconds")

    def test_name_the_ringtone(self):
        self.open_editor()
        self.stage.write("Name", "Short Walk")
        self.stage.press("Apply")
        self.stage.watched_window = 0
        self.stage.see("Short Walk", "list item")
        self.stage.see("Edit “Short Walk”", "push button")
        self.stage.see("Sync 1", "push button")

    def test_left_by_escape_change_nothing(self):
        self.open_editor()
        self.stage.key("shift+Right")
        self.stage.see("Start 0:01.0", "slider")
        self.stage.key("Escape")
        self.stage.watched_window = 0
        self.stage.see("Long Walk", "list item")
        seconds, stroke = self.ringtone_on_phone()
        self.assertAlmostEqual(seconds, 30, delta=0.06)
        self.assertAlmostEqual(stroke, 10, delta=0.04)

    RATE = 8000
    into_file, bytes_heard = Sounds.into_file, Sounds.bytes_heard

    def open_editor_to_hear(self):
        if not (Path(BUILD) / "bin" / "vesk-play").exists():
            self.skipTest("built without GStreamer")
        self.heard = self.stage.folder / "heard"
        self.open_editor("--sink", self.into_file())

    def test_play_the_last_five_seconds_once(self):
        self.open_editor_to_hear()
        self.stage.press("Last 5 s")
        self.stage.until(lambda: self.bytes_heard() >= 5 * self.RATE, "five seconds of it")
        self.stage.see("Play", "push button")
        self.assertLess(self.bytes_heard(), 5.1 * self.RATE, "more than the encoding fills up")

    def test_play_the_cut_over_and_over_until_it_is_stopped(self):
        self.open_editor_to_hear()
        self.stage.press("Play")
        for _ in range(2):
            self.stage.until(lambda: self.bytes_heard() >= 30 * self.RATE, "all of the cut")
            self.heard.unlink()
        self.stage.press("Stop")
        self.stage.see("Play", "push button")

    def test_say_why_there_is_nothing_to_hear(self):
        self.open_editor("--sink", "no_such_sink")
        self.stage.press("Last 5 s")
        self.stage.see("There is no sound device to play on")
        self.stage.see("Play", "push button")

    def test_say_why_a_song_cannot_be_edited(self):
        self.open_editor()
        self.stage.key("Escape")
        self.stage.watched_window = 0
        (self.stage.folder / "Long Walk.flac").unlink()
        self.stage.press("Edit “Long Walk”")
        self.stage.watched_window = 1
        self.stage.see("This Song Cannot Be Edited")
        self.stage.see_part("No such file or directory")


class Quitting(Window):
    """Each time it is looked that the window ends; how long that took is printed, and not judged."""

    def quit(self):
        begin = time.monotonic()
        self.stage.close_window()
        print(f"{time.monotonic() - begin:.2f} s to the end")

    def stay(self, reason):
        subprocess.run(["gapplication", "action", "com.korvane.Vesk", "quit"], check=True)
        self.stage.see(reason)

    def stay_while_busy(self):
        self.stage.see("Cancel", "push button")
        self.stay("Wait until the sync is done, or cancel it")

    def test_without_a_phone(self):
        self.stage.start_window()
        self.stage.see("Plug In an iPhone")
        self.quit()

    def test_while_a_list_is_read(self):
        self.stage.start_phone()
        self.stage.vesk("add", HARP)
        self.stage.tell_phone("fault afc/Read=silent")
        self.stage.start_window()
        self.stage.see("Reading the phone…")
        self.quit()
        self.assert_phone_holds(HARP)

    def test_with_a_phone_that_has_gone_silent(self):
        self.start(HARP)
        self.stage.press("Remove “Harp”")
        self.stage.see("Sync 1", "push button")
        self.stage.tell_phone("silence")
        self.quit()
        self.assert_phone_holds(HARP)

    def test_while_songs_are_made_ringtones(self):
        if not (Path(BUILD) / "bin" / "vesk-prepare").exists():
            self.skipTest("built without FFmpeg")
        self.start(HARP)
        self.stage.see("Harp", "list item")
        songs = [self.song(f"Long {number}", seconds=600) for number in range(20)]
        self.stage.open_in_window(*songs)
        self.stage.see_part("being prepared")
        self.quit()
        self.stage.start_window()
        self.stage.see("Long 19", "list item")
        self.assert_phone_holds(HARP)

    def test_with_the_editor_open_and_its_loop_playing(self):
        Editors.open_editor(self, "--sink", "fakesink sync=true")
        self.stage.press("Play")
        self.stage.see("Stop", "push button")
        self.quit()

    def test_while_a_ringtone_is_played(self):
        if not (Path(BUILD) / "bin" / "vesk-play").exists():
            self.skipTest("built without GStreamer")
        self.stage.start_phone()
        self.stage.vesk("add", HARP)
        self.stage.start_window("--sink", "fakesink sync=true")
        self.stage.press("Play “Harp”")
        self.stage.see("Stop “Harp”", "push button")
        self.quit()
        self.assert_phone_holds(HARP)

    def test_waits_for_a_sync_that_is_paused(self):
        self.pause_before_the_first_file()
        self.stay("The sync is paused: let it go on, or cancel it")
        self.stage.press("Cancel")
        self.stage.see("Cancelled")
        self.quit()
        self.assert_phone_holds(HARP)

    def test_waits_for_a_sync_with_a_phone_that_has_gone_silent(self):
        self.start(HARP)
        self.stage.press("Remove “Harp”")
        self.stage.see("Sync 1", "push button")
        self.stage.tell_phone("silence")
        self.stage.press("Sync 1")
        self.stay_while_busy()
        self.stage.press("Cancel")
        self.stage.see_none("Cancel", "push button")
        self.quit()
        self.assert_phone_holds(HARP)

    def test_waits_for_what_is_undone(self):
        self.start(HARP)
        self.stage.press("Remove “Harp”")
        self.stage.press("Sync 1")
        self.stage.see("1 removed")
        self.assert_phone_holds()
        self.stage.see("0 ringtones")
        self.stage.tell_phone("silence")
        self.stage.press("Undo")
        self.stay_while_busy()
        self.stage.tell_phone("talk")
        self.stage.see_part("Undone: ")
        self.quit()
        self.assert_phone_holds(HARP)


class Languages(Window):
    def test_are_those_of_the_person(self):
        os.environ["LANGUAGE"] = "de"
        self.stage.start_window()
        self.stage.see("Ein iPhone anschließen")


class NarrowAndGerman(Window):
    """The longest words in the narrowest window."""
    WIDTH = 360

    def setUp(self):
        super().setUp()
        os.environ["LANGUAGE"] = "de"
        # As the desktop has it that the toolkit is made for.
        settings = self.stage.folder / "config" / "gtk-4.0" / "settings.ini"
        with settings.open("a") as file:
            file.write("gtk-decoration-layout=:close\n")
        words = gettext.translation("krlvesk", Path(BUILD) / "share" / "locale", ["de"])
        self.german = words.gettext

    def assert_fits(self):
        self.stage.narrow(self.WIDTH)
        self.stage.until(lambda: not self.stage.beyond(self.WIDTH), "what fits into a narrow window")

    def press(self, words, *names):
        self.stage.press(self.german(words).format(*names))

    def see(self, words, *names):
        self.stage.see_part(self.german(words).format(*names))

    def test_without_a_phone(self):
        self.stage.start_window()
        self.see("Plug In an iPhone")
        self.assert_fits()

    def test_with_a_phone_that_is_not_paired(self):
        self.start(phone=["--unpaired", "--session", "ssl3"])
        self.see("Pair")
        self.assert_fits()

    def start_with_edits(self, *phone):
        self.start(HARP, BELLS, phone=["--free-bytes", "6900m", "--total-bytes", "7600m", *phone])
        self.stage.see("Harp", "list item")
        letter = self.stage.folder / "letter.txt"
        letter.write_text("no song")
        self.stage.open_in_window(SUNRISE, HARP, letter)
        self.press("Remove “{}”", "Glöckchen")
        self.see("There is a ringtone of this name already")
        self.stage.see(self.german("Sync {}").format(2), "push button")

    def test_with_edits_of_each_kind(self):
        self.start_with_edits()
        self.assert_fits()
        self.press("Rename “{}”", "Harp")
        self.stage.see(self.german("Name of “{}”").format("Harp"))
        self.stage.write(self.german("Name of “{}”").format("Harp"), "Sunrise 🌅")
        self.assert_fits()

    def test_in_a_sync_that_is_paused_and_cancelled(self):
        self.start_with_edits()
        self.stage.tell_phone("silence")
        self.press("Sync {}", 2)
        self.press("Pause")
        self.stage.see(self.german("Continue"), "push button")
        self.assert_fits()
        self.stage.tell_phone("talk")
        self.see("Paused")
        self.assert_fits()
        self.press("Cancel")
        self.stage.see(self.german("Sync {}").format(2), "push button")
        self.assert_fits()

    def test_after_a_sync_that_was_broken_off(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(SUNRISE)
        self.stage.see(self.german("Sync {}").format(1), "push button")
        self.stage.tell_phone("fault afc/Write#2=unplug")
        self.press("Sync {}", 1)
        self.see("“{}” Is Unplugged", "My Phone")
        self.assert_fits()
        self.stage.tell_phone("clear-faults")
        self.stage.tell_phone("plug")
        self.see("The last sync of “{}” was interrupted", "My Phone")
        self.assert_fits()

    def test_in_the_editor(self):
        if not (Path(BUILD) / "bin" / "vesk-prepare").exists():
            self.skipTest("built without FFmpeg")
        self.start()
        self.see("No Ringtones Yet")
        self.assert_fits()
        self.stage.open_in_window(self.song("Long Walk", seconds=60))
        self.press("Edit “{}”", "Long Walk")
        self.stage.watched_window = 1
        self.see("Start {}", "0:00.0")
        self.assert_fits()

    def test_in_the_history(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        self.stage.activate("history")
        self.stage.watched_window = 1
        self.stage.see("Hinzugefügt: „Harp“", "list item")
        self.assert_fits()


class Lists(Window):
    def test_show_what_is_searched_for(self):
        self.start(HARP, BELLS)
        self.stage.see("Glöckchen", "list item")
        self.stage.write("Search ringtones", "HAR")
        self.stage.see_none("Glöckchen", "list item")
        self.assertEqual(self.stage.names("list item"), ["Harp"])


class Paces(Window):
    """Printed, not judged: they depend on the computer and on what else it does."""

    def fill_phone(self, count):
        folder = self.stage.phone_folder / "iTunes_Control"
        for part in ("Ringtones", "iTunes"):
            (folder / part).mkdir(parents=True, exist_ok=True)
        entries = {}
        for number in range(count):
            file = f"R{number:05}.m4a"
            (folder / "Ringtones" / file).write_bytes(b"sound")
            entries[file] = {"Name": f"Ringtone {number:05}", "GUID": f"{number:032X}"}
        (folder / "iTunes" / "Ringtones.plist").write_bytes(plistlib.dumps({"Ringtones": entries}))

    def kept_songs(self):
        folder = self.stage.folder / "state" / "krlvesk" / "window"
        return [song for file in folder.glob("*.json") for song in json.loads(file.read_text())["songs"]]

    def test_with_ten_thousand_ringtones(self):
        self.stage.start_phone("--firmware", "1.0", "--unplugged")
        self.fill_phone(10000)
        line = self.stage.start_unwatched_window()
        pace = self.stage.pace()
        self.stage.tell_phone("plug")
        self.stage.wait(lambda: line.can("search"), "a list")
        self.stage.take_keys()
        self.stage.click(340, 300)  # a row, which is selected by that
        print("while they arrive:", pace.end())
        for key in ("Page_Down", "End", "Home"):
            pace = self.stage.pace()
            for _ in range(10):
                self.stage.key(key)
                line.ask()
            print(f"{key}:", pace.end())
        pace = self.stage.pace()
        self.stage.key("Delete")
        self.stage.wait(lambda: line.can("sync"), "a change")
        print("one is removed:", pace.end())

    def test_from_the_start_to_the_list_and_to_the_end(self):
        self.stage.start_phone()
        self.stage.vesk("add", HARP, BELLS)
        begin = time.monotonic()
        line = self.stage.start_unwatched_window()
        self.stage.wait(lambda: line.can("search"), "a list")
        print(f"{time.monotonic() - begin:.2f} s from the start to the list")
        print(f"{self.stage.resident_memory():.0f} MiB resident")
        begin = time.monotonic()
        self.stage.close_window()
        print(f"{time.monotonic() - begin:.2f} s to the end")

    def test_with_three_hundred_songs(self):
        folder = self.stage.folder / "songs"
        folder.mkdir()
        for number in range(300):
            self.song(f"songs/{number:03}", seconds=1)
        self.stage.start_phone()
        line = self.stage.start_unwatched_window()
        self.stage.wait(lambda: line.can("add"), "a phone")
        pace = self.stage.pace()
        self.stage.open_in_window(folder)
        self.stage.wait(lambda: len(self.kept_songs()) == 300, "all of the songs")
        print("they are added:", pace.end())
        pace = self.stage.pace()

        def are_synced():
            if line.can("sync"):  # some of them may have been under way
                line.do("sync")
            return not self.kept_songs() and line.can("undo-sync")

        self.stage.wait(are_synced, "all of them on the phone")
        print("in their sync:", pace.end())
        self.assertEqual(len(self.stage.ringtones_on_phone()), 300)

    def test_of_a_phone_that_has_gone_silent(self):
        self.stage.start_phone()
        self.stage.vesk("add", HARP)
        line = self.stage.start_unwatched_window()
        self.stage.wait(lambda: line.can("search"), "a list")
        self.stage.open_in_window(SUNRISE)
        self.stage.wait(lambda: line.can("sync"), "a change")
        self.stage.tell_phone("silence")
        pace = self.stage.pace()
        line.do("sync")
        self.stage.wait(lambda: line.can("cancel"), "a sync")
        for _ in range(100):
            line.ask()
        print("silent:", pace.end())
        line.do("cancel")
        self.stage.tell_phone("talk")
        self.stage.wait(lambda: line.can("sync"), "the end of it")


class Syncs(Window):
    def test_are_undone(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(SUNRISE)
        self.stage.press("Sync 1")
        self.stage.see("1 ringtone added")
        self.stage.press("Undo")
        self.stage.see_part("Undone: ")
        self.stage.see("1 ringtone")
        self.assert_phone_holds(HARP)

    def test_are_undone_at_once(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(SUNRISE)
        self.pause_at_the_beginning_of("Sync 1")
        # The list is read anew after the sync, and the history with it.
        self.stage.tell_phone("fault afc/DeviceInfo=delay:5000")
        self.stage.press("Continue")
        self.stage.see("1 ringtone added")
        self.stage.press("Undo")
        self.stage.see("Cancel", "push button")
        self.stage.tell_phone("clear-faults")
        self.stage.see_part("Undone: ")
        self.assert_phone_holds(HARP)

    def test_of_many_songs_leave_the_window_alive(self):
        folder = self.stage.folder / "songs"
        folder.mkdir()
        for number in range(300):
            self.song(f"songs/{number:03}", seconds=1)
        self.start(HARP)
        self.stage.see("Harp", "list item")
        pace = self.stage.pace()
        self.stage.open_in_window(folder)
        self.stage.see("Sync 300", "push button")
        print("while songs are added:", pace.end())
        pace = self.stage.pace()
        self.stage.press("Sync 300")
        self.stage.see("301 ringtones")
        print("in their sync:", pace.end())
        self.assertEqual(len(self.stage.ringtones_on_phone()), 301)

    def test_are_paused_and_go_on(self):
        self.pause_before_the_first_file()
        subprocess.run(["gapplication", "action", "com.korvane.Vesk", "quit"], check=True)
        self.stage.see("The sync is paused: let it go on, or cancel it")
        self.stage.press("Continue")
        self.stage.see("2 ringtones added")
        self.assert_phone_holds(HARP, SUNRISE, BELLS)

    def test_that_are_paused_can_be_cancelled(self):
        self.pause_before_the_first_file()
        self.stage.press("Cancel")
        self.stage.see("Cancelled")
        self.stage.see("Sync 2", "push button")
        self.assert_phone_holds(HARP)

    def test_that_are_paused_notice_that_the_phone_is_pulled_out(self):
        self.pause_before_the_first_file()
        self.stage.tell_phone("unplug")
        self.stage.see("“My Phone” Is Unplugged")
        self.stage.tell_phone("plug")
        self.stage.press("Take Back")
        self.stage.see_none("The last sync of “My Phone” was interrupted")
        self.stage.see("Sync 2", "push button")
        self.assert_phone_holds(HARP)

    def test_that_are_paused_before_the_removals_can_be_cancelled(self):
        self.start(HARP)
        self.stage.press("Remove “Harp”")
        self.pause_at_the_beginning_of("Sync 1")
        self.stage.press("Cancel")
        self.stage.see("Cancelled")
        self.stage.see("Sync 1", "push button")
        self.assert_phone_holds(HARP)

    def test_are_cancelled(self):
        # They would take longer than anything here is waited for.
        songs = [self.song(f"Song {number}", seconds=20) for number in range(10)]
        self.start(HARP, phone=["--link-speed", "16k"])
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(*songs)
        self.stage.press("Sync 10")
        self.stage.see_part("Ringtone 1 of 10")
        self.stage.press("Cancel")
        self.stage.see("Cancelled")
        self.stage.see("Sync 10", "push button")
        self.assert_phone_holds(HARP)

    def test_that_are_broken_off_are_finished_when_the_phone_is_back(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(SUNRISE, BELLS)
        self.stage.see("Sync 2", "push button")
        self.stage.tell_phone("fault afc/Write#2=unplug")
        self.stage.press("Sync 2")
        self.stage.see("“My Phone” Is Unplugged")
        self.stage.tell_phone("clear-faults")
        self.stage.tell_phone("plug")
        self.stage.see("The last sync of “My Phone” was interrupted")
        self.stage.press("Finish")
        self.stage.see_none("The last sync of “My Phone” was interrupted")
        self.stage.see("3 ringtones")
        self.assert_phone_holds(HARP, SUNRISE, BELLS)

    def test_that_are_broken_off_and_taken_back_leave_the_edits(self):
        self.start(HARP, BELLS)
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(SUNRISE)
        Names.rename(self, "Glöckchen", "Bells")
        self.stage.press("Remove “Harp”")
        self.stage.tell_phone("fault afc/Write#2=unplug")
        self.stage.press("Sync 3")
        self.stage.see("“My Phone” Is Unplugged")
        self.stage.tell_phone("clear-faults")
        self.stage.tell_phone("plug")
        self.stage.press("Take Back")
        self.stage.see_none("The last sync of “My Phone” was interrupted")
        self.stage.until(lambda: self.stage.can_press("Sync 3"), "the end of the work")
        self.assert_phone_holds(HARP, BELLS)
        self.stage.see("Keep “Harp”", "push button")
        self.stage.press("Sync 3")
        self.stage.see_none("Sync 3", "push button")
        self.stage.see("2 ringtones")
        self.assert_phone_holds(BELLS, SUNRISE)

    def test_can_be_gone_back_behind(self):
        self.stage.start_phone()
        for ringtone in (HARP, SUNRISE, BELLS):
            self.stage.vesk("add", ringtone)
        self.stage.start_window()
        self.stage.see("3 ringtones")
        self.stage.activate("history")
        self.stage.watched_window = 1
        self.stage.see("Added “Glöckchen”", "list item")
        self.stage.press("Go Back")
        self.stage.watched_window = 0
        self.stage.see("1 ringtone")
        self.assert_phone_holds(HARP)

    def test_of_a_phone_with_a_damaged_list_put_it_right(self):
        self.stage.start_phone()
        self.stage.vesk("add", HARP, SUNRISE)
        catalogue = self.stage.phone_folder / "iTunes_Control" / "iTunes" / "Ringtones.plist"
        catalogue.write_bytes(catalogue.read_bytes()[:100])
        self.stage.start_window()
        self.stage.see("The list of ringtones on “My Phone” is damaged")
        self.stage.press("Put Right")
        self.stage.see("2 ringtones")
        self.assert_phone_holds(HARP, SUNRISE)

    def test_of_an_unknown_firmware_are_not_made(self):
        self.start(phone=["--firmware", "1.2"])
        self.stage.see("The ringtones of this phone can only be looked at")
        self.stage.open_in_window(HARP)
        self.stage.see("Sync 1", "push button")
        self.assertFalse(self.stage.can_press("Sync 1"))

    def test_under_which_another_program_holds_the_lock_say_so(self):
        self.start(HARP)
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(SUNRISE)
        self.stage.see("Sync 1", "push button")
        self.stage.tell_phone("hold-lock")
        self.stage.press("Sync 1")
        self.stage.see_part("Another program was syncing the phone")
        self.assert_phone_holds(HARP, SUNRISE)

    def test_that_find_no_space_change_nothing(self):
        self.start(HARP, phone=["--free-bytes", "7000"])
        self.stage.see("Harp", "list item")
        self.stage.open_in_window(BELLS, SUNRISE)
        self.stage.see("Too much for the phone")
        self.assert_phone_holds(HARP)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
