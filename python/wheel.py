#!/usr/bin/env python3
"""Makes a wheel of the package in a build tree: the module, and beside it the libraries and programs that it takes.
By Debian's python3-wheel, which writes what a wheel says of its files.

    wheel.py VERSION PACKAGE BINARIES OUTPUT SOURCE...

PACKAGE is the package as it was built, BINARIES the folder of libraries and programs, OUTPUT the folder for the
wheel, SOURCE the files of the package.
"""
import re
import shutil
import subprocess
import sys
import sysconfig
import tempfile
from pathlib import Path

LIBRARIES = ("libKRLCoreFoundation.so", "libKRLVesk.so")
LOADED = ("MobileDevice.so", "vesk-tags")
WHEN_BUILT = ("vesk-prepare", "vesk-play")

METADATA = """\
Metadata-Version: 2.1
Name: krlvesk
Version: {version}
Summary: Manages the custom ringtones of early iPhones
Requires-Python: >={python}
Description-Content-Type: text/plain

Manages the custom ringtones of early iPhones (firmware 1.0.x and 1.1.x). Takes the shared libraries of Debian 12.
"""
WHEEL = """\
Wheel-Version: 1.0
Generator: krlvesk
Root-Is-Purelib: false
Tag: {tag}
"""


def tag():
    """For this Python on this machine alone."""
    python = f"cp{sys.version_info.major}{sys.version_info.minor}"
    return f"{python}-{python}-{sysconfig.get_platform().replace('-', '_').replace('.', '_')}"


def wanted_name(library):
    """What those call a library that are linked with it."""
    said = subprocess.run(["readelf", "--dynamic", library], check=True, capture_output=True, text=True).stdout
    return re.search(r"\(SONAME\).*\[(.*)\]", said)[1]


def fill(folder, version, built, binaries, sources):
    package = folder / "krlvesk"
    package.mkdir()
    extension = next(built.glob("_core.*.so"))
    programs = [binaries / name for name in WHEN_BUILT if (binaries / name).exists()]
    for library in (binaries / name for name in LIBRARIES):
        shutil.copy(library, package / wanted_name(library))
    for file in [*sources, extension, *(binaries / name for name in LOADED), *programs]:
        shutil.copy(file, package)
    shutil.copytree(binaries / "KRLVesk.resources", package / "KRLVesk.resources")
    about = folder / f"krlvesk-{version}.dist-info"
    about.mkdir()
    python = f"{sys.version_info.major}.{sys.version_info.minor}"
    (about / "METADATA").write_text(METADATA.format(version=version, python=python))
    (about / "WHEEL").write_text(WHEEL.format(tag=tag()))


def main():
    version, built, binaries, output = sys.argv[1], *map(Path, sys.argv[2:5])
    sources = [Path(source) for source in sys.argv[5:]]
    output.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as folder:
        fill(Path(folder), version, built, binaries, sources)
        subprocess.run([sys.executable, "-m", "wheel", "pack", "--dest-dir", output, folder], check=True)


if __name__ == "__main__":
    main()
