#!/usr/bin/env bash
# bench.sh BUILD_DIR: runs the benchmarks of a build.
set -euo pipefail
"$1/bench/benchmarks"
"$1/bench/main_loop"
"$1/bench/safe_cost"
[ ! -x "$1/bench/songs_cost" ] || "$1/bench/songs_cost"
