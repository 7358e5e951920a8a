#!/usr/bin/env python3
"""What keeps a tree from being released.

    release_test.py SOURCE [unittest's arguments]
"""
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(sys.argv[1])
FILES = {
    "CMakeLists.txt": "project(KRLVesk VERSION 0.3.1 LANGUAGES CXX)\n",
    "CHANGELOG.md": "# Changes\n\n## 0.3.1 (2026-11-22)\n\n- A new thing.\n\n## 0.3.0 (2026-01-01)\n\n- An old one.\n",
    "debian/changelog": "krlvesk (0.3.1) unstable; urgency=medium\n\n  * A new thing.\n",
    "desktop/data/com.korvane.Vesk.metainfo.xml":
        '<releases><release version="0.3.1" date="2026-11-22"/><release version="0.3.0" date="2026-01-01"/></releases>\n',
}


class Release(unittest.TestCase):
    def setUp(self):
        self.root = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.root)
        self.git("init", "-q")
        for name, text in FILES.items():
            (self.root / name).parent.mkdir(parents=True, exist_ok=True)
            (self.root / name).write_text(text)
        self.commit()

    def git(self, *arguments):
        subprocess.run(["git", "-C", self.root, "-c", "user.name=Me", "-c", "user.email=me@localhost",
                        *arguments], check=True, capture_output=True)

    def commit(self):
        self.git("add", "-A")
        self.git("commit", "-q", "-m", "A state")

    def said(self):
        done = subprocess.run([sys.executable, SOURCE / "scripts" / "check_release.py", self.root],
                              capture_output=True, text=True)
        self.assertEqual(done.returncode, 1 if done.stderr else 0)
        return done.stdout + done.stderr

    def stands_in_the_way(self, file, old, new, problem):
        text = FILES[file]
        self.assertIn(old, text)
        (self.root / file).write_text(text.replace(old, new, 1))
        self.commit()
        self.assertEqual(self.said(), f"0.3.1 cannot be released:\n{problem}\n")

    def test_a_tree_that_agrees_is_ready(self):
        self.assertEqual(self.said(), "0.3.1\n")

    def test_changes_without_a_date(self):
        self.stands_in_the_way("CHANGELOG.md", "0.3.1 (2026-11-22)", "Unreleased",
                               'CHANGELOG.md: the latest heading is not "## 0.3.1 (YYYY-MM-DD)"')

    def test_a_version_without_changes(self):
        self.stands_in_the_way("CHANGELOG.md", "- A new thing.\n", "",
                               "CHANGELOG.md: nothing is said under 0.3.1")

    def test_packages_of_another_version(self):
        self.stands_in_the_way("debian/changelog", "0.3.1", "0.3.0",
                               "debian/changelog: the latest entry is not one of 0.3.1")

    def test_packages_that_are_unreleased(self):
        self.stands_in_the_way("debian/changelog", "unstable", "UNRELEASED",
                               "debian/changelog: the latest entry is UNRELEASED")

    def test_a_window_of_another_date(self):
        self.stands_in_the_way(
            "desktop/data/com.korvane.Vesk.metainfo.xml", "2026-11-22", "2026-11-21",
            "desktop/data/com.korvane.Vesk.metainfo.xml: the latest release is not 0.3.1 with the "
            "date of CHANGELOG.md")

    def test_a_version_that_was_released(self):
        self.git("tag", "v0.3.1")
        self.assertIn("v0.3.1 is tagged already", self.said())

    def test_what_is_not_committed(self):
        (self.root / "new").touch()
        self.assertIn("changes that are not committed", self.said())


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
