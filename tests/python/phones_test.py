#!/usr/bin/env python3
"""Phones as they come and go, what they say, and who waits for them.

    phones_test.py BUILD SOURCE [unittest's arguments]
"""
import collections
import gc
import os
import select
import shutil
import subprocess
import sys
import tempfile
import threading
import unittest
from unittest import mock

from support import LONGEST, SAMPLES, PhoneTest, krlvesk, main

from krlvesk._values import seconds_to_wait


class Arrival(PhoneTest):
    def test_a_phone_that_is_attached_arrives(self):
        event = next(self.open())
        self.assertTrue(event.arrived)
        self.assertEqual((event.phone.name, event.phone.device_class, event.phone.firmware, event.phone.paired),
                         ("My Phone", "iPhone", "1.1.1", True))

    def test_a_phone_that_is_pulled_out_goes(self):
        phones = self.open()
        arrived = next(phones)
        self.phone.tell("unplug")
        gone = next(phones)
        self.assertFalse(gone.arrived)
        self.assertEqual(gone.phone, arrived.phone)
        self.assertEqual(gone.phone.name, "My Phone")

    def test_what_is_attached_is_known(self):
        phones = self.open()
        phone = next(phones).phone
        self.assertEqual(phones.attached, [phone])
        self.phone.tell("unplug")
        next(phones)
        self.assertEqual(phones.attached, [])

    def test_the_descriptor_is_readable_until_the_news_is_taken(self):
        phones = self.open()
        self.assertEqual(select.select([phones], [], [], LONGEST)[0], [phones])
        self.assertEqual([event.arrived for event in phones.dispatch()], [True])
        self.assertEqual(select.select([phones], [], [], 0)[0], [])
        self.assertEqual(phones.dispatch(), [])

    def test_who_looks_at_what_is_attached_takes_no_events_away(self):
        phones = self.open()
        select.select([phones], [], [], LONGEST)
        self.assertEqual(len(phones.attached), 1)
        self.assertEqual(select.select([phones], [], [], 0)[0], [phones])
        self.assertEqual([event.arrived for event in phones.dispatch()], [True])
        self.assertEqual(select.select([phones], [], [], 0)[0], [])

    def test_the_descriptor_is_readable_while_events_are_left(self):
        phones = self.open()
        next(phones)
        self.phone.tell("unplug")
        while phones.attached:
            pass
        self.phone.tell("plug")
        while not phones.attached:
            pass
        self.assertFalse(next(phones).arrived)
        self.assertEqual(select.select([phones], [], [], 0)[0], [phones])
        self.assertTrue(next(phones).arrived)
        self.assertEqual(select.select([phones], [], [], 0)[0], [])

    def test_who_waits_hears_of_what_another_thread_has_seen(self):
        phones = self.open()
        next(phones)
        events = []
        thread = threading.Thread(target=lambda: events.append(next(phones)))
        thread.start()
        self.phone.tell("unplug")
        while phones.attached:
            pass
        thread.join(LONGEST)
        self.assertEqual([event.arrived for event in events], [False])

    def test_who_waits_for_no_event_for_long_gets_none(self):
        phones = self.open()
        next(phones)
        self.assertIsNone(phones.next_event(timeout=0.01))

    def test_a_loop_ends_when_another_thread_closes(self):
        phones = krlvesk.Phones()
        seen = []
        first = threading.Event()

        def listen():
            for event in phones:
                seen.append(event.arrived)
                first.set()

        thread = threading.Thread(target=listen)
        thread.start()
        self.assertTrue(first.wait(LONGEST))
        phones.close()
        thread.join(LONGEST)
        self.assertFalse(thread.is_alive())
        self.assertEqual(seen, [True])


