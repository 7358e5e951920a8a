#!/usr/bin/python3
"""Folders that phones mirror, as a person who cannot see the window uses them.

    mirror_test.py BUILD SAMPLES [unittest's arguments]
"""
import json
import shutil
import subprocess
import sys
import unittest
from pathlib import Path

from window_test import BELLS, BUILD, HARP, SUNRISE, KeptEdits, Names, Window

UP_TO_DATE = "The phone holds what is in this folder"
PAUSED = "Paused, because it was taken back. Nothing is done until you go on."
MORE_THAN_EXPECTED = "More would go from the phone than expected. Nothing is done before you agree."


class Mirrors(Window):
    def setUp(self):
        super().setUp()
        self.folder = self.stage.folder / "Klänge “a” 🌅"
        self.folder.mkdir()
        self.preferences = self.stage.folder / "config" / "krlvesk" / "preferences.json"

    def put(self, *files):
        """Into the folder, at once and whole."""
        for file in files:
            shutil.copy(file, self.stage.folder / "incoming")
            (self.stage.folder / "incoming").rename(self.folder / file.name)

    def udids(self):
        shown = subprocess.run([self.stage.bin / "vesk", "--json", "devices"], check=True, capture_output=True)
        return {phone["name"]: phone["udid"] for phone in json.loads(shown.stdout)["devices"]}

    def agreed(self, *ringtones, phone=()):
        """The window over a phone that mirrors the folder, to which the person has agreed before."""
        self.stage.start_phone(*phone)
        if ringtones:
            self.stage.vesk("add", *ringtones)
        self.keep_mirrors(*self.udids().values())
        self.stage.start_window()

    def keep_mirrors(self, *udids):
        self.preferences.parent.mkdir(exist_ok=True)
        mirrors = [{"udid": udid, "phone": "My Phone", "folder": str(self.folder), "agreed": True, "paused": False,
                    "passedOver": "", "held": [], "wishes": []} for udid in udids]
        self.preferences.write_text(json.dumps({"version": 1, "mirrors": mirrors}))

    def kept(self):
        return json.loads(self.preferences.read_text())["mirrors"] if self.preferences.exists() else []

    def choose_folder(self):
        self.stage.until(lambda: self.can("mirror"), "a folder to be chosen")
        self.stage.tab_to("Add", "push button")
        self.stage.key("ctrl+m")
        self.stage.watched_window = 1
        self.stage.see("Choose the Folder That the Phone Mirrors")
        self.stage.copy_text(str(self.folder))
        self.stage.key("ctrl+l", "ctrl+v", "Return")

    def can(self, action):
        shown = subprocess.run(["gdbus", "call", "--session", "--dest", "com.korvane.Vesk", "--object-path",
                                "/com/korvane/Vesk/window/1", "--method", "org.gtk.Actions.Describe", action],
                               capture_output=True, text=True)
        return "(true" in shown.stdout

    def see_plan(self):
        self.stage.watched_window = 1
        self.stage.see(f"Mirror “{self.folder.name}”?")

    def answer(self, button):
        self.stage.press(button)
        self.stage.watched_window = 0

    def see_on_phone(self, *files):
        wanted = sorted(file.read_bytes() for file in files)
        self.stage.until(lambda: self.stage.ringtones_on_phone() == wanted, "these ringtones on the phone")

    def test_are_shown_before_they_are_begun_and_done_when_the_person_agrees(self):
        self.put(HARP, SUNRISE)
        self.start(HARP, BELLS)
        self.choose_folder()
        self.see_plan()
        self.stage.see("Goes From the Phone")
        self.assertEqual(self.stage.names("list item"), ["Glöckchen", "Sunrise 🌅"])
        self.stage.watched_window = 0
        self.stage.see(f"Mirrors “{self.folder.name}”")
        self.stage.see("Nothing is done before you have seen what it does.")
        self.assert_phone_holds(HARP, BELLS)
        self.stage.watched_window = 1
        self.answer("Mirror")
        self.stage.see("1 ringtone added, 1 removed")
        self.stage.see(UP_TO_DATE)
        self.assert_phone_holds(HARP, SUNRISE)

    def test_are_not_begun_when_the_person_does_not_agree(self):
        self.put(SUNRISE)
        self.start(HARP)
        self.choose_folder()
        self.see_plan()
        self.answer("Not Now")
        KeptEdits.start_again(self)
        self.stage.press("Show…")
        self.see_plan()
        self.answer("Not Now")
        self.assert_phone_holds(HARP)
        self.stage.press("Stop")
        self.stage.see("“My Phone” mirrors no folder any more")
        self.stage.until(lambda: not self.kept(), "no folder that is kept")
        self.assert_phone_holds(HARP)

    def test_follow_their_folder_while_the_phone_is_there(self):
        self.put(HARP)
        self.agreed()
        self.see_on_phone(HARP)
        self.put(SUNRISE, BELLS)
        self.see_on_phone(HARP, SUNRISE, BELLS)
        self.stage.see("3 ringtones")
        (self.folder / HARP.name).unlink()
        self.see_on_phone(SUNRISE, BELLS)
        self.stage.see("1 removed")

    def test_follow_what_became_of_their_folder_while_the_phone_was_away(self):
        self.put(HARP, BELLS)
        self.agreed()
        self.see_on_phone(HARP, BELLS)
        self.stage.see(UP_TO_DATE)
        self.stage.tell_phone("unplug")
        self.stage.see("Plug In an iPhone")
        (self.folder / HARP.name).unlink()
        self.put(SUNRISE)
        self.stage.tell_phone("plug")
        self.see_on_phone(BELLS, SUNRISE)

    def test_that_were_undone_are_paused_until_they_are_switched_on_again(self):
        self.put(HARP)
        self.agreed()
        self.stage.see("1 ringtone added")
        self.stage.press("Undo")
        self.stage.see(PAUSED)
        self.stage.see("No Ringtones Yet")
        self.put(SUNRISE)
        KeptEdits.start_again(self)
        self.stage.see(PAUSED)
        self.assert_phone_holds()
        self.stage.press("Go On")
        self.see_on_phone(HARP, SUNRISE)
        self.stage.see(UP_TO_DATE)

    def test_that_were_undone_by_another_program_are_paused_too(self):
        self.put(HARP)
        self.agreed()
        self.see_on_phone(HARP)
        self.stage.see(UP_TO_DATE)
        self.stage.close_window()
        self.stage.vesk("undo")
        self.stage.start_window()
        self.stage.see(PAUSED)
        self.assert_phone_holds()

    def test_ask_before_more_goes_than_the_folder_has_lost(self):
        self.put(HARP)
        self.agreed()
        self.see_on_phone(HARP)
        self.stage.see(UP_TO_DATE)
        self.stage.close_window()
        self.stage.vesk("add", BELLS)
        self.stage.start_window()
        self.stage.see(MORE_THAN_EXPECTED)
        self.assert_phone_holds(HARP, BELLS)
        self.stage.press("Show…")
        self.see_plan()
        self.assertEqual(self.stage.names("list item"), ["Glöckchen"])
        self.answer("Mirror")
        self.see_on_phone(HARP)

    def test_ask_before_all_goes_because_the_folder_is_empty(self):
        self.put(HARP, BELLS)
        self.agreed()
        self.see_on_phone(HARP, BELLS)
        self.stage.see(UP_TO_DATE)
        self.folder.rename(self.folder.with_name("elsewhere"))
        self.folder.mkdir()
        self.stage.see(MORE_THAN_EXPECTED)
        self.assert_phone_holds(HARP, BELLS)
        self.put(HARP)
        self.see_on_phone(HARP)

    def test_of_which_the_folder_is_gone_wait_for_it(self):
        self.put(HARP, BELLS)
        self.agreed()
        self.see_on_phone(HARP, BELLS)
        self.stage.see(UP_TO_DATE)
        elsewhere = self.folder.with_name("elsewhere")
        self.folder.rename(elsewhere)
        self.stage.see_part("The folder cannot be read. ")
        KeptEdits.start_again(self)
        self.stage.see_part("The folder cannot be read. ")
        self.assert_phone_holds(HARP, BELLS)
        (elsewhere / HARP.name).unlink()
        elsewhere.rename(self.folder)
        self.see_on_phone(BELLS)

    def test_wait_until_edits_are_synced(self):
        self.start(HARP)
        self.stage.press("Remove “Harp”")
        self.stage.see("Sync 1", "push button")
        self.stage.close_window()
        self.put(BELLS)
        self.keep_mirrors(*self.udids().values())
        self.stage.start_window()
        self.stage.see("Waits until your changes are synced or taken back.")
        self.assert_phone_holds(HARP)
        self.stage.press("Sync 1")
        self.see_on_phone(BELLS)
        self.stage.see(UP_TO_DATE)

    def test_wait_until_edits_are_taken_back(self):
        self.put(HARP)
        self.agreed()
        self.see_on_phone(HARP)
        self.stage.press("Remove “Harp”")
        self.stage.see("Sync 1", "push button")
        self.put(BELLS)
        self.stage.see("Waits until your changes are synced or taken back.")
        self.assert_phone_holds(HARP)
        self.stage.press("Keep “Harp”")
        self.see_on_phone(HARP, BELLS)

    def test_say_what_cannot_be_used_and_remove_nothing_as_long(self):
        self.put(HARP, BELLS)
        self.agreed()
        self.see_on_phone(HARP, BELLS)
        (self.folder / "broken.mp3").write_text("no song")
        (self.folder / HARP.name).unlink()
        self.put(SUNRISE)
        self.see_on_phone(HARP, BELLS, SUNRISE)
        self.stage.see("1 song cannot be used; nothing is removed until it can")
        self.stage.press("Show…")
        self.stage.watched_window = 1
        self.stage.see("Cannot Be Used")
        self.assertEqual(self.stage.names("list item"), ["broken.mp3"])
        self.stage.press("Close")
        self.stage.watched_window = 0
        (self.folder / "broken.mp3").unlink()
        self.see_on_phone(BELLS, SUNRISE)

    def test_of_one_song_that_cannot_be_used_say_why(self):
        (self.folder / "broken.mp3").write_text("no song")
        self.agreed(HARP)
        self.stage.see("1 song cannot be used; nothing is removed until it can")
        self.assert_phone_holds(HARP)

    def test_leave_songs_that_are_being_written_until_they_are(self):
        sound = BELLS.read_bytes()
        self.put(HARP)
        with (self.folder / BELLS.name).open("wb") as file:
            file.write(sound[:len(sound) // 2])
            file.flush()
            self.agreed()
            self.see_on_phone(HARP)
            self.stage.see("1 song cannot be used; nothing is removed until it can")
            self.stage.press("Show…")
            self.stage.watched_window = 1
            self.stage.see_part("is still being written")
            self.stage.press("Close")
            self.stage.watched_window = 0
            file.write(sound[len(sound) // 2:])
        self.see_on_phone(HARP, BELLS)
        self.stage.see(UP_TO_DATE)

    def test_give_songs_of_one_title_names_of_their_own(self):
        self.put(HARP)
        other = self.stage.folder / "other.m4a"
        other.write_bytes(HARP.read_bytes() + bytes([0, 0, 0, 8]) + b"free")
        self.put(other)
        self.agreed()
        self.stage.see("2 ringtones added")
        self.assertEqual({name for name, *_ in Names.catalogue(self)}, {"Harp", "Harp (2)"})
        self.assert_phone_holds(HARP, other)
        before = Names.catalogue(self)
        KeptEdits.start_again(self)
        self.stage.see(UP_TO_DATE)
        self.assertEqual(Names.catalogue(self), before)

    def test_go_on_when_a_phone_that_was_pulled_out_is_back(self):
        self.put(HARP, BELLS, SUNRISE)
        self.stage.start_phone()
        self.keep_mirrors(*self.udids().values())
        self.stage.tell_phone("fault afc/Write#2=unplug")
        self.stage.start_window()
        self.stage.see("Plug In an iPhone")
        self.stage.tell_phone("clear-faults")
        self.stage.tell_phone("plug")
        self.see_on_phone(HARP, BELLS, SUNRISE)
        self.stage.see(UP_TO_DATE)
        self.assertFalse(self.stage.find("Finish", "push button"))

    def test_go_on_after_the_window_was_killed_in_the_middle(self):
        songs = [self.song(f"Song {number}", seconds=1) for number in range(3)]
        self.put(*songs)
        self.agreed(phone=["--link-speed", "4k"])
        self.stage.see_part("Ringtone 2 of 3")
        self.stage.kill_window()
        self.stage.start_window()
        self.see_on_phone(*songs)
        self.stage.see(UP_TO_DATE)

    def test_are_waited_for_by_the_window_and_cancelled(self):
        self.put(*[self.song(f"Song {number}", seconds=20) for number in range(10)])
        self.agreed(HARP, phone=["--link-speed", "16k"])
        self.stage.press("Show…")
        self.see_plan()
        self.answer("Mirror")
        self.stage.see_part("Ringtone 1 of 10")
        subprocess.run(["gapplication", "action", "com.korvane.Vesk", "quit"], check=True)
        self.stage.see("Wait until the sync is done, or cancel it")
        self.stage.press("Cancel")
        self.stage.see("Cancelled. The next change of the folder begins it anew.")
        self.stage.see("Try Again", "push button")
        self.assert_phone_holds(HARP)

    def test_are_of_each_phone_by_itself(self):
        self.put(HARP)
        other = self.stage.folder / "other"
        self.stage.start_phone("--root", other, "--name", "Old Phone")
        self.keep_mirrors(*self.udids().values())
        self.stage.start_window()
        self.see_on_phone(HARP)
        there = other / "iTunes_Control" / "Ringtones"
        self.stage.until(lambda: there.exists() and HARP.read_bytes() in [file.read_bytes() for file in there.iterdir()],
                         "the ringtone on the other phone")
        self.stage.until(lambda: all(mirror["held"] for mirror in self.kept()), "both to be done")

    def test_change_nothing_without_room_for_copies(self):
        contents = self.stage.folder / "state" / "krlvesk" / "contents"
        contents.parent.mkdir()
        contents.write_text("no folder")
        self.put(HARP)
        self.agreed()
        self.stage.see_part("There is no room on this computer for copies of the ringtones. ")
        self.assert_phone_holds()
        contents.unlink()
        self.stage.press("Try Again")
        self.see_on_phone(HARP)

    def test_wait_until_a_damaged_list_is_put_right(self):
        self.put(HARP, SUNRISE)
        self.stage.start_phone()
        self.stage.vesk("add", HARP)
        catalogue = self.stage.phone_folder / "iTunes_Control" / "iTunes" / "Ringtones.plist"
        catalogue.write_bytes(catalogue.read_bytes()[:100])
        self.keep_mirrors(*self.udids().values())
        self.stage.start_window()
        self.stage.see("Waits until the phone's list is put right.")
        self.assert_phone_holds(HARP)
        self.stage.press("Put Right")
        self.see_on_phone(HARP, SUNRISE)

    def test_leave_ringtones_as_they_were_cut_when_the_preferences_change(self):
        if not (Path(BUILD) / "bin" / "vesk-prepare").exists():
            self.skipTest("built without FFmpeg")
        self.put(self.song("Before", seconds=45))
        self.agreed()
        self.stage.see(UP_TO_DATE)
        [before] = self.stage.ringtones_on_phone()
        self.stage.close_window()
        kept = json.loads(self.preferences.read_text())
        self.preferences.write_text(json.dumps({**kept, "seconds": 9}))
        self.put(self.song("Afterwards", seconds=45))
        self.stage.start_window()
        self.stage.see("1 ringtone added")
        self.assertIn(before, self.stage.ringtones_on_phone())
        self.assertLess(min(map(len, self.stage.ringtones_on_phone())), len(before) / 2)

    def test_are_listed_and_ended_in_the_preferences(self):
        self.put(HARP)
        self.agreed()
        self.stage.see(UP_TO_DATE)
        self.stage.activate("preferences")
        self.stage.watched_window = 1
        self.stage.see(str(self.folder))
        self.stage.press("Stop")
        self.stage.see_none(str(self.folder))
        self.stage.key("Escape")
        self.stage.watched_window = 0
        self.stage.see_none(f"Mirrors “{self.folder.name}”")
        self.stage.press("Undo")
        self.stage.see(f"Mirrors “{self.folder.name}”")
        self.stage.see(UP_TO_DATE)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
