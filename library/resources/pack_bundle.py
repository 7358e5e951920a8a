#!/usr/bin/env python3
"""Packs a bundle into an archive whose bytes depend on names and contents alone.

    pack_bundle.py BUNDLE ARCHIVE

Times, owners and the order in a folder differ from build to build; CMake's own archives have them.
"""
import stat
import sys
import zipfile
from pathlib import Path

EARLIEST = (1980, 1, 1, 0, 0, 0)
UNIX = 3


def entry(path, name):
    mode = 0o755 if path.is_dir() or path.stat().st_mode & stat.S_IXUSR else 0o644
    kind = stat.S_IFDIR if path.is_dir() else stat.S_IFREG
    information = zipfile.ZipInfo(name + "/" * path.is_dir(), EARLIEST)
    information.create_system = UNIX
    information.external_attr = (kind | mode) << 16
    information.compress_type = zipfile.ZIP_STORED if path.is_dir() else zipfile.ZIP_DEFLATED
    return information


def pack(bundle, archive):
    with zipfile.ZipFile(archive, "w") as file:
        for path in [bundle, *sorted(bundle.rglob("*"))]:
            name = path.relative_to(bundle.parent).as_posix()
            file.writestr(entry(path, name), b"" if path.is_dir() else path.read_bytes())


if __name__ == "__main__":
    pack(Path(sys.argv[1]), Path(sys.argv[2]))
