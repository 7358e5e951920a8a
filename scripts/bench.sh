#!/usr/bin/env bash
# bench.sh BUILD_DIR: runs the benchmarks of a build.
set -euo pipefail
exec "$1/bench/benchmarks"
