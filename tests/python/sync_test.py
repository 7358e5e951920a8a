#!/usr/bin/env python3
"""Changes of a phone's ringtones: planned, made, cancelled, refused and taken back.

    sync_test.py BUILD SOURCE [unittest's arguments]
"""
import gc
import os
import signal
import subprocess
import sys
import threading
import unittest
import weakref

from support import LONGEST, SAMPLES, PhoneTest, krlvesk, main

HARP, SUNRISE = SAMPLES / "harp.m4a", SAMPLES / "sunrise.m4r"


class Change(PhoneTest):
    def setUp(self):
        super().setUp()
        self.put("harp.m4a")
        self.device = self.open().find()

    def test_a_plan_changes_nothing_and_can_be_printed(self):
        before = (self.phone.files(), self.phone.catalogue())
        plan = self.device.plan(add=SUNRISE)
        self.assertEqual((plan.added, plan.removed, plan.ringtones), (("Sunrise 🌅",), (), ("Harp", "Sunrise 🌅")))
        self.assertEqual((plan.changes_anything, plan.upload_bytes), (True, SUNRISE.stat().st_size))
        upload = next(one for one in plan.operations if one.kind == "upload")
        self.assertEqual((upload.ringtone, upload.source, upload.size),
                         ("Sunrise 🌅", str(SUNRISE), SUNRISE.stat().st_size))
        self.assertIn(f"upload {upload.file} Sunrise 🌅\n", str(plan))
        self.assertIn("it would have 2 ringtones then", str(plan))
        self.assertEqual((self.phone.files(), self.phone.catalogue()), before)

    def test_a_plan_is_what_a_dry_run_of_vesk_shows(self):
        plan = self.device.plan(add=SUNRISE, backup=False)
        shown = self.vesk("add", "--dry-run", SUNRISE)[1]
        self.assertEqual([(one.kind, one.file, one.ringtone, one.source, one.size) for one in plan.operations],
                         [(one["operation"], one.get("file", ""), one.get("ringtone", ""), one.get("source", ""),
                           one["bytes"]) for one in shown["operations"]])

    def test_a_sync_does_what_was_planned(self):
        result = self.device.plan(add=[(SUNRISE, "Morning"), SAMPLES / "bells.mp3"], remove="Harp").sync()
        self.assertEqual((result.added, result.removed, result.changed_anything), (2, 1, True))
        self.assertIn("Morning", self.names())
        self.assertNotIn("Harp", self.names())
        self.assertIn(SUNRISE.read_bytes(), self.phone.files().values())

    def test_progress_is_told_in_the_thread_that_called(self):
        reports, threads = [], set()

        def hear(progress):
            reports.append(progress)
            threads.add(threading.get_ident())

        self.device.plan(add=SUNRISE).sync(progress=hear)
        self.assertEqual(threads, {threading.get_ident()})
        sent = [one for one in reports if one.stage == "sending"]
        self.assertEqual({one.current for one in sent}, {"Sunrise 🌅"})
        self.assertEqual((sent[-1].files_done, sent[-1].bytes_done), (1, SUNRISE.stat().st_size))
        self.assertEqual(sent[-1].fraction, 1)
        self.assertIn("finishing", [one.stage for one in reports])

    def test_a_ringtone_is_renamed_and_keeps_its_file(self):
        files = self.phone.files()
        plan = self.device.plan(rename={"Harp": "Lyre"})
        self.assertEqual(plan.renamed, {"Harp": "Lyre"})
        self.assertEqual(plan.sync().renamed, 1)
        self.assertEqual(self.names(), ["Lyre"])
        self.assertEqual(sorted(self.phone.files().values()), sorted(files.values()))

    def test_a_name_that_becomes_free_can_be_taken(self):
        self.device.plan(add=[(SUNRISE, "Harp")], rename={"Harp": "Lyre"}).sync()
        self.assertEqual(self.names(), ["Harp", "Lyre"])
        self.device.plan(add=[(HARP, "Lyre")], remove=["Lyre"]).sync()
        self.assertEqual(self.names(), ["Harp", "Lyre"])

    def test_a_ringtone_is_replaced_and_keeps_its_guid(self):
        before = self.device.ringtones()[0]
        self.device.plan(add=[(SUNRISE, "Harp")], replace=True).sync()
        after = self.device.ringtones()[0]
        self.assertEqual((after.name, after.guid, after.size), ("Harp", before.guid, SUNRISE.stat().st_size))

    def test_a_phone_comes_to_hold_a_folder(self):
        folder = self.folder / "songs"
        folder.mkdir()
        (folder / "Morning.m4r").write_bytes(SUNRISE.read_bytes())
        (folder / "notes.txt").write_text("no song")
        plan = self.device.plan(sync_to=folder)
        self.assertEqual((plan.removed, len(plan.skipped)), (("Harp",), 1))
        plan.sync()
        self.assertEqual(self.names(), ["Sunrise 🌅"])
        again = self.device.plan(sync_to=str(folder))
        self.assertFalse(again.changes_anything)
        self.assertEqual([song.already_there for song in again.songs], [True])
        self.assertIn("nothing to do, it has 1 ringtone", str(again))
        self.assertFalse(again.sync().changed_anything)

    def test_a_song_that_cannot_be_used_leaves_the_others(self):
        broken = self.folder / "broken.mp3"
        broken.write_bytes(b"no sound at all")
        plan = self.device.plan(sync_to=[SUNRISE, broken])
        self.assertEqual([song.path for song in plan.unusable], [broken])
        self.assertIsInstance(plan.unusable[0].error, krlvesk.RequestError)
        self.assertEqual(plan.removed, ())  # it may be there from a time when it could be used
        self.assertEqual(plan.ringtones, ("Harp", "Sunrise 🌅"))

    def test_a_plan_that_is_out_of_date_is_refused(self):
        plan = self.device.plan(add=SUNRISE)
        self.put("bells.mp3")
        before = self.phone.files()
        with self.assertRaises(krlvesk.ChangedByOthersError):
            plan.sync()
        self.assertEqual(self.phone.files(), before)

    def test_what_the_library_cannot_be_asked_is_a_value_error(self):
        with self.assertRaises(ValueError):
            self.device.plan(sync_to=[SUNRISE], remove="Harp")