class Asked(PhoneTest):
    def test_the_only_phone_is_found(self):
        phone = self.open().find()
        self.assertEqual(phone.name, "My Phone")

    def test_there_is_one_at_a_time(self):
        self.open()
        with self.assertRaisesRegex(RuntimeError, "one at a time"):
            krlvesk.Phones()

    def test_of_threads_that_open_at_once_one_does(self):
        begun = threading.Barrier(8)
        opened, refused = [], []

        def open_phones():
            begun.wait()
            try:
                opened.append(krlvesk.Phones())
            except RuntimeError as error:
                refused.append(str(error))

        threads = [threading.Thread(target=open_phones) for _ in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(LONGEST)
        self.assertEqual((len(opened), refused), (1, ["there is an open Phones already: one at a time"] * 7))
        self.assertEqual(opened[0].find().name, "My Phone")
        opened[0].close()

    def test_a_phone_is_found_by_its_name(self):
        self.assertEqual(self.open().find("my phone").name, "My Phone")

    def test_it_says_what_it_is(self):
        info = self.open().find().info()
        self.assertEqual((info.name, info.firmware, info.older_layout, info.catalogue, info.ringtones),
                         ("My Phone", "1.1.1", True, "none", 0))
        self.assertIsNone(info.unfinished_job)

    def test_its_ringtones_are_those_that_vesk_lists(self):
        self.put("harp.m4a", "sunrise.m4r")
        said = self.vesk("list")[1]["ringtones"]
        ringtones = self.open().find().ringtones()
        self.assertEqual([(one.name, one.guid, one.file, one.size) for one in ringtones],
                         [(one["name"], one["guid"], one["file"], one["bytes"]) for one in said])
        self.assertEqual([one.type for one in ringtones], ["m4a", "m4r"])

    def test_one_that_is_not_there_is_refused_as_by_vesk(self):
        with self.assertRaises(krlvesk.NoPhoneError) as caught:
            self.open().find("Nobody's")
        self.assert_refused_as_by_vesk(caught.exception, "list", "--udid", "Nobody's")

    def test_what_is_asked_for_may_be_waited_for_without_end(self):
        phones = self.open()
        self.assertEqual(phones.find(wait=float("inf")).name, "My Phone")
        self.assertTrue(phones.next_event(timeout=float("inf")).arrived)
        self.phone.tell("unplug")
        self.assertFalse(phones.next_event(timeout=1e300).arrived)
        with self.assertRaises(krlvesk.NoPhoneError):
            phones.find(wait=-1)
        with self.assertRaises(ValueError):
            phones.find(wait=float("nan"))
        self.assertEqual(seconds_to_wait(1e300), 30 * 24 * 60 * 60)

    def test_text_that_is_no_text_is_refused_as_by_vesk(self):
        """Names of files may hold what is no UTF-8; Python has it as surrogates."""
        self.put("harp.m4a")
        phones = self.open()
        for call in (lambda: phones.find("\udcff"), lambda: phones.find().plan(remove="\udcff"),
                     lambda: phones.find().plan(rename={"Harp": "\udcff"}),
                     lambda: phones.find().plan(add=[(SAMPLES / "sunrise.m4r", "\udcff")]),
                     lambda: phones.find().fetch("\udcff", self.folder)):
            with self.subTest(call=call), self.assertRaisesRegex(krlvesk.Error, "\ufffd"):
                call()
        with self.assertRaises(UnicodeEncodeError):
            phones.find().plan(remove="\ud800")

    def test_an_empty_path_is_not_the_current_folder(self):
        self.put("harp.m4a")
        phone = self.open().find()
        with self.assertRaises(krlvesk.UnreadableFileError) as caught:
            phone.plan(sync_to="")
        self.assert_refused_as_by_vesk(caught.exception, "sync", "")
        with self.assertRaises(krlvesk.UnreadableFileError) as caught:
            phone.plan(add="")
        self.assert_refused_as_by_vesk(caught.exception, "add", "")
        with self.assertRaisesRegex(ValueError, "empty path"):
            phone.fetch(folder="")

    def test_a_path_ends_at_no_null_byte(self):
        phone = self.open().find()
        song = str(SAMPLES / "sunrise.m4r") + "\0.txt"
        for call in (lambda: phone.plan(add=song), lambda: phone.plan(sync_to=song), lambda: phone.fetch(folder=song),
                     lambda: krlvesk.inspect(song), lambda: krlvesk.prepare(song, self.folder / "out.m4r")):
            with self.subTest(call=call), self.assertRaisesRegex(ValueError, "null byte"):
                call()

    def test_songs_come_in_any_sequence(self):
        phone = self.open().find()
        songs = [SAMPLES / "harp.m4a", str(SAMPLES / "sunrise.m4r")]
        for given in (songs, tuple(songs), collections.deque(songs), iter(songs)):
            self.assertEqual(phone.plan(sync_to=given).added, ("Harp", "Sunrise 🌅"))

    def test_one_that_was_pulled_out_is_not_asked(self):
        phones = self.open()
        phone = phones.find()
        self.phone.tell("unplug")
        with self.assertRaises(krlvesk.WhichPhoneError):
            phone.ringtones()

    def test_ringtones_are_fetched_whole(self):
        self.put("harp.m4a")
        phone = self.open().find()
        reports = []
        fetched = phone.fetch("Harp", self.folder / "out", progress=reports.append)
        self.assertEqual([one.path for one in fetched], [self.folder / "out" / "Harp.m4a"])
        self.assertEqual(fetched[0].path.read_bytes(), (SAMPLES / "harp.m4a").read_bytes())
        self.assertFalse(fetched[0].already_there)
        self.assertEqual(reports[-1].fraction, 1)
        self.assertTrue(phone.fetch(folder=self.folder / "out")[0].already_there)

    def test_a_fetch_is_refused_as_by_vesk(self):
        self.put("harp.m4a")
        with self.assertRaises(krlvesk.NameNotFoundError) as caught:
            self.open().find().fetch("Hart", self.folder)
        self.assert_refused_as_by_vesk(caught.exception, "get", "Hart", "--output", self.folder)


class Unpaired(PhoneTest):
    options = ("--unpaired",)

    def test_it_can_be_paired_and_unpaired(self):
        phones = self.open()
        phone = next(phones).phone
        self.assertFalse(phone.paired)
        self.assertTrue(phone.pair())
        self.assertEqual(phones.find(), phone)
        self.assertFalse(phone.pair())
        self.assertTrue(phone.unpair())
        with self.assertRaises(krlvesk.NotPairedError) as caught:
            phones.find()
        self.assert_refused_as_by_vesk(caught.exception, "list")


class Several(PhoneTest):
    def setUp(self):
        other = tempfile.mkdtemp(prefix="krlvesk-")
        self.addCleanup(shutil.rmtree, other, ignore_errors=True)
        self.options = ("--root", other, "--name", "Other Phone")
        super().setUp()

    def test_who_does_not_say_which_is_refused_as_by_vesk(self):
        phones = self.open()
        with self.assertRaises(krlvesk.SeveralPhonesError) as caught:
            phones.find()
        self.assert_refused_as_by_vesk(caught.exception, "list")
        self.assertEqual(phones.find("Other Phone").name, "Other Phone")


    def test_ctrl_c_waits_for_none_of_them(self):
        phones = self.open()
        next(phones), next(phones)
        self.silence_for_ever()
        self.interrupt(phones.find)


class Closed(PhoneTest):
    def test_what_is_closed_says_so(self):
        with krlvesk.Phones() as phones:
            phone = phones.find()
        self.assertTrue(phones.closed)
        for call in (phones.fileno, phones.dispatch, phones.find, phone.info, phone.ringtones, phone.history):
            with self.subTest(call=call), self.assertRaisesRegex(ValueError, "closed"):
                call()
        phones.close()
        self.assertIsNone(phones.next_event())

    def test_phones_can_be_opened_again(self):
        for _ in range(3):
            with krlvesk.Phones() as phones:
                self.assertEqual(phones.find().name, "My Phone")

    def test_objects_may_outlive_each_other(self):
        phone = krlvesk.Phones().find()
        gc.collect()
        self.assertEqual(phone.info().name, "My Phone")
        plan = phone.plan(add=SAMPLES / "harp.m4a")
        del phone
        gc.collect()
        self.assertEqual(plan.sync().added, 1)
        del plan
        gc.collect()
        with krlvesk.Phones():
            pass

    def test_a_program_may_end_with_them_open(self):
        for end in ("", "import os, signal; signal.raise_signal(signal.SIGINT)", "raise SystemExit(3)"):
            with self.subTest(end=end):
                program = ("import krlvesk\nphones = krlvesk.Phones()\nphone = phones.find()\n"
                           "phone.ringtones()\n" + end)
                done = subprocess.run([sys.executable, "-c", program], capture_output=True, timeout=LONGEST)
                self.assertGreaterEqual(done.returncode, -2)  # no crash: what Ctrl-C ends is ended by SIGINT
                self.assertNotIn(b"terminate", done.stderr)

    def test_a_program_may_end_while_a_thread_waits(self):
        self.phone.tell("silence")
        program = ("import krlvesk, threading\nphones = krlvesk.Phones()\nbegun = threading.Event()\n"
                   "def listen():\n    begun.set()\n    phones.find(wait=60)\n"
                   "threading.Thread(target=listen, daemon=True).start()\nbegun.wait()\n")
        done = subprocess.run([sys.executable, "-c", program], capture_output=True, timeout=LONGEST)
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_a_program_may_end_while_threads_look_at_songs(self):
        song = str(SAMPLES / "harp.m4a")
        program = ("import krlvesk, threading\nbegun = threading.Event()\n"
                   f"def look():\n    while True:\n        krlvesk.inspect({song!r})\n        begun.set()\n"
                   "for _ in range(4):\n    threading.Thread(target=look, daemon=True).start()\nbegun.wait()\n")
        self.assert_ends_well(program)

    def test_a_program_may_end_while_threads_are_refused(self):
        program = ("import krlvesk, threading\nbegun = threading.Event()\n"
                   "def look():\n    while True:\n        try:\n            krlvesk.inspect('nothing.mp3')\n"
                   "        except krlvesk.Error:\n            begun.set()\n"
                   "for _ in range(4):\n    threading.Thread(target=look, daemon=True).start()\nbegun.wait()\n")
        self.assert_ends_well(program)

    def test_a_program_may_end_while_a_callback_is_busy(self):
        song = str(SAMPLES / "harp.m4a")
        program = ("import krlvesk, threading, time\nphone = krlvesk.Phones().find()\nbegun = threading.Event()\n"
                   "def hear(progress):\n    begun.set()\n    while True:\n        time.sleep(0)\n"
                   f"threading.Thread(target=lambda: phone.plan(add={song!r}).sync(hear), daemon=True).start()\n"
                   "begun.wait()\n")
        self.assert_ends_well(program)
        self.assertEqual(self.open().find().ringtones(), [])

    def assert_ends_well(self, program):
        """Several times: what goes wrong does so in the moment between the end of Python and that of the process."""
        for _ in range(5):
            done = subprocess.run([sys.executable, "-c", program], capture_output=True, timeout=LONGEST)
            self.assertEqual((done.returncode, done.stderr), (0, b""))

    def test_a_program_may_end_while_a_callback_never_returns(self):
        song = str(SAMPLES / "harp.m4a")
        program = ("import krlvesk, threading\nphone = krlvesk.Phones().find()\nbegun = threading.Event()\n"
                   "def hear(progress):\n    begun.set()\n    threading.Event().wait()\n"
                   f"threading.Thread(target=lambda: phone.plan(add={song!r}).sync(hear), daemon=True).start()\n"
                   "begun.wait()\n")
        done = subprocess.run([sys.executable, "-c", program], capture_output=True, timeout=LONGEST)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(self.open().find().ringtones(), [])


class Silent(PhoneTest):
    def test_ctrl_c_waits_for_no_answer_and_leaves_the_phones_free(self):
        phone = next(self.open()).phone
        self.silence_for_ever()
        self.interrupt(phone.info)
        self.phone.tell("clear-faults")
        self.assertEqual(phone.info().name, "My Phone")

    def test_ctrl_c_waits_for_no_answer_to_what_is_asked_afterwards(self):
        """After a session that could not be had the phone is asked again."""
        phone = next(self.open()).phone
        self.silence_for_ever("lockdown/StartSession")
        self.interrupt(phone.info)

    def test_work_that_nobody_waits_for_any_more_is_cancelled(self):
        """Ctrl-C just when it has begun: nobody would hear of its progress, which it waits for."""
        phone = self.open().find()
        plan = phone.plan(add=SAMPLES / "harp.m4a")

        def interrupted(*_):
            raise KeyboardInterrupt

        with mock.patch("krlvesk._phones.Wait", interrupted), self.assertRaises(KeyboardInterrupt):
            plan.sync()
        self.assertEqual(phone.ringtones(), [])


class Forked(PhoneTest):
    """Only the parent has its phones."""

    def assert_child(self, program):
        """What a child does that was forked off a process with phones, before the parent uses them again."""
        whole = ("import krlvesk, os, sys\nphones = krlvesk.Phones()\nphone = phones.find()\nchild = os.fork()\n"
                 f"if child == 0:\n{program}"
                 "else:\n    print(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), phone.ringtones())\n")
        done = subprocess.run([sys.executable, "-c", whole], capture_output=True, text=True, timeout=LONGEST)
        self.assertEqual((done.returncode, done.stderr, done.stdout), (0, "", "7 []\n"))

    def test_a_child_ends_as_it_likes(self):
        self.assert_child("    sys.exit(7)\n")

    def test_a_child_may_let_go_of_them(self):
        self.assert_child("    phones.close()\n    del phones, phone\n    os._exit(7)\n")

    def test_to_a_child_they_are_closed(self):
        self.assert_child("    try:\n        phone.ringtones()\n    except ValueError:\n"
                          "        os._exit(7 if phones.closed and phones.next_event() is None else 1)\n")

    def test_a_child_cannot_open_others(self):
        self.assert_child("    try:\n        krlvesk.Phones()\n    except RuntimeError as error:\n"
                          "        os._exit(7 if 'spawn' in str(error) else 1)\n")

    def test_a_child_may_look_at_songs(self):
        song = str(SAMPLES / "sunrise.m4r")
        self.assert_child(f"    os._exit(7 if krlvesk.inspect({song!r}).plays else 1)\n")


class Threads(PhoneTest):
    def test_any_thread_may_ask(self):
        self.put("harp.m4a")
        phone = self.open().find()
        answers = []
        threads = [threading.Thread(target=lambda: answers.append(phone.ringtones())) for _ in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(LONGEST)
        self.assertEqual([[one.name for one in answer] for answer in answers], [["Harp"]] * 8)

    def test_others_run_while_one_waits(self):
        """The phone answers when another thread of Python has told it to."""
        phone = self.open().find()
        self.phone.tell("silence")
        ready = threading.Event()

        def talk():
            ready.wait()
            self.phone.tell("talk")

        talker = threading.Thread(target=talk)
        talker.start()
        ready.set()
        self.assertEqual(phone.info().name, "My Phone")
        talker.join(LONGEST)


class NoDaemon(unittest.TestCase):
    def test_no_phone_is_found_without_a_mux(self):
        os.environ["USBMUXD_SOCKET_ADDRESS"] = "UNIX:/nowhere/usbmux"
        with krlvesk.Phones() as phones, self.assertRaises(krlvesk.WhichPhoneError):
            phones.find(wait=0.01)


if __name__ == "__main__":
    main()
