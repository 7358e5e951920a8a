#!/usr/bin/env bash
# valgrind.sh BUILD: runs each program of the fast tests under memcheck. Ends with 1 when one of them
# reads what was never written, leaks, or fails.
set -euo pipefail

build=$(realpath "$1")
here=$(realpath "$(dirname "$0")/..")
logs=$build/valgrind
mkdir -p "$logs"

# What cannot run under valgrind: a test that limits its own memory to less than memcheck needs, and
# one of a program that is not there, of which posix_spawn says nothing under valgrind. Nor the
# thousands of runs over the store, which take too long; its own tests make the same calls.
unfit='PropertyListReading.RunningOutOfMemory*:TagReading.AMissingProgramIsSaid'
export GTEST_FILTER="*-$unfit:Each/CallSweep.*/KRTRingtoneManager*"
export GTEST_BRIEF=1

# Memcheck does not follow the ciphers that NSS has in assembly; it has them in C, too.
export NSS_DISABLE_HW_AES=1 NSS_DISABLE_HW_GCM=1 NSS_DISABLE_CLMUL=1 NSS_DISABLE_AVX=1 NSS_DISABLE_AVX2=1

programs() {
    ctest --test-dir "$build" -L '^fast$' --show-only=json-v1 | python3 -c '
import json, sys
tests = json.load(sys.stdin)["tests"]
folders = {}
for test in tests:
    program = (test.get("command") or [""])[0]
    folder = [p["value"] for p in test["properties"] if p["name"] == "WORKING_DIRECTORY"]
    if program.startswith(sys.argv[1] + "/"):
        folders[program] = folder[0]
for program, folder in sorted(folders.items()):
    print(program, folder)' "$build"
}

failed=()
while read -r program folder; do
    name=$(basename "$program")
    echo "$name"
    (cd "$folder" && valgrind --quiet --leak-check=full --show-leak-kinds=definite,possible \
        --errors-for-leak-kinds=definite,possible --error-exitcode=99 --num-callers=40 \
        --suppressions="$here/tests/support/valgrind.supp" \
        --log-file="$logs/$name.log" "$program") >"$logs/$name.out" 2>&1 ||
        failed+=("$name")
done < <(programs)

for name in "${failed[@]}"; do
    echo "== $name"
    grep -A8 '\[  FAILED' "$logs/$name.out" | head -20 || true
    head -40 "$logs/$name.log" || true
done
[ ${#failed[@]} -eq 0 ]
