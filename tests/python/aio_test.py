#!/usr/bin/env python3
"""The module on asyncio: one loop, one descriptor, no thread of Python's own.

    aio_test.py BUILD SOURCE [unittest's arguments]
"""
import asyncio
import threading
import unittest

from support import LONGEST, SAMPLES, PhoneTest, krlvesk, main

from krlvesk import aio

HARP, SUNRISE = SAMPLES / "harp.m4a", SAMPLES / "sunrise.m4r"


def on_loop(test):
    """Runs a test on a loop of its own, in which nothing else is left over."""

    def run(self):
        async def whole():
            await asyncio.wait_for(test(self), LONGEST)
            self.assertEqual(asyncio.all_tasks(), {asyncio.current_task()})

        asyncio.run(whole())

    run.__name__, run.__doc__ = test.__name__, test.__doc__
    return run


class Loop(PhoneTest):
    @on_loop
    async def test_phones_come_and_go(self):
        seen = []
        async with aio.Phones() as phones:
            async for event in phones:
                seen.append((event.arrived, event.phone.name))
                if not event.arrived:
                    break
                self.assertEqual(phones.attached, [event.phone])
                self.phone.tell("unplug")
            self.assertEqual(phones.attached, [])
        self.assertEqual(seen, [(True, "My Phone"), (False, "My Phone")])

    @on_loop
    async def test_a_change_is_planned_made_and_taken_back(self):
        reports = []
        async with aio.Phones() as phones:
            device = await phones.find()
            plan = await device.plan(add=HARP)
            self.assertIn("it would have 1 ringtone then", str(plan))
            self.assertEqual((await plan.sync(reports.append)).added, 1)
            self.assertEqual([one.name for one in await device.ringtones()], ["Harp"])
            self.assertEqual((await device.info()).ringtones, 1)
            fetched = await device.fetch("Harp", self.folder / "out")
            self.assertEqual(fetched[0].path.read_bytes(), HARP.read_bytes())
            self.assertEqual([job.what for job in await device.history()], ["add"])
            self.assertEqual((await device.undo()).removed, ("Harp",))
            await device.go_back((await device.history())[0])
        self.assertEqual(reports[0].stage, "waiting-for-lock")
        self.assertIn("Harp", {one.current for one in reports})
        self.assertEqual(threading.active_count(), 1 + self.workers())

    @staticmethod
    def workers():
        """Of the loop's own pool, which closes the phones."""
        return sum(thread.name.startswith("asyncio") for thread in threading.enumerate())

    @on_loop
    async def test_other_tasks_run_while_the_phone_thinks(self):
        """The phone answers when another task has told it to."""
        async with aio.Phones() as phones:
            device = await phones.find()
            self.phone.tell("silence")
            asked = asyncio.ensure_future(device.info())
            await asyncio.sleep(0)
            self.phone.tell("talk")
            self.assertEqual((await asked).name, "My Phone")

    @on_loop
    async def test_several_may_ask_at_once(self):
        self.put("harp.m4a")
        async with aio.Phones() as phones:
            device = await phones.find()
            lists = await asyncio.gather(*(device.ringtones() for _ in range(5)))
        self.assertEqual([[one.name for one in ringtones] for ringtones in lists], [["Harp"]] * 5)

    @on_loop
    async def test_a_refusal_is_that_of_vesk(self):
        self.put("harp.m4a")
        async with aio.Phones() as phones:
            device = await phones.find()
            with self.assertRaises(krlvesk.NameTakenError) as caught:
                await device.plan(add=HARP)
        self.assert_refused_as_by_vesk(caught.exception, "add", HARP)

    async def assert_sync_ends_clean(self, stop, kind):
        self.put("harp.m4a")
        catalogue = self.phone.catalogue()
        async with aio.Phones() as phones:
            device = await phones.find()
            plan = await device.plan(add=[(SUNRISE, str(number)) for number in range(5)], remove="Harp")
            task = None

            def hear(progress):
                if progress.stage == "sending":
                    stop(task)

            task = asyncio.ensure_future(plan.sync(hear))
            with self.assertRaises(kind) as caught:
                await task
            self.assertIn("cancelled", caught.exception.__notes__[0])
            self.assertEqual([one.name for one in await device.ringtones()], ["Harp"])
        self.assertEqual(self.phone.catalogue(), catalogue)
        self.assertEqual(list(self.phone.files().values()), [HARP.read_bytes()])
        self.assert_lock_is_free()

    @on_loop
    async def test_an_exception_of_the_callback_cancels(self):
        def stop(_):
            raise KeyError("mine")

        await self.assert_sync_ends_clean(stop, KeyError)

    @on_loop
    async def test_an_iterator_of_the_callback_may_be_at_its_end(self):
        """A coroutine cannot raise StopIteration."""
        await self.assert_sync_ends_clean(lambda _: next(iter(())), RuntimeError)

    @on_loop
    async def test_the_end_of_the_phones_ends_what_is_awaited(self):
        async with aio.Phones() as phones:
            await phones.find()
            self.phone.tell("silence")
            asked = asyncio.ensure_future(phones.find())
            waited = asyncio.ensure_future(anext(aiter(WithoutEvents(phones))))
            await asyncio.sleep(0)
        with self.assertRaises(krlvesk.Error):
            await asked
        with self.assertRaises(StopAsyncIteration):
            await waited

    @on_loop
    async def test_who_is_cancelled_while_closing_closes_all_the_same(self):
        phones = await aio.Phones().__aenter__()
        await phones.find()
        self.phone.tell("silence")
        asked = asyncio.ensure_future(phones.find())
        closing = asyncio.ensure_future(phones.close())
        await asyncio.sleep(0)
        await asyncio.sleep(0)
        closing.cancel()
        await phones.close()  # waits for the other one
        with self.assertRaises(asyncio.CancelledError):
            await closing
        with self.assertRaises(krlvesk.Error):
            await asked
        self.phone.tell("talk")
        async with aio.Phones() as others:
            self.assertEqual((await others.find()).name, "My Phone")

    def test_a_loop_ends_while_phones_are_closed(self):
        """It cancels all of its tasks."""
        async def whole():
            phones = await aio.Phones().__aenter__()
            await phones.find()
            self.phone.tell("silence")
            tasks = [asyncio.ensure_future(one) for one in (phones.find(), phones.close())]
            await asyncio.sleep(0)
            await asyncio.sleep(0)
            return tasks

        asked, closing = asyncio.run(whole())
        self.assertTrue(asked.cancelled() or isinstance(asked.exception(), krlvesk.Error))
        self.assertTrue(closing.cancelled() or closing.exception() is None)

    @on_loop
    async def test_phones_that_are_not_open_say_so(self):
        phones = aio.Phones()
        await phones.close()
        with self.assertRaisesRegex(ValueError, "async with"):
            await phones.find()
        async with phones:
            with self.assertRaisesRegex(RuntimeError, "entered once"):
                await phones.__aenter__()
            device = await phones.find()
        with self.assertRaisesRegex(ValueError, "closed"):
            await device.info()
        with self.assertRaisesRegex(RuntimeError, "entered once"):
            await phones.__aenter__()

    @on_loop
    async def test_phones_belong_to_one_loop(self):
        async with aio.Phones() as phones:
            device = (await anext(phones)).phone

            def ask_elsewhere(make):
                with self.assertRaisesRegex(RuntimeError, "belong to the event loop"):
                    asyncio.run(make())

            for make in (device.info, phones.find, phones.close, phones.__anext__):
                await asyncio.to_thread(ask_elsewhere, make)
            self.assertEqual((await device.info()).name, "My Phone")

    @on_loop
    async def test_a_cancelled_task_leaves_the_phone_as_it_was(self):
        """The phone is silent from the first file on until the task was cancelled."""
        self.put("harp.m4a")
        async with aio.Phones() as phones:
            device = await phones.find()
            plan = await device.plan(add=[(SUNRISE, str(number)) for number in range(5)], remove="Harp")
            sends = asyncio.Event()

            def hear(progress):
                if progress.stage == "sending" and not sends.is_set():
                    self.phone.tell("silence")
                    sends.set()

            task = asyncio.ensure_future(plan.sync(hear))
            await sends.wait()
            task.cancel()
            await asyncio.sleep(0)
            self.phone.tell("talk")
            with self.assertRaises(asyncio.CancelledError):
                await task
            self.assertEqual([one.name for one in await device.ringtones()], ["Harp"])
        self.assert_lock_is_free()