class Refused(PhoneTest):
    """What vesk refuses, with its number and in its words."""

    def setUp(self):
        super().setUp()
        self.put("harp.m4a")
        self.device = self.open().find()

    def refuse(self, kind, wanted, *arguments):
        before = (self.phone.files(), self.phone.catalogue())
        with self.assertRaises(kind) as caught:
            self.device.plan(**wanted)
        self.assert_refused_as_by_vesk(caught.exception, *arguments)
        self.assertEqual((self.phone.files(), self.phone.catalogue()), before)

    def test_a_name_that_is_taken(self):
        self.refuse(krlvesk.NameTakenError, {"add": HARP}, "add", HARP)

    def test_a_new_name_that_is_taken(self):
        self.put("sunrise.m4r")
        self.refuse(krlvesk.NameTakenError, {"rename": {"Sunrise 🌅": "Harp"}}, "rename", "Sunrise 🌅", "Harp")

    def test_a_name_that_is_not_there(self):
        self.refuse(krlvesk.NameNotFoundError, {"remove": ["Hart"]}, "remove", "Hart")

    def test_a_name_that_cannot_be_one(self):
        self.refuse(krlvesk.BadNameError, {"rename": {"Harp": ""}}, "rename", "Harp", "")

    def test_a_file_that_is_not_there(self):
        self.refuse(krlvesk.UnreadableFileError, {"add": self.folder / "none.mp3"}, "add", self.folder / "none.mp3")

    def test_a_file_of_no_type(self):
        file = self.folder / "letter.txt"
        file.write_text("no song")
        self.refuse(krlvesk.RequestError, {"add": file}, "add", file)

    def test_an_empty_file(self):
        file = self.folder / "empty.m4a"
        file.touch()
        self.refuse(krlvesk.EmptyFileError, {"add": file}, "add", file)

    def test_too_little_space(self):
        self.phone.tell("free 10")
        self.refuse(krlvesk.NoSpaceError, {"add": SUNRISE}, "add", SUNRISE)

    def test_a_removal_of_everything_that_nobody_has_said_yes_to(self):
        folder = self.folder / "empty"
        folder.mkdir()
        self.refuse(krlvesk.NeedsYesError, {"sync_to": folder}, "sync", folder)
        self.device.plan(sync_to=folder, yes=True).sync()
        self.assertEqual(self.names(), [])

    def test_nothing_to_undo(self):
        self.device.undo()
        with self.assertRaises(krlvesk.NothingKeptError) as caught:
            self.device.undo()
        self.assert_refused_as_by_vesk(caught.exception, "undo")

    def test_a_catalogue_that_cannot_be_read(self):
        file = self.phone.root / "iTunes_Control" / "iTunes" / "Ringtones.plist"
        file.write_text("no catalogue")
        self.refuse(krlvesk.CatalogueUnreadableError, {"remove": "Harp"}, "remove", "Harp")
        with self.assertRaises(krlvesk.CatalogueUnreadableError) as caught:
            self.device.ringtones()
        self.assert_refused_as_by_vesk(caught.exception, "list")


