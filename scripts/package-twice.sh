#!/usr/bin/env bash
# package-twice.sh FOLDER: builds the packages twice, elsewhere and in other surroundings, and compares their bytes.
set -euo pipefail
cd "$(dirname "$0")/.."

folder=$1
rm -rf "$folder"
mkdir -p "$folder"
folder=$(cd "$folder" && pwd)
# A compiler's cache would hand the first build's objects to the second.
unset CMAKE_C_COMPILER_LAUNCHER CMAKE_CXX_COMPILER_LAUNCHER

echo "The first time ..."
(umask 022 && TZ=UTC LC_ALL=C scripts/package.sh "$folder/first") >"$folder/first.log" 2>&1
echo "The second time ..."
(umask 002 && TZ=Asia/Tokyo LC_ALL=C.UTF-8 scripts/package.sh "$folder/another/second") >"$folder/second.log" 2>&1

sums() { (cd "$1" && sha256sum ./*.deb ./*.dsc ./*.tar.*); }
sums "$folder/first"
diff <(sums "$folder/first") <(sums "$folder/another/second")
echo "Both times the same bytes."
