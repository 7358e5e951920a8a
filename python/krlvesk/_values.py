"""What phones and files say, as values."""
from __future__ import annotations

import datetime
import math
import os
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Callable, Literal, Mapping, Protocol, Sequence, Tuple, Union

from . import _core
from ._errors import Error, _core_text

StrPath = Union[str, "os.PathLike[str]"]
"""A path, as the functions of Python take it."""

SongLike = Union[StrPath, Tuple[StrPath, str]]
"""A song: its path, or its path and the name that its ringtone is to have."""


class CancelFlag(Protocol):
    """What cancels: :class:`threading.Event` and whatever else has this method."""

    def is_set(self) -> bool:
        """Whether the work is to be cancelled. Asked every few hundredths of a second."""


def printable(text: str) -> str:
    """Text of a phone or a file, safe for a terminal: control characters are shown, not acted on."""
    return _core.printable(_core_text(text))


@dataclass(frozen=True)
class Ringtone:
    """A ringtone that is on a phone. How long it is the phone does not say: :func:`inspect` says it of a file that was
    fetched."""

    name: str
    """What the phone shows."""

    guid: str
    """What stays when the ringtone is renamed or its file is replaced; empty on very old entries."""

    file: str
    """The name of its file on the phone."""

    type: str
    """The type of that file: "m4a", "m4r", "mp3" and so on."""

    size: int
    """Of that file, in bytes."""

    def __str__(self) -> str:
        return f"{printable(self.name)} ({_core.size_text(self.size)})"


@dataclass(frozen=True)
class PhoneInfo:
    """What a phone said of itself when it was asked."""

    udid: str
    name: str
    device_class: str
    firmware: str
    older_layout: bool
    """Whether the firmware wants placeholders and an order of slots."""

    free_bytes: int | None
    """Space on the phone; None when it does not say."""

    catalogue: Literal["none", "readable", "unreadable"]
    ringtones: int
    """How many."""

    unfinished_job: str | None
    """The job that was broken off, if one was: the next change ends it first."""


Stage = Literal["making", "starting", "waiting-for-lock", "reading", "sending", "finishing", "putting-back",
                "fetching"]
"""Where work on a phone is. From "finishing" on it is completed, whoever cancels it."""


@dataclass(frozen=True)
class Progress:
    """How far work on a phone is."""

    stage: Stage
    files_done: int
    files_total: int
    bytes_done: int
    bytes_total: int
    seconds_left: float | None
    current: str
    """The name of the ringtone under way; may be empty."""

    fraction: float | None
    """From 0 to 1; None where nothing is counted."""


ProgressCallback = Callable[[Progress], object]
"""Hears of progress. The work waits while it runs; what it raises cancels the work."""


@dataclass(frozen=True)
class Operation:
    """One change on a phone."""

    kind: str
    """"upload", "rename", "remove", "write-catalogue" and so on, as in the JSON of ``vesk``."""

    file: str
    """On the phone."""

    new_file: str
    """What it becomes; may be empty."""

    ringtone: str
    """Its name; may be empty."""

    source: str
    """The file on this computer; may be empty."""

    size: int

    def __str__(self) -> str:
        file = f"{self.file} -> {self.new_file}" if self.new_file else self.file
        return printable(" ".join(part for part in (self.kind, file, self.ringtone) if part))


@dataclass(frozen=True)
class PlannedSong:
    """What becomes of a song."""

    path: Path
    ringtone: str
    """The name of the ringtone."""

    already_there: bool
    """The phone has it: nothing is sent."""

    prepared: bool
    """It does not play as it is: a ringtone is made of it."""


@dataclass(frozen=True)
class UnusableSong:
    """A song that cannot be used, among others that can."""

    path: Path
    error: Error


@dataclass(frozen=True)
class Changes:
    """How the ringtones of two states of a phone differ, by their names."""

    added: tuple[str, ...]
    removed: tuple[str, ...]
    replaced: tuple[str, ...]
    renamed: Mapping[str, str]
    """Old names, and new ones."""

    def __bool__(self) -> bool:
        return bool(self.added or self.removed or self.replaced or self.renamed)


@dataclass(frozen=True)
class PastJob:
    """A job as a phone's history has it."""

    time: datetime.datetime
    """When it was, in this computer's time zone."""

    what: str
    """"add", "remove", "rename", "sync", "restore" and so on."""

    changes: Changes
    undone: bool
    _before: str
    """The state before it, for :meth:`Phone.go_back`."""