class OtherFirmware(PhoneTest):
    options = ("--firmware", "2.0")

    def test_an_unknown_firmware_is_refused_as_by_vesk(self):
        device = self.open().find()
        with self.assertRaises(krlvesk.UnknownFirmwareError) as caught:
            device.plan(add=SUNRISE)
        self.assert_refused_as_by_vesk(caught.exception, "add", SUNRISE)


class Undone(PhoneTest):
    def setUp(self):
        super().setUp()
        self.device = self.open().find()
        self.device.plan(add=HARP).sync()

    def test_a_sync_is_taken_back(self):
        before = (self.phone.files(), self.phone.catalogue())
        self.device.plan(add=SUNRISE, remove="Harp").sync()
        changes = self.device.undo()
        self.assertEqual((changes.added, changes.removed), (("Harp",), ("Sunrise 🌅",)))
        self.assertTrue(changes)
        self.assertEqual((self.phone.files(), self.phone.catalogue()), before)

    def test_the_history_is_that_of_vesk(self):
        self.device.plan(rename={"Harp": "Lyre"}).sync()
        jobs = self.device.history()
        self.assertEqual([(job.what, job.undone) for job in jobs], [("rename", False), ("add", False)])
        self.assertEqual(jobs[0].changes.renamed, {"Harp": "Lyre"})
        self.assertEqual([(int(job.time.timestamp()), job.what) for job in jobs],
                         [(job["time"], job["command"]) for job in self.vesk("history")[1]["jobs"]])

    def test_a_phone_goes_back_to_before_any_job(self):
        before = self.phone.files()
        self.device.plan(rename={"Harp": "Lyre"}).sync()
        self.device.plan(add=SUNRISE).sync()
        self.device.go_back(self.device.history()[1])
        self.assertEqual(self.names(), ["Harp"])
        self.assertEqual(self.phone.files(), before)

    def test_what_others_have_done_is_taken_back_by_force_alone(self):
        before = self.phone.files()
        self.device.plan(rename={"Harp": "Lyre"}).sync()
        file = self.phone.root / "iTunes_Control" / "iTunes" / "Ringtones.plist"
        file.write_bytes(file.read_bytes().replace(b"Lyre", b"Lute"))
        with self.assertRaises(krlvesk.ChangedByOthersError) as caught:
            self.device.undo()
        self.assert_refused_as_by_vesk(caught.exception, "undo")
        self.assertEqual(self.names(), ["Lute"])
        self.device.undo(force=True)
        self.assertEqual(self.names(), ["Harp"])
        self.assertEqual(self.phone.files(), before)

    def test_what_vesk_has_done_is_taken_back_too(self):
        self.put("sunrise.m4r")
        self.assertEqual(self.device.undo().removed, ("Sunrise 🌅",))


