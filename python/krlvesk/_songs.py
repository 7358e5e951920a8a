"""Songs of this computer: whether they play as ringtones, and ringtones that are made of them."""
from __future__ import annotations

import math
from pathlib import Path

from . import _core
from ._errors import value_of
from ._values import Inspection, PreparedRingtone, StrPath, path_bytes, text_bytes


def inspect(path: StrPath) -> Inspection:
    """What a file is, and whether it plays as a ringtone.

    :raise RequestError: there is no such file, or nothing can be said of it
    """
    value = value_of(_core.inspect(path_bytes(path)))
    value["reasons"] = tuple(value["reasons"])
    return Inspection(path=Path(path), **value)


def prepare(song: StrPath, out: StrPath | None = None, *, start: float | str = 0.0, length: float | str = 30.0,
            fade_in: float = 0.0, fade_out: float = 1.0, level: bool = True, title: str = "", artist: str = "",
            replace: bool = False) -> PreparedRingtone:
    """Makes a ringtone of a song, and waits for it. Ctrl-C is heard when it is done.

    :param out: a file, or a folder for one that is called after the song; None: the current folder
    :param start: in seconds or as "1:02.5", below zero from the end; "auto": where it begins well
    :param length: in seconds or as "0:30"
    :param level: bring the loudness to the common level
    :param title: in its tags; empty: the song's
    :param replace: a file that holds something else is written over, the song itself never
    :raise RequestError: why it cannot be made
    """
    place = Path("." if out is None else out)
    if place.is_dir() or (isinstance(out, str) and out.endswith("/")):
        place = place / (Path(song).stem + ".m4r")
    outcome = _core.prepare(path_bytes(song), path_bytes(place), start=None if start == "auto" else _seconds(start),
                            length=_seconds(length), fade_in=_seconds(fade_in), fade_out=_seconds(fade_out),
                            level=level, title=text_bytes(title), artist=text_bytes(artist), replace=replace)
    value = value_of(outcome)
    return PreparedRingtone(song=Path(song), path=place, **value)


def _seconds(time: float | str) -> float:
    """A time as a number or as a person writes it."""
    seconds = _core.seconds(time) if isinstance(time, str) else float(time)
    if seconds is None or not math.isfinite(seconds):
        raise ValueError(f"{time!r} is no time; write seconds, or minutes and seconds as in 1:02.5")
    return seconds
