#!/usr/bin/env bash
# bench.sh BUILD_DIR: runs the benchmarks of a build.
set -euo pipefail
# What is sent there is kept in memory: of the wire, a disk would tell nothing.
memory=/dev/shm
[ -w "$memory" ] || memory=${TMPDIR:-/tmp}
TMPDIR=$memory "$1/bench/benchmarks"
"$1/bench/main_loop"
"$1/bench/safe_cost"
[ ! -x "$1/bench/songs_cost" ] || "$1/bench/songs_cost"
