#!/usr/bin/env python3
"""The plug-in's archive: the same bytes whoever packs it and when, and what it holds.

    archive_test.py PACKER BUNDLE ARCHIVE [unittest's arguments]
"""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PACKER, BUNDLE, ARCHIVE = (Path(argument) for argument in sys.argv[1:4])


class Archive(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)

    def test_another_builder_packs_the_same_bytes(self):
        copy = self.folder / BUNDLE.name
        # Made anew in another order, at another time, with other rights for others.
        for path in sorted(BUNDLE.rglob("*"), reverse=True):
            target = copy / path.relative_to(BUNDLE)
            if path.is_dir():
                target.mkdir(parents=True, exist_ok=True)
                continue
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(path.read_bytes())
            target.chmod(0o700 if os.access(path, os.X_OK) else 0o600)
            os.utime(target, (1, 1))
        subprocess.run([PACKER, copy, self.folder / "again.zip"], check=True)
        self.assertEqual((self.folder / "again.zip").read_bytes(), ARCHIVE.read_bytes())

    def test_the_unpacker_brings_back_all_of_it(self):
        subprocess.run(["unzip", "-q", ARCHIVE, "-d", self.folder], check=True)
        unpacked = self.folder / BUNDLE.name
        files = [path.relative_to(BUNDLE) for path in BUNDLE.rglob("*") if path.is_file()]
        self.assertIn(Path("Contents/Linux/HarlixSupport"), files)
        for file in files:
            self.assertEqual((unpacked / file).read_bytes(), (BUNDLE / file).read_bytes())
            self.assertEqual(os.access(unpacked / file, os.X_OK), os.access(BUNDLE / file, os.X_OK))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