class Cancelled(PhoneTest):
    """Nothing is lost, and the phone's sync lock is free."""

    def setUp(self):
        super().setUp()
        self.put("harp.m4a")
        self.before = self.names()
        self.catalogue = self.phone.catalogue()
        self.device = self.open().find()
        self.plan = self.device.plan(add=[(SUNRISE, str(number)) for number in range(5)], remove="Harp")

    def assert_nothing_happened(self):
        self.assertEqual(self.phone.catalogue(), self.catalogue)
        self.assertEqual([one.name for one in self.device.ringtones()], self.before)
        self.assertEqual(list(self.phone.files().values()), [HARP.read_bytes()])
        self.assert_lock_is_free()

    def test_by_a_flag_that_the_callback_sets(self):
        flag = threading.Event()

        def hear(progress):
            if progress.stage == "sending":
                flag.set()

        with self.assertRaises(krlvesk.CancelledError):
            self.plan.sync(hear, flag)
        self.assert_nothing_happened()

    def test_by_an_exception_of_the_callback(self):
        heard = []

        def hear(progress):
            if progress.stage == "sending":
                heard.append(progress)
                raise KeyError("mine")

        with self.assertRaises(KeyError) as caught:
            self.plan.sync(hear)
        self.assertEqual(len(heard), 1)
        self.assertIn("cancelled", caught.exception.__notes__[0])
        self.assert_nothing_happened()

    def test_what_a_callback_raises_holds_nothing_afterwards(self):
        class Mine(Exception):
            pass

        def hear(_):
            raise Mine

        gc.disable()
        self.addCleanup(gc.enable)
        references = []
        try:
            self.plan.sync(hear)
        except Mine as error:  # assertRaises would empty the frames that hold it
            references.append(weakref.ref(error))
        self.assertEqual([reference() for reference in references], [None])

    def test_by_a_flag_that_cannot_say(self):
        """The phones are free for the next call."""

        class NoAnswer:
            def __bool__(self):
                raise KeyError("mine")

        class Flag:
            def is_set(self):
                return NoAnswer()

        with self.assertRaises(KeyError):
            self.plan.sync(cancel=Flag())
        self.assert_nothing_happened()

    def test_by_a_signal_while_the_phone_thinks(self):
        """It answers once the signal was heard: what is told then is that nothing more is to be done."""
        was_interrupted = threading.Event()

        def interrupted(*_):
            was_interrupted.set()
            raise KeyboardInterrupt

        self.addCleanup(signal.signal, signal.SIGINT, signal.signal(signal.SIGINT, interrupted))
        flag = TalksAgain(self.phone, was_interrupted)

        def hear(progress):
            if progress.stage == "sending" and not flag.is_silent:
                self.phone.tell("silence")
                flag.is_silent = True
                threading.Thread(target=os.kill, args=(os.getpid(), signal.SIGINT)).start()

        with self.assertRaises(KeyboardInterrupt):
            self.plan.sync(hear, flag)
        self.assert_nothing_happened()

    def test_by_the_end_of_the_phones(self):
        def hear(progress):
            if progress.stage == "sending":
                self.device._phones.close()

        with self.assertRaises(krlvesk.CancelledError):
            self.plan.sync(hear)
        self.device = self.open().find()
        self.assert_nothing_happened()

    def test_by_the_end_of_the_phones_which_several_threads_wait_for(self):
        phones, sends = self.device._phones, threading.Event()

        def hear(progress):
            if progress.stage == "sending":
                self.phone.tell("silence")
                sends.set()
                threading.Event().wait()

        threading.Thread(target=self.plan.sync, args=(hear,), daemon=True).start()
        sends.wait()
        first = threading.Thread(target=phones.close)
        first.start()
        while not phones.closed:
            pass
        self.phone.tell("talk")
        phones.close()
        with krlvesk.Phones() as others:
            self.device = others.find()
            self.assert_nothing_happened()
        first.join(LONGEST)

    def test_by_the_end_of_the_program_in_another_thread(self):
        program = f"""
import krlvesk, threading
device = krlvesk.Phones().find()
plan = device.plan(add=[({str(SUNRISE)!r}, str(number)) for number in range(5)], remove="Harp")
sends, ends = threading.Event(), threading.Event()
def hear(progress):
    if progress.stage == "sending":
        sends.set()
        ends.wait()
import atexit
atexit.register(ends.set)
threading.Thread(target=plan.sync, args=(hear,), daemon=True).start()
sends.wait()
"""
        self.device._phones.close()
        done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, timeout=LONGEST)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.device = self.open().find()
        self.assert_nothing_happened()

    def test_the_phones_cannot_be_asked_by_a_callback(self):
        def hear(_):
            self.device.ringtones()

        with self.assertRaisesRegex(RuntimeError, "busy with the call"):
            self.plan.sync(hear)
        self.assert_nothing_happened()


class TalksAgain:
    """A flag that is never set, and a phone that is silent until a signal was heard."""

    def __init__(self, phone, was_interrupted):
        self.is_silent = False
        self._phone = phone
        self._was_interrupted = was_interrupted

    def is_set(self):
        if self.is_silent and self._was_interrupted.is_set():
            self._was_interrupted.clear()
            self._phone.tell("talk")
        return False


class PulledOut(PhoneTest):
    def test_a_phone_that_goes_during_a_sync_is_put_right_by_the_next(self):
        self.put("harp.m4a")
        phones = self.open()
        device = phones.find()
        plan = device.plan(add=SUNRISE, remove="Harp")

        is_there = True

        def hear(progress):
            nonlocal is_there
            if progress.stage == "sending" and is_there:
                self.phone.tell("unplug")
                is_there = False

        with self.assertRaises(krlvesk.PhoneGoneError) as caught:
            plan.sync(hear)
        self.assertEqual(caught.exception.code, 41)
        self.phone.tell("plug")
        device = phones.find()
        self.assertEqual(device.info().unfinished_job, "sync")
        self.assertEqual([one.name for one in device.ringtones()], ["Harp"])
        self.assertEqual(self.vesk("remove", "Harp")[0], 0)
        self.assertIsNone(device.info().unfinished_job)


if __name__ == "__main__":
    main()
