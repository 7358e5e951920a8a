#!/usr/bin/env python3
"""A wheel as somebody has it who installs it into an environment of their own.

    wheel_test.py BUILD SOURCE [unittest's arguments]
"""
import os
import subprocess
import sys
import unittest
import zipfile

from support import BUILD, SAMPLES, SOURCE, PhoneTest, krlvesk, main


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, timeout=600, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ends with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


class Wheel(PhoneTest):
    def make(self):
        sources = sorted(file for file in (SOURCE / "python" / "krlvesk").iterdir() if file.is_file())
        built = next((BUILD / "lib").glob("python3*/dist-packages/krlvesk"))
        run(sys.executable, SOURCE / "python" / "wheel.py", krlvesk.__version__, built, BUILD / "bin",
            self.folder / "out", *sources)
        return next((self.folder / "out").glob("krlvesk-*.whl"))

    def test_it_works_in_an_environment_of_its_own(self):
        wheel = self.make()
        with zipfile.ZipFile(wheel) as archive:
            names = archive.namelist()
        self.assertIn(f"krlvesk-{krlvesk.__version__}.dist-info/RECORD", names)
        self.assertIn("krlvesk/py.typed", names)
        environment = {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}
        place = self.folder / "environment"
        run(sys.executable, "-m", "venv", place, env=environment)
        python = place / "bin" / "python"
        run(python, "-m", "pip", "install", "--no-index", "--disable-pip-version-check", wheel, env=environment)
        program = (f"import krlvesk\nassert krlvesk.__file__.startswith({str(place)!r})\n"
                   f"with krlvesk.Phones() as phones:\n    device = phones.find()\n"
                   f"    print(device.plan(add={str(SAMPLES / 'harp.m4a')!r}).sync().added)\n"
                   f"    print(device.ringtones()[0])\n")
        self.assertEqual(run(python, "-c", program, env=environment, cwd=self.folder), "1\nHarp (5.3 KiB)\n")
        loaded = run("ldd", next(place.rglob("_core.*.so")), env=environment)
        library = next(line for line in loaded.splitlines() if "libKRLVesk" in line)
        self.assertIn(str(place), library)
        self.assertNotIn("not found", loaded)
        run(python, "-m", "pip", "uninstall", "--yes", "krlvesk", env=environment)
        self.assertEqual(list(place.rglob("*krlvesk*")), [])


if __name__ == "__main__":
    main()
