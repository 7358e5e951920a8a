"""Phones as they come and go, and what is done with one. Calls wait, without Python's lock."""
from __future__ import annotations

import os
import select
import threading
import time
from collections import deque
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType
from typing import Any, Iterator, Mapping, Sequence

from . import _core
from ._errors import error_of, value_of
from ._jobs import Wait
from ._values import (CancelFlag, Changes, FetchedRingtone, Operation, PastJob, PhoneInfo, PlannedSong, ProgressCallback,
                      Ringtone, SongLike, StrPath, SyncResult, UnusableSong, changes_of, fetched_of,
                      folder_bytes, given_songs, lasting_path_bytes, past_job_of, printable, seconds_to_wait, song_of,
                      text_bytes, wanted_names)


class PhoneFacts:
    """A device, and what it said of itself when it came. Two are equal when they are the same device."""

    udid: str
    """Its serial number of 40 digits."""

    name: str
    """What its owner calls it; empty when it does not say without a pairing."""

    device_class: str
    """"iPhone" for the phones that this is about; empty when it does not say."""

    firmware: str
    """"1.1.1" and so on; empty when it does not say."""

    paired: bool
    """Whether it trusts this computer."""

    reachable: bool
    """Whether it has answered."""

    def __init__(self, about: Mapping[str, Any]) -> None:
        self.udid = about["udid"]
        self.name = about["name"]
        self.device_class = about["device_class"]
        self.firmware = about["firmware"]
        self.paired = about["paired"]
        self.reachable = about["reachable"]

    def __eq__(self, other: object) -> bool:
        return isinstance(other, PhoneFacts) and other.udid == self.udid

    def __hash__(self) -> int:
        return hash(self.udid)

    def __str__(self) -> str:
        return printable(f"{self.name or self.device_class or 'a device'} ({self.udid})")

    def __repr__(self) -> str:
        return f"<{type(self).__name__} {self}, firmware {printable(self.firmware) or 'unknown'}>"

    def _change(self, *, add: StrPath | Sequence[SongLike], remove: str | Sequence[str], rename: Mapping[str, str],
                sync_to: StrPath | Sequence[SongLike] | None, replace: bool, recursive: bool, prepare: bool, yes: bool,
                force: bool, rebuild: bool, backup: bool) -> _core.Change:
        songs = given_songs(add)
        names = [text_bytes(name) for name in ([remove] if isinstance(remove, str) else remove)]
        folder: bytes | None = None
        if sync_to is not None:
            if songs or names or rename:
                raise ValueError("sync_to says all that is to be on the phone: nothing else goes with it")
            if isinstance(sync_to, (str, os.PathLike)):
                folder = lasting_path_bytes(sync_to)
            else:
                songs = given_songs(sync_to)
        renames = [(text_bytes(name), text_bytes(new)) for name, new in rename.items()]
        return _core.Change(self.udid, add=songs, remove=names, rename=renames, folder=folder,
                            whole=sync_to is not None, recursive=recursive, yes=yes, replace=replace, force=force,
                            rebuild=rebuild, backup=backup, prepare=prepare)


class PlanFacts:
    """A change as it would be made, found out by letting the library make it over a picture of the phone. To be
    printed, and to be carried out."""

    phone_name: str
    free_bytes: int | None
    """Space on the phone; None when it does not say."""

    added: tuple[str, ...]
    """Names. What is replaced is in this and in :attr:`removed`."""

    removed: tuple[str, ...]
    renamed: Mapping[str, str]
    """Old names, and new ones."""

    put_right: tuple[str, ...]
    """Ringtones that a sync would lose as they lie there: they are put right with it."""

    changes_anything: bool
    operations: tuple[Operation, ...]
    """In the order in which they happen."""

    upload_bytes: int
    space_needed: int
    """Most space that it takes at any moment beyond what is taken."""

    strays: tuple[str, ...]
    """Files on the phone that no catalogue lists and that are deleted."""

    ringtones: tuple[str, ...]
    """The names on the phone afterwards."""

    songs: tuple[PlannedSong, ...]
    unusable: tuple[UnusableSong, ...]
    """Songs that cannot be used, while others can. With one of these in a folder, what else is on the phone stays."""

    skipped: tuple[str, ...]
    """What is no song in a folder."""

    unreadable_tags: tuple[Path, ...]
    """Songs without readable tags: their ringtones are named after the files."""

    def __init__(self, change: _core.Change, value: Mapping[str, Any]) -> None:
        self._core_change = change
        self.phone_name = value["phone_name"]
        self._label = f"{value['phone_name']} ({value['udid']})"
        self.free_bytes = value["free_bytes"]
        self.added = tuple(value["added"])
        self.removed = tuple(value["removed"])
        self.renamed = dict(value["renamed"])
        self.put_right = tuple(value["put_right"])
        self.changes_anything = value["changes_anything"]
        self.operations = tuple(Operation(**one) for one in value["operations"])
        self.upload_bytes = value["upload_bytes"]
        self.space_needed = value["space_needed"]
        self.strays = tuple(value["strays"])
        self.ringtones = tuple(value["ringtones"])
        self.songs = tuple(song_of(one) for one in value["songs"])
        self.unusable = tuple(UnusableSong(Path(path), error_of(failure)) for path, failure in value["unusable"])
        self.skipped = tuple(value["skipped"])
        self.unreadable_tags = tuple(Path(file) for file in value["unreadable_tags"])

    def __str__(self) -> str:
        lines = [str(operation) for operation in self.operations]
        count = len(self.ringtones)
        holds = f"{count} ringtone{'' if count == 1 else 's'}"
        if self.changes_anything:
            lines.append(printable(f"{self._label}: {_core.size_text(self.upload_bytes)} to upload; it would have "
                                   f"{holds} then"))
        else:
            lines.append(printable(f"{self._label}: nothing to do, it has {holds}"))
        return "\n".join(lines)


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

    def sync(self, progress: ProgressCallback | None = None, cancel: CancelFlag | None = None) -> SyncResult:
        """Carries it out, exactly: a phone that has changed since is refused with :exc:`ChangedByOthersError`.

        What could be lost is kept first, so that :meth:`Phone.undo` takes it back. ``progress`` is called in this
        thread. When it raises, ``cancel`` is set, or Ctrl-C is pressed, the sync is cancelled between two steps: the
        phone keeps or gets back what it had, and its sync lock is free. From the stage "finishing" on it is completed.

        :raise CancelledError: ``cancel`` was set in time
        :raise Error: why it could not be done, and what state the phone is in
        """
        return SyncResult(**self._phones._run(self._phones._hub.sync(self._core_change), progress, cancel))


