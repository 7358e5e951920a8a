#!/usr/bin/env python3
"""The library as a developer finds it who has installed it: by pkg-config and by CMake, wherever it
lies.

    package_test.py BUILD SOURCE [unittest's arguments]
"""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

BUILD, SOURCE = Path(sys.argv[1]), Path(sys.argv[2])
EXAMPLE = SOURCE / "examples" / "ringtones.c"


def run(*command, **options):
    done = subprocess.run(command, capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ends with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        run("cmake", "--install", BUILD, "--prefix", cls.folder / "first")
        # Where it was built for is nowhere any more.
        cls.prefix = cls.folder / "moved here"
        (cls.folder / "first").rename(cls.prefix)
        cls.libraries = next(cls.prefix.rglob("libKRLVesk.so")).parent
        cls.environment = {**os.environ, "PKG_CONFIG_PATH": str(cls.libraries / "pkgconfig"),
                           "LD_LIBRARY_PATH": str(cls.libraries),
                           "XDG_STATE_HOME": str(cls.folder / "state")}

    def listed(self, program):
        """What an example says of a phone with one ringtone."""
        phone = self.folder / f"phone of {program.name}"
        return run(BUILD / "bin" / "virtualphone", "--root", phone, "--", "sh", "-c",
                   '"$0" -q add --name Marimba "$1" && "$2"', BUILD / "bin" / "vesk",
                   SOURCE / "samples" / "harp.m4a", program, env=self.environment)

    def test_a_program_in_c_is_built_by_pkg_config(self):
        flags = run("sh", "-c", "pkg-config --cflags --libs krlvesk", env=self.environment)
        program = self.folder / "ringtones"
        run("sh", "-c", f'gcc "$0" {flags.strip()} -o "$1"', EXAMPLE, program,
            env=self.environment)
        self.assertIn("Marimba", self.listed(program))
        self.assertIn("[libKRLVesk.so.0]", run("readelf", "-dW", program))

    def test_libraries_are_loaded_by_their_sonames(self):
        for name in ("libKRLVesk.so", "libKRLCoreFoundation.so"):
            self.assertTrue((self.libraries / name).is_symlink())
            self.assertTrue((self.libraries / f"{name}.0").is_symlink())
            self.assertIn(f"soname: [{name}.0]", run("readelf", "-dW", self.libraries / name))

    def test_pkg_config_knows_the_version(self):
        version = run("pkg-config", "--modversion", "krlvesk", env=self.environment)
        self.assertRegex(version, r"^0\.\d+\.\d+$")

    def test_packages_have_the_version_of_the_project(self):
        version = run("pkg-config", "--modversion", "krlvesk", env=self.environment).strip()
        changes = (SOURCE / "debian" / "changelog").read_text()
        self.assertTrue(changes.startswith(f"krlvesk ({version}) "), changes.splitlines()[0])

    def test_a_project_finds_it_by_cmake(self):
        project = self.folder / "project"
        run("cmake", "-S", SOURCE / "tests" / "packaging" / "consumer", "-B", project,
            f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DRINGTONES={EXAMPLE}")
        run("cmake", "--build", project)
        self.assertEqual(run(project / "consumer", env=self.environment), "1 1\n")
        self.assertIn("Marimba", self.listed(project / "consumer_c"))

    def test_nothing_built_against_it_names_where_it_was_built(self):
        for file in (self.libraries / "cmake" / "KRLVesk").iterdir():
            self.assertNotIn(str(SOURCE), file.read_text(), file.name)
            self.assertNotIn(str(self.folder), file.read_text(), file.name)

    def test_an_older_language_is_told_so(self):
        said = subprocess.run(
            ["g++", "-std=c++17", "-fsyntax-only", f"-I{self.prefix / 'include'}", "-x", "c++", "-"],
            input="#include <KRLVesk/KRLVesk.h>\n", capture_output=True, text=True)
        self.assertNotEqual(said.returncode, 0)
        first = next(line for line in said.stderr.splitlines() if "error:" in line)
        self.assertIn("KRLVesk needs C++20", first)

    def test_a_destination_takes_all_of_it(self):
        root = self.folder / "root"
        run("cmake", "--install", BUILD, "--prefix", "/opt/vesk",
            env={**os.environ, "DESTDIR": str(root)})
        self.assertEqual([entry.name for entry in root.iterdir()], ["opt"])
        self.assertTrue((root / "opt" / "vesk" / "bin" / "vesk").exists())
        self.assertFalse(Path("/opt/vesk").exists())


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