@dataclass(frozen=True)
class SyncResult:
    """What a sync has done."""

    added: int
    removed: int
    renamed: int
    put_right: int
    """Ringtones that a sync would have lost as they lay there."""

    changed_anything: bool
    too_late_to_cancel: bool
    """It was cancelled when the removals had begun, and is complete."""

    had_no_lock: bool
    """Another program held the phone's sync lock all the while."""

    was_put_right: bool
    """Something had not arrived as it should, and has then."""

    left_behind: int
    """Files that no catalogue lists and that the phone did not delete."""


@dataclass(frozen=True)
class FetchedRingtone:
    """A ringtone of a phone that is a file of this computer now."""

    ringtone: Ringtone
    path: Path
    already_there: bool
    """The file held the same before."""


@dataclass(frozen=True)
class Inspection:
    """What a file is, and whether it plays as a ringtone."""

    path: Path
    size: int
    verdict: Literal["plays", "plays-on-older-firmware", "wants-preparing", "cannot-be-used"]
    reasons: tuple[str, ...]
    """Why it does not, each a sentence about "it" without a full stop."""

    container: str
    codec: str
    channels: int
    sample_rate: int
    bits: int
    kilobits: int
    length: float
    """In seconds."""

    encrypted: bool
    title: str
    artist: str
    picture_bytes: int

    @property
    def plays(self) -> bool:
        """Whether it goes to every early phone as it is."""
        return self.verdict == "plays"


@dataclass(frozen=True)
class PreparedRingtone:
    """A ringtone that was made of a song."""

    song: Path
    path: Path
    size: int
    start: float
    """Where in the song it begins, in seconds."""

    length: float
    """In seconds."""

    song_loudness: float
    """Of that part of the song, in LUFS."""

    loudness: float
    """In LUFS."""

    peak: float
    """The true peak, in dBTP."""

    silent: bool
    """There is nothing to hear in that part."""

    damaged_parts: int
    """Parts of the song that could not be decoded and were left out."""

    from_cache: bool
    already_there: bool
    """The file held the same before."""


# ---------------------------------------------------------------- from what the extension says


def changes_of(value: Mapping[str, Any]) -> Changes:
    return Changes(tuple(value["added"]), tuple(value["removed"]), tuple(value["replaced"]),
                   dict(value["renamed"]))


def past_job_of(value: Mapping[str, Any]) -> PastJob:
    time = datetime.datetime.fromtimestamp(value["time"]).astimezone()
    return PastJob(time, value["what"], changes_of(value["changes"]), value["undone"], value["before"])


def fetched_of(value: Mapping[str, Any]) -> FetchedRingtone:
    return FetchedRingtone(Ringtone(**value["ringtone"]), Path(value["path"]), value["already_there"])


def song_of(value: Mapping[str, Any]) -> PlannedSong:
    return PlannedSong(Path(value["path"]), value["ringtone"], value["already_there"], value["prepared"])


def text_bytes(text: str) -> bytes:
    """A name as the extension takes it: bytes that came from there as surrogates go back as they were."""
    return text.encode(errors="surrogateescape")


def path_bytes(path: StrPath) -> bytes:
    """A path as the extension takes it, for what is done at once."""
    encoded = os.fsencode(path)
    if b"\0" in encoded:
        raise ValueError("embedded null byte")
    return encoded


def lasting_path_bytes(path: StrPath) -> bytes:
    """The same for what is done later. An empty one stays empty, which no file is called: it is not the folder that the
    program happens to be in."""
    encoded = path_bytes(path)
    return os.path.abspath(encoded) if encoded else b""


def folder_bytes(folder: StrPath) -> bytes:
    """The same of a folder that may be made."""
    encoded = lasting_path_bytes(folder)
    if not encoded:
        raise ValueError('an empty path is no folder; the current one is "."')
    return encoded


def wanted_names(names: str | Sequence[str] | None) -> list[bytes] | None:
    """One name, several, or None for all."""
    if names is None:
        return None
    return [text_bytes(name) for name in ([names] if isinstance(names, str) else names)]


def seconds_to_wait(wait: float) -> float:
    """What can be waited for, which is a month at most."""
    if math.isnan(wait):
        raise ValueError("nan is no time to wait")
    return min(max(wait, 0.0), 30 * 24 * 3600.0)


def given_song(song: SongLike) -> tuple[bytes, bytes | None]:
    """A song as the extension takes it."""
    if isinstance(song, tuple):
        path, name = song
        return lasting_path_bytes(path), text_bytes(name)
    return lasting_path_bytes(song), None


def given_songs(songs: StrPath | Sequence[SongLike]) -> list[tuple[bytes, bytes | None]]:
    """One song, or several."""
    if isinstance(songs, (str, os.PathLike)):
        return [given_song(songs)]
    return [given_song(song) for song in songs]
