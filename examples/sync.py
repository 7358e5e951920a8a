#!/usr/bin/env python3
"""Brings a phone to hold the songs of a folder, and shows how far it is.

    sync.py FOLDER [PHONE]

PHONE is a UDID, the beginning of one or a name; without it, the only phone there is.
"""
from __future__ import annotations

import sys

import krlvesk


def show(progress: krlvesk.Progress) -> None:
    """One line, which the next one is written over."""
    part = "" if progress.fraction is None else f" {progress.fraction:4.0%}"
    print(f"\r{progress.stage}{part} {krlvesk.printable(progress.current)}\x1b[K", end="", file=sys.stderr)


def sync(folder: str, which: str) -> None:
    with krlvesk.Phones() as phones:
        plan = phones.find(which).plan(sync_to=folder, progress=show)
        for song in plan.unusable:
            print(f"\r{song.error}", file=sys.stderr)
        print(f"\r{plan}")
        if plan.changes_anything:
            result = plan.sync(progress=show)
            print(f"\r{result.added} added, {result.removed} removed")


def main() -> int:
    if not 2 <= len(sys.argv) <= 3:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        sync(sys.argv[1], sys.argv[2] if len(sys.argv) == 3 else "")
    except krlvesk.Error as error:
        print(f"\r{error}\n{error.advice}", file=sys.stderr)
        return error.code
    except KeyboardInterrupt as error:
        print("\rcancelled", *getattr(error, "__notes__", []), sep="\n", file=sys.stderr)
        return 130
    return 0


if __name__ == "__main__":
    sys.exit(main())
