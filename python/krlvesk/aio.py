"""The same for asyncio: phones as they come and go, and calls to be awaited, over one descriptor and without a thread
of Python's own.

A task that is cancelled while it awaits a call cancels the work; it ends once the phone has been left clean.
"""
from __future__ import annotations

import asyncio
from collections import deque
from dataclasses import dataclass
from types import TracebackType
from typing import Any, Mapping, Sequence

from . import _core
from ._errors import error_of, value_of
from ._jobs import hear, note_outcome
from ._phones import PhoneFacts, PlanFacts
from ._values import (Changes, FetchedRingtone, PastJob, PhoneInfo, ProgressCallback, Ringtone, SongLike, StrPath,
                      SyncResult, changes_of, fetched_of, folder_bytes, past_job_of, seconds_to_wait, text_bytes,
                      wanted_names)

__all__ = ["Event", "Phone", "Phones", "Plan"]


@dataclass(frozen=True)
class Event:
    """A device has come or gone."""

    arrived: bool
    """It is attached; otherwise it was pulled out."""

    phone: Phone


class Plan(PlanFacts):
    """A planned change of a phone. :meth:`sync` carries it out."""

    def __init__(self, phones: Phones, change: _core.Change, value: Mapping[str, Any]) -> None:
        super().__init__(change, value)
        self._phones = phones

    async def sync(self, progress: ProgressCallback | None = None) -> SyncResult:
        """Like :meth:`krlvesk.Plan.sync`; ``progress`` is called by the event loop."""
        return SyncResult(**await self._phones._run(self._phones._hub.sync(self._core_change), progress))


class Phone(PhoneFacts):
    """A device that is or was attached. Its calls are those of :class:`krlvesk.Phone`, to be awaited."""

    def __init__(self, phones: Phones, about: Mapping[str, Any]) -> None:
        super().__init__(about)
        self._phones = phones

    async def info(self) -> PhoneInfo:
        """Like :meth:`krlvesk.Phone.info`."""
        return PhoneInfo(**await self._phones._run(self._phones._hub.info(self.udid)))

    async def ringtones(self) -> list[Ringtone]:
        """Like :meth:`krlvesk.Phone.ringtones`."""
        return [Ringtone(**one) for one in await self._phones._run(self._phones._hub.ringtones(self.udid))]

    async def plan(self, *, add: StrPath | Sequence[SongLike] = (), remove: str | Sequence[str] = (),
                   rename: Mapping[str, str] | None = None, sync_to: StrPath | Sequence[SongLike] | None = None,
                   replace: bool = False, recursive: bool = False, prepare: bool = True, yes: bool = False,
                   force: bool = False, rebuild: bool = False, backup: bool = True,
                   progress: ProgressCallback | None = None) -> Plan:
        """Like :meth:`krlvesk.Phone.plan`."""
        change = self._change(add=add, remove=remove, rename=rename or {}, sync_to=sync_to, replace=replace,
                              recursive=recursive, prepare=prepare, yes=yes, force=force, rebuild=rebuild,
                              backup=backup)
        return Plan(self._phones, change, await self._phones._run(self._phones._hub.plan(change), progress))

    async def history(self) -> list[PastJob]:
        """Like :meth:`krlvesk.Phone.history`."""
        return [past_job_of(one) for one in await self._phones._run(self._phones._hub.history(self.udid))]

    async def undo(self, *, force: bool = False, progress: ProgressCallback | None = None) -> Changes:
        """Like :meth:`krlvesk.Phone.undo`."""
        return changes_of(await self._phones._run(self._phones._hub.undo(self.udid, force), progress))

    async def go_back(self, job: PastJob, *, progress: ProgressCallback | None = None) -> Changes:
        """Like :meth:`krlvesk.Phone.go_back`."""
        return changes_of(await self._phones._run(self._phones._hub.go_back(self.udid, job._before), progress))

    async def fetch(self, names: str | Sequence[str] | None = None, folder: StrPath = ".", *, replace: bool = False,
                    progress: ProgressCallback | None = None) -> list[FetchedRingtone]:
        """Like :meth:`krlvesk.Phone.fetch`."""
        job = self._phones._hub.fetch(self.udid, wanted_names(names), folder_bytes(folder), replace)
        return [fetched_of(one) for one in await self._phones._run(job, progress)]

    async def pair(self) -> bool:
        """Like :meth:`krlvesk.Phone.pair`."""
        new: bool = await self._phones._run(self._phones._hub.pair(self.udid))
        return new

    async def unpair(self) -> bool:
        """Like :meth:`krlvesk.Phone.unpair`."""
        was: bool = await self._phones._run(self._phones._hub.unpair(self.udid))
        return was


