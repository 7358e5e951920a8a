#!/usr/bin/env bash
# tidy.sh BUILD_FOLDER [FOLDER...]: clang-tidy over the library, or over the folders that are named,
# with the compile commands of a build by Clang. Any finding is a failure.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
shift
[ $# -gt 0 ] || set -- library corefoundation
find "$@" -name '*.cpp' -print0 | sort -z |
    xargs -0 -P 2 -n 4 clang-tidy-14 -p "$build" --quiet --warnings-as-errors='*'