class Phone(PhoneFacts):
    """A device that is or was attached. Each call goes to the phone anew and waits for it."""

    def __init__(self, phones: Phones, about: Mapping[str, Any]) -> None:
        super().__init__(about)
        self._phones = phones

    def info(self) -> PhoneInfo:
        """What the phone says of itself now."""
        return PhoneInfo(**self._phones._run(self._phones._hub.info(self.udid)))

    def ringtones(self) -> list[Ringtone]:
        """The ringtones on the phone, by name."""
        return [Ringtone(**one) for one in self._phones._run(self._phones._hub.ringtones(self.udid))]

    def plan(self, *, add: StrPath | Sequence[SongLike] = (), remove: str | Sequence[str] = (),
             rename: Mapping[str, str] | None = None, sync_to: StrPath | Sequence[SongLike] | None = None,
             replace: bool = False, recursive: bool = False, prepare: bool = True, yes: bool = False,
             force: bool = False, rebuild: bool = False, backup: bool = True,
             progress: ProgressCallback | None = None, cancel: CancelFlag | None = None) -> Plan:
        """Works out a change, and makes ringtones of the songs that need it. Changes nothing on the phone.

        :param add: songs, each a path or a path and a name; what does not play is made a ringtone
        :param remove: names of ringtones
        :param rename: names, and those that they are to have; done before the rest
        :param sync_to: a folder of songs or a list of them: the phone is to hold these and nothing else
        :param replace: a ringtone that has the name of a song gives way to it
        :param recursive: look into folders in the folder too
        :param prepare: make ringtones of songs that do not play; otherwise these are refused
        :param yes: everything may be removed
        :param force: go on although ringtones are lost, or the firmware is unknown
        :param rebuild: files that the catalogue does not list are listed again
        :param backup: keep what could be lost, so that it can be undone
        :raise Error: why it cannot be done, the same as ``vesk`` says
        """
        change = self._change(add=add, remove=remove, rename=rename or {}, sync_to=sync_to, replace=replace,
                              recursive=recursive, prepare=prepare, yes=yes, force=force, rebuild=rebuild,
                              backup=backup)
        return Plan(self._phones, change, self._phones._run(self._phones._hub.plan(change), progress, cancel))

    def history(self) -> list[PastJob]:
        """The last jobs on this phone that can be undone, the newest first. The phone need not be attached."""
        return [past_job_of(one) for one in self._phones._run(self._phones._hub.history(self.udid))]

    def undo(self, *, force: bool = False, progress: ProgressCallback | None = None,
             cancel: CancelFlag | None = None) -> Changes:
        """Takes the last job back that is not undone.

        :param force: also what others have done since
        :return: what has changed by it
        :raise NothingKeptError: there is nothing to undo
        """
        return changes_of(self._phones._run(self._phones._hub.undo(self.udid, force), progress, cancel))

    def go_back(self, job: PastJob, *, progress: ProgressCallback | None = None,
                cancel: CancelFlag | None = None) -> Changes:
        """Puts the phone into the state that it had before a job of its history. This too can be undone."""
        return changes_of(self._phones._run(self._phones._hub.go_back(self.udid, job._before), progress, cancel))

    def fetch(self, names: str | Sequence[str] | None = None, folder: StrPath = ".", *, replace: bool = False,
              progress: ProgressCallback | None = None, cancel: CancelFlag | None = None) -> list[FetchedRingtone]:
        """Copies ringtones of the phone into a folder, each whole or not at all.

        :param names: of ringtones; None: all
        :param replace: files that hold something else are written over
        """
        job = self._phones._hub.fetch(self.udid, wanted_names(names), folder_bytes(folder), replace)
        return [fetched_of(one) for one in self._phones._run(job, progress, cancel)]

    def pair(self) -> bool:
        """Pairs the phone with this computer.

        :return: whether that is new
        """
        new: bool = self._phones._run(self._phones._hub.pair(self.udid))
        return new

    def unpair(self) -> bool:
        """Ends the pairing of the phone with this computer.

        :return: whether there was one
        """
        was: bool = self._phones._run(self._phones._hub.unpair(self.udid))
        return was


