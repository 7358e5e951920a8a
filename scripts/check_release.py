#!/usr/bin/env python3
"""Whether the tree says of itself what it is to be released as: all places that name the version agree,
the changes are written down under it, and nothing lies about that is not committed.

    check_release.py [ROOT]

The version is the one of CMakeLists.txt. Prints it; or what stands in the way, and ends with 1.
"""
import re
import subprocess
import sys
from pathlib import Path


def git(root, *arguments):
    return subprocess.run(["git", "-C", root, *arguments], check=True, capture_output=True,
                          text=True).stdout


def found(root, file, pattern):
    """What a pattern's groups match in a file; nothing where it does not match."""
    match = re.search(pattern, (root / file).read_text(), flags=re.M)
    return match.groups() if match else None


def changes_under_the_latest_heading(root):
    section = (root / "CHANGELOG.md").read_text().split("\n## ")[1]
    return [line for line in section.splitlines()[1:] if line and not line.startswith("#")]


def problems_of(root, version):
    heading = found(root, "CHANGELOG.md", r"^## (.+)$")
    date = re.fullmatch(re.escape(version) + r" \((\d{4}-\d\d-\d\d)\)", heading[0]) if heading else None
    if not date:
        yield f'CHANGELOG.md: the latest heading is not "## {version} (YYYY-MM-DD)"'
    elif not changes_under_the_latest_heading(root):
        yield f"CHANGELOG.md: nothing is said under {version}"

    entry = found(root, "debian/changelog", r"\A\S+ \((\S+)\) (\S+);")
    if not entry or entry[0] != version:
        yield f"debian/changelog: the latest entry is not one of {version}"
    elif entry[1] == "UNRELEASED":
        yield "debian/changelog: the latest entry is UNRELEASED"

    metainfo = "desktop/data/com.korvane.Vesk.metainfo.xml"
    release = found(root, metainfo, r'<release version="([^"]+)" date="([^"]+)"')
    if not release or release[0] != version or (date and release[1] != date[1]):
        yield f"{metainfo}: the latest release is not {version} with the date of CHANGELOG.md"

    if git(root, "tag", "--list", f"v{version}"):
        yield f"v{version} is tagged already: CMakeLists.txt wants a new version"
    if git(root, "status", "--porcelain"):
        yield "the tree has changes that are not committed"


def main():
    root = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parent.parent)
    (version,) = found(root, "CMakeLists.txt", r"^project\(KRLVesk VERSION ([\d.]+)")
    problems = list(problems_of(root, version))
    if problems:
        sys.exit("\n".join([f"{version} cannot be released:", *problems]))
    print(version)


main()