class Silent(PhoneTest):
    @on_loop
    async def test_a_cancelled_task_waits_for_no_answer(self):
        async with aio.Phones() as phones:
            device = (await anext(phones)).phone
            self.silence_for_ever()
            for ask in (device.info, device.ringtones, phones.find):
                before = self.phone.silenced()
                asked = asyncio.ensure_future(ask())
                await asyncio.to_thread(self.phone.wait_for_silence, before)
                asked.cancel()
                with self.assertRaises(asyncio.CancelledError):
                    await asked
            self.phone.tell("clear-faults")
            self.assertEqual((await device.info()).name, "My Phone")

    @on_loop
    async def test_what_has_not_begun_is_cancelled_at_once_and_not_done(self):
        async with aio.Phones() as phones:
            device = (await anext(phones)).phone
            self.silence_for_ever()
            before = self.phone.silenced()
            first = asyncio.ensure_future(device.info())
            await asyncio.to_thread(self.phone.wait_for_silence, before)
            second = asyncio.ensure_future(device.unpair())
            await asyncio.sleep(0)
            second.cancel()
            with self.assertRaises(asyncio.CancelledError):
                await second
            self.assertFalse(first.done())
            self.phone.tell("clear-faults")
            first.cancel()
            with self.assertRaises(asyncio.CancelledError):
                await first
            self.assertTrue((await phones.find()).paired)

    @on_loop
    async def test_a_cancelled_task_waits_for_no_phone_to_come(self):
        async with aio.Phones() as phones:
            self.phone.tell("unplug")
            asked = asyncio.ensure_future(phones.find(wait=3600))
            await asyncio.sleep(0)
            asked.cancel()
            with self.assertRaises(asyncio.CancelledError):
                await asked


class WithoutEvents:
    """Phones whose news were taken."""

    def __init__(self, phones):
        self._phones = phones

    def __aiter__(self):
        return self

    async def __anext__(self):
        while True:
            await self._phones.__anext__()


if __name__ == "__main__":
    main()