class Phones:
    """Phones as they come and go: a context manager, and an iterator that waits for the next :class:`Event`.

    All that is done with phones is done on one thread of its own, one thing after the other; so there is one open
    ``Phones`` in a process at a time. Its methods, and those of its phones, may be called from any thread; callbacks
    come in the thread that called, and cannot call the phones themselves. The iterator is for one thread.

    A program with a main loop watches :meth:`fileno` and calls :meth:`dispatch`; one on asyncio takes
    :mod:`krlvesk.aio`.

    :raise NoDeviceLayerError: phones cannot be reached on this computer
    """

    def __init__(self) -> None:
        self._hub: _core.Hub = value_of(_core.open())
        self._lock = threading.Lock()  # of what follows
        self._events: deque[Event] = deque()
        self._attached: dict[str, Phone] = {}

    def __enter__(self) -> Phones:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 traceback: TracebackType | None) -> None:
        self.close()

    def close(self) -> None:
        """Cancels what is under way, waits until it has ended cleanly, and lets the phones go. Any number of times."""
        self._hub.close()

    @property
    def closed(self) -> bool:
        """Whether it was closed. All other methods raise :exc:`ValueError` then."""
        return self._hub.is_closed()

    def fileno(self) -> int:
        """A descriptor that is readable while there is news, for ``select`` and main loops. Nothing is to be read
        from it."""
        return self._hub.descriptor()

    def dispatch(self) -> list[Event]:
        """The events since the last time. Never waits."""
        with self._lock:
            self._take()
            events = list(self._events)
            self._events.clear()
        return events

    def __iter__(self) -> Iterator[Event]:
        return self

    def __next__(self) -> Event:
        """Waits for the next event; ends when it is closed, by another thread too."""
        event = self.next_event()
        if event is None:
            raise StopIteration
        return event

    def next_event(self, timeout: float | None = None) -> Event | None:
        """Waits for the next event.

        :param timeout: in seconds; None: as long as it takes
        :return: None when nothing has happened for so long, or it was closed
        """
        end = None if timeout is None else time.monotonic() + timeout
        while not self.closed:
            try:
                event = self._take_one()
            except ValueError:
                break  # another thread has closed it meanwhile
            left = None if end is None else max(0.0, end - time.monotonic())
            if event is not None or left == 0:
                return event
            self._wait(left)
        return None

    @property
    def attached(self) -> list[Phone]:
        """The devices that are attached now, as far as is known: what has come a moment ago may be missing."""
        with self._lock:
            self._take()
            self._leave()
            return list(self._attached.values())

    def find(self, which: str = "", *, wait: float = 2.0) -> Phone:
        """The phone that is meant: reached, an iPhone, and paired.

        :param which: a UDID, the beginning of one or a name; empty: the only phone there is
        :param wait: seconds in which it may appear
        :raise WhichPhoneError: there is none, more than one, or it cannot be used
        """
        return Phone(self, self._run(self._hub.find(text_bytes(which), seconds_to_wait(wait))))

    def _take_one(self) -> Event | None:
        with self._lock:
            self._take()
            event = self._events.popleft() if self._events else None
            self._leave()
        return event

    def _leave(self) -> None:
        """Who waits for the descriptor hears of the events that are left."""
        if self._events:
            self._hub.ring()

    def _take(self) -> None:
        self._hub.take_bell()
        for arrived, about in self._hub.news():
            phone = Phone(self, about)
            if arrived:
                self._attached[phone.udid] = phone
            else:
                self._attached.pop(phone.udid, None)
            self._events.append(Event(arrived, phone))

    def _wait(self, timeout: float | None) -> None:
        """For an hour at most: a descriptor is not waited for as long as anyone may say."""
        try:
            poll = select.poll()
            poll.register(self.fileno(), select.POLLIN)
        except ValueError:
            return
        poll.poll(None if timeout is None else min(timeout, 3600.0) * 1000)

    def _run(self, job: _core.Job, progress: ProgressCallback | None = None,
             cancel: CancelFlag | None = None) -> Any:
        return Wait(job, progress, cancel).result()
