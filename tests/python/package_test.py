#!/usr/bin/env python3
"""The package as a programmer has it: its types, its documentation, its errors and its example.

    package_test.py BUILD SOURCE [unittest's arguments]
"""
import ast
import inspect
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from support import BIN, LONGEST, SAMPLES, SOURCE, PhoneTest, krlvesk, main

from krlvesk import _core, aio

PACKAGE = SOURCE / "python" / "krlvesk"
EXAMPLE = SOURCE / "examples" / "sync.py"


def public_members(module):
    """What a module shows, and what its classes show."""
    for name in module.__all__:
        thing = getattr(module, name)
        yield name, thing
        if inspect.isclass(thing):
            for member, value in vars(thing).items():
                if not member.startswith("_") and (inspect.isfunction(value) or isinstance(value, property)):
                    yield f"{name}.{member}", value


class Documented(unittest.TestCase):
    def test_all_that_is_public_has_a_docstring(self):
        functions = [(name, thing) for module in (krlvesk, aio) for name, thing in public_members(module)
                     if inspect.isclass(thing) or inspect.isfunction(thing) or isinstance(thing, property)]
        self.assertGreater(len(functions), 80)
        missing = [name for name, thing in functions if not inspect.getdoc(thing)]
        self.assertEqual(missing, [])
        self.assertTrue(krlvesk.__doc__ and aio.__doc__)

    def test_the_module_shows_what_is_said_and_nothing_else(self):
        shown = {name for name in vars(krlvesk) if not name.startswith("_")} - {"annotations", "aio"}
        self.assertEqual(shown, set(krlvesk.__all__) - {"__version__"})

    def test_the_loop_has_what_the_threads_have(self):
        for name in ("Phone", "Phones", "Plan"):
            blocking, awaited = getattr(krlvesk, name), getattr(aio, name)
            if name != "Phones":
                names = {member for member in vars(blocking) if not member.startswith("_")}
                self.assertEqual(names, {member for member in vars(awaited) if not member.startswith("_")})
                for member in names:
                    one, other = (inspect.signature(getattr(kind, member)).parameters for kind in (blocking, awaited))
                    self.assertEqual([key for key in one if key != "cancel"], list(other), member)


class Typed(unittest.TestCase):
    def test_the_extension_has_what_its_stub_says_and_nothing_else(self):
        tree = ast.parse((PACKAGE / "_core.pyi").read_text())
        stubbed = set()
        for node in tree.body:
            if isinstance(node, ast.FunctionDef):
                stubbed.add(node.name)
            elif isinstance(node, ast.AnnAssign):
                stubbed.add(node.target.id)
            elif isinstance(node, ast.ClassDef):
                stubbed.update({node.name} | {f"{node.name}.{one.name}" for one in node.body if one.name != "__init__"})
        real = {name for name in vars(_core) if not name.startswith("_")}
        for name in list(real):
            thing = getattr(_core, name)
            if inspect.isclass(thing):
                real.update(f"{name}.{member}" for member in vars(thing) if not member.startswith("_"))
        self.assertEqual(stubbed, real)

    @unittest.skipUnless(shutil.which("mypy"), "mypy is not installed")
    def test_the_package_and_the_example_are_typed_strictly(self):
        with tempfile.TemporaryDirectory() as cache:
            done = subprocess.run(["mypy", "--strict", "--python-executable", sys.executable, "--cache-dir", cache,
                                   PACKAGE, EXAMPLE], capture_output=True, text=True, timeout=600)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_the_package_says_that_it_is_typed(self):
        self.assertTrue((Path(krlvesk.__file__).parent / "py.typed").exists())


class Errors(unittest.TestCase):
    @staticmethod
    def kinds(base=krlvesk.Error):
        yield base
        for kind in base.__subclasses__():
            yield from Errors.kinds(kind)

    def test_each_failure_of_the_engine_has_a_class_of_its_own(self):
        classes = {(kind.code, kind.name) for kind in self.kinds()}
        self.assertEqual(classes, set(_core.failure_codes()))
        self.assertEqual(len({kind for kind in self.kinds() if kind.code != 1}) + 1, len(_core.failure_codes()))

    def test_its_number_and_name_are_those_of_the_manual(self):
        manual = (SOURCE / "docs" / "vesk.md").read_text()
        for kind in self.kinds():
            self.assertIn(f"| {kind.code} | `{kind.name}` |", manual)

    def test_an_error_is_safe_to_be_shown(self):
        error = krlvesk.BadNameError("a \x1b[2Jname \udcff", "Choose another.", ["one"])
        self.assertEqual(str(error), "a \\x1b[2Jname \ufffd")
        self.assertEqual(krlvesk.printable("\ud800\udcc3\udca9\udfff"), "\ufffdé\ufffd")
        self.assertEqual((error.code, error.name, error.advice, error.details),
                         (24, "bad-name", "Choose another.", ("one",)))


class Example(PhoneTest):
    def run_example(self, *arguments):
        return subprocess.run([sys.executable, EXAMPLE, *map(str, arguments)], capture_output=True, text=True,
                              timeout=LONGEST)

    def test_it_brings_a_folder_to_a_phone(self):
        folder = self.folder / "songs"
        folder.mkdir()
        shutil.copy(SAMPLES / "harp.m4a", folder)
        done = self.run_example(folder)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("1 added, 0 removed", done.stdout)
        self.assertEqual(self.names(), ["Harp"])
        again = self.run_example(folder, "My Phone")
        self.assertIn("nothing to do, it has 1 ringtone", again.stdout)

    def test_it_ends_as_vesk_does(self):
        done = self.run_example(self.folder / "nowhere")
        self.assertEqual(done.returncode, self.vesk("sync", self.folder / "nowhere")[0])
        self.assertNotIn("Traceback", done.stderr)


if __name__ == "__main__":
    main()