@dataclass
class _Call:
    """Work that is awaited."""

    job: _core.Job
    progress: ProgressCallback | None
    future: asyncio.Future[Any]
    error: BaseException | None = None

    def look(self) -> bool:
        """Hears what there is to hear; whether it is over."""
        is_done = self.job.is_done()
        try:
            while hear(self.job, self.progress if self.error is None else None):
                self.job.heard()
        except BaseException as error:
            self.job.cancel()
            self.error = error
        if is_done and not self.future.done():
            self._settle()
        return is_done

    def _settle(self) -> None:
        if self.error is not None:
            error = _fit_for_future(self.error)
            note_outcome(error, self.job)
            self.future.set_exception(error)
            return
        value, failure = self.job.outcome()
        if failure is not None:
            self.future.set_exception(error_of(failure))
        else:
            self.future.set_result(value)


def _fit_for_future(error: BaseException) -> BaseException:
    """A coroutine cannot raise StopIteration; as in generators, it becomes another exception."""
    if not isinstance(error, StopIteration):
        return error
    fit = RuntimeError("progress raised StopIteration")
    fit.__cause__ = error
    return fit


class Phones:
    """Phones as they come and go: an asynchronous context manager, and an asynchronous iterator of :class:`Event`.

    It belongs to the event loop in which it is entered. One at a time in a process, as with
    :class:`krlvesk.Phones`.

    :raise NoDeviceLayerError: phones cannot be reached on this computer
    """

    def __init__(self) -> None:
        self._opened: _core.Hub | None = None
        self._loop: asyncio.AbstractEventLoop | None = None
        self._closing: asyncio.Future[None] | None = None
        self._events: deque[Event] = deque()
        self._attached: dict[str, Phone] = {}
        self._calls: list[_Call] = []
        self._news = asyncio.Event()

    async def __aenter__(self) -> Phones:
        if self._loop is not None:
            raise RuntimeError("phones are entered once: make others")
        self._loop = asyncio.get_running_loop()
        self._opened = value_of(_core.open())
        self._descriptor = self._hub.descriptor()
        self._loop.add_reader(self._descriptor, self._dispatch)
        return self

    async def __aexit__(self, kind: type[BaseException] | None, error: BaseException | None,
                        traceback: TracebackType | None) -> None:
        await self.close()

    async def close(self) -> None:
        """Cancels what is under way, waits until it has ended cleanly, and lets the phones go. Any number of times; who
        is cancelled meanwhile waits all the same."""
        if self._opened is None:
            return
        self._require_own_loop()
        if self._closing is None:
            loop = asyncio.get_running_loop()
            loop.remove_reader(self._descriptor)
            # No task: those are cancelled when the loop is to end.
            self._closing = loop.run_in_executor(None, self._hub.close)
            self._closing.add_done_callback(self._has_closed)
        cancelled: asyncio.CancelledError | None = None
        while not self._closing.done():
            try:
                await asyncio.wait([self._closing])
            except asyncio.CancelledError as error:
                cancelled = error
        if cancelled is not None:
            raise cancelled
        self._closing.result()

    def _has_closed(self, _: asyncio.Future[None]) -> None:
        self._look_at_calls()
        self._news.set()

    def __aiter__(self) -> Phones:
        return self

    async def __anext__(self) -> Event:
        """Waits for the next event; ends when it is closed."""
        while not self._events:
            if self._closing is not None:
                raise StopAsyncIteration
            self._require_own_loop()
            self._news.clear()
            await self._news.wait()
        return self._events.popleft()

    @property
    def attached(self) -> list[Phone]:
        """The devices that are attached now, as far as is known: what has come a moment ago may be missing."""
        return list(self._attached.values())

    async def find(self, which: str = "", *, wait: float = 2.0) -> Phone:
        """Like :meth:`krlvesk.Phones.find`."""
        return Phone(self, await self._run(self._hub.find(text_bytes(which), seconds_to_wait(wait))))

    @property
    def _hub(self) -> _core.Hub:
        if self._opened is None:
            raise ValueError("the phones are not open: async with Phones() as phones")
        return self._opened

    def _require_own_loop(self) -> None:
        if asyncio.get_running_loop() is not self._loop:
            raise RuntimeError("phones belong to the event loop in which they were entered")

    def _dispatch(self) -> None:
        self._hub.take_bell()
        self._look_at_calls()
        for arrived, about in self._hub.news():
            phone = Phone(self, about)
            if arrived:
                self._attached[phone.udid] = phone
            else:
                self._attached.pop(phone.udid, None)
            self._events.append(Event(arrived, phone))
        if self._events:
            self._news.set()

    def _look_at_calls(self) -> None:
        self._calls = [call for call in self._calls if not call.look()]

    async def _run(self, job: _core.Job, progress: ProgressCallback | None = None) -> Any:
        self._require_own_loop()
        call = _Call(job, progress, asyncio.get_running_loop().create_future())
        self._calls.append(call)
        job.listen()
        try:
            return await asyncio.shield(call.future)
        except asyncio.CancelledError:
            if not call.future.done():
                await self._cancel(call)
            raise

    @staticmethod
    async def _cancel(call: _Call) -> None:
        while not call.future.done():
            call.job.cancel()  # again: it may wait for something else by now
            try:
                await asyncio.wait([call.future], timeout=0.05)
            except asyncio.CancelledError:
                continue  # the phone is left clean all the same
        call.future.exception()  # nobody else asks for it
