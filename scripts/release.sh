#!/usr/bin/env bash
# release.sh FOLDER: the archive of the version that the tree is ready to be released as, with its digest.
# The same commit gives the same bytes.
set -euo pipefail
source_folder=$(cd "$(dirname "$0")/.." && pwd)
version=$("$source_folder"/scripts/check_release.py)
name=krlvesk-$version
mkdir -p "$1"
cd "$1"
git -C "$source_folder" archive --prefix="$name/" HEAD | xz -9 >"$name.tar.xz"
sha256sum "$name.tar.xz" | tee "$name.tar.xz.sha256"
echo "Next: git tag -s v$version, and what CONTRIBUTING.md says of a release."
