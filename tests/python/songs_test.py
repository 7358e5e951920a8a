#!/usr/bin/env python3
"""Songs that are looked at, made ringtones, and brought to a phone; and what the manual shows of that.

    songs_test.py BUILD SOURCE [unittest's arguments]
"""
import re
import shutil
import subprocess
import sys
import unittest

from support import LONGEST, SAMPLES, SOURCE, PhoneTest, krlvesk, main


def make_song(place, seconds=12):
    """An Ogg file with a tone, which no early phone plays."""
    subprocess.run(["ffmpeg", "-loglevel", "error", "-f", "lavfi", "-i", f"sine=440:duration={seconds}", "-c:a",
                    "flac", "-metadata", "title=Long Tone", place], check=True, timeout=LONGEST)
    return place


class Songs(PhoneTest):
    def test_a_song_is_looked_at_as_by_vesk(self):
        said = self.vesk("inspect", SAMPLES / "two-tone.mp3")[1]["files"][0]
        found = krlvesk.inspect(SAMPLES / "two-tone.mp3")
        self.assertEqual((found.verdict, list(found.reasons), found.codec, found.sample_rate, found.length,
                          found.title),
                         (said["verdict"], said["reasons"], said["codec"], said["sampleRate"],
                          said["lengthMs"] / 1000, said["title"]))
        self.assertTrue(krlvesk.inspect(SAMPLES / "sunrise.m4r").plays)

    def test_what_is_not_there_is_refused_as_by_vesk(self):
        with self.assertRaises(krlvesk.UnreadableFileError) as caught:
            krlvesk.inspect(self.folder / "none.mp3")
        code, document = self.vesk("inspect", self.folder / "none.mp3")
        error = document["files"][0]["error"]
        self.assertEqual((caught.exception.code, caught.exception.message, caught.exception.advice),
                         (error["code"], error["message"], error["hint"]))

    def test_a_ringtone_is_made_of_a_song(self):
        song = make_song(self.folder / "tone.flac")
        made = krlvesk.prepare(song, self.folder, start="0:02", length=5)
        self.assertEqual((made.path, made.from_cache, made.already_there), (self.folder / "tone.m4r", False, False))
        self.assertAlmostEqual(made.start, 2, places=1)
        self.assertAlmostEqual(made.length, 5, places=1)
        self.assertEqual(made.size, made.path.stat().st_size)
        self.assertTrue(krlvesk.inspect(made.path).plays)
        self.assertTrue(krlvesk.prepare(song, self.folder, start=2, length="0:05").already_there)

    def test_a_song_is_not_written_over(self):
        song = make_song(self.folder / "tone.flac").rename(self.folder / "tone.m4r")
        before = song.read_bytes()
        with self.assertRaises(krlvesk.NameTakenError) as caught:
            krlvesk.prepare(song, self.folder / "tone.m4r", replace=True)
        code, document = self.vesk("prepare", song, "--output", self.folder / "tone.m4r", "--force")
        self.assertEqual((caught.exception.code, caught.exception.message), (code, document["error"]["message"]))
        self.assertEqual(song.read_bytes(), before)

    def test_a_file_that_holds_something_else_stays_unless_it_is_said(self):
        song = make_song(self.folder / "tone.flac")
        place = self.folder / "mine.m4r"
        place.write_text("mine")
        with self.assertRaises(krlvesk.NameTakenError):
            krlvesk.prepare(song, place)
        self.assertEqual(place.read_text(), "mine")
        krlvesk.prepare(song, place, start="auto", replace=True)
        self.assertTrue(krlvesk.inspect(place).plays)

    def test_what_is_no_time_is_a_value_error(self):
        with self.assertRaisesRegex(ValueError, "'soon' is no time"):
            krlvesk.prepare(SAMPLES / "harp.m4a", self.folder, start="soon")
        for argument in ("start", "length", "fade_in", "fade_out"):
            for time in (float("nan"), float("inf")):
                with self.subTest(argument=argument), self.assertRaisesRegex(ValueError, "is no time"):
                    krlvesk.prepare(SAMPLES / "harp.m4a", self.folder, **{argument: time})

    def test_songs_become_ringtones_on_their_way_to_a_phone(self):
        song = make_song(self.folder / "tone.flac")
        device = self.open().find()
        reports = []
        plan = device.plan(add=song, progress=reports.append)
        self.assertEqual([(one.path, one.ringtone, one.prepared) for one in plan.songs], [(song, "Long Tone", True)])
        self.assertEqual([(one.stage, one.files_done, one.files_total) for one in reports if one.stage == "making"],
                         [("making", 0, 1), ("making", 1, 1)])
        plan.sync()
        self.assertEqual(self.names(), ["Long Tone"])
        self.assertTrue(device.plan(add=[song], replace=True).songs[0].already_there)

    def test_songs_that_need_it_are_refused_when_nothing_is_to_be_made(self):
        song = make_song(self.folder / "tone.flac")
        with self.assertRaises(krlvesk.Error) as caught:
            self.open().find().plan(add=song, prepare=False)
        self.assert_refused_as_by_vesk(caught.exception, "add", "--as-is", song)

    def test_making_is_cancelled(self):
        songs = [make_song(self.folder / f"tone{number}.flac") for number in range(3)]

        def hear(progress):
            raise KeyError("mine")

        device = self.open().find()
        with self.assertRaises(KeyError):
            device.plan(add=songs, progress=hear)
        self.assertEqual(device.ringtones(), [])


class Manual(PhoneTest):
    def test_what_the_manual_shows_works(self):
        text = (SOURCE / "docs" / "python.md").read_text()
        programs = re.findall(r"^```python\n(.*?)^```", text, re.DOTALL | re.MULTILINE)
        self.assertGreater(len(programs), 2)
        shutil.copy(SAMPLES / "harp.m4a", self.folder / "Marimba.m4a")
        (self.folder / "songs").mkdir()
        shutil.copy(SAMPLES / "harp.m4a", self.folder / "songs")
        shutil.copy(SAMPLES / "two-tone.mp3", self.folder / "song.mp3")
        for number, program in enumerate(programs):
            with self.subTest(number=number):
                done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, cwd=self.folder,
                                      timeout=LONGEST)
                self.assertEqual(done.returncode, 0, done.stderr)


if __name__ == "__main__":
    main()
