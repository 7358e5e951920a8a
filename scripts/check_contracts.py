#!/usr/bin/env python3
"""Holds each comment that begins with "Contract:" against the tests.

Such a comment says a rule that looks odd and is kept. It ends with the name of the test that fails
when the rule is broken, in brackets: [SyncLock.BeginSucceedsAfterSevenRefusals]. Says each comment
that names no test, and each name that no test has, and ends with 1 when there is one.
"""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
TEST = re.compile(r"^\s*(?:TEST|TEST_F|TEST_P|TYPED_TEST)\(\s*(\w+)\s*,\s*(\w+)\s*\)", re.MULTILINE)
COMMENT = re.compile(r"(?:^[ \t]*//.*\n)+", re.MULTILINE)
NAME = re.compile(r"\[(\w+\.\w+)\]")
CODE = ("library", "corefoundation", "mobiledevice", "nss", "virtualphone", "engine", "vesk")


def sources(*wings):
    for wing in wings:
        yield from sorted(path for path in (ROOT / wing).rglob("*") if path.suffix in (".h", ".cpp"))


def rules(comment):
    """The rules of a block of comment lines: from one "Contract:" to the next, or to the end."""
    text = " ".join(line.strip().lstrip("/").strip() for line in comment.splitlines())
    return text.split("Contract:")[1:]


def main():
    tests = {f"{suite}.{name}" for path in sources("tests")
             for suite, name in TEST.findall(path.read_text())}
    wrong, count = [], 0
    for path in sources(*CODE):
        text = path.read_text()
        for comment in COMMENT.finditer(text):
            where = f"{path.relative_to(ROOT)}:{text.count(chr(10), 0, comment.start()) + 1}"
            for rule in rules(comment[0]):
                count += 1
                names = NAME.findall(rule)
                if not names:
                    wrong.append(f"{where}: names no test:{rule}")
                wrong += [f"{where}: no test is called {name}" for name in names if name not in tests]
    if not count:
        wrong.append("no rule found")
    if wrong:
        sys.exit("\n".join(wrong))
    print(f"{count} rules, each with a test of its name among {len(tests)}")


main()
