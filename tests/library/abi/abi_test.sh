#!/usr/bin/env bash
# abi_test.sh write LIBRARY DUMP: writes down what programs that were built against the library rely on:
#     names, types of functions, layout of records, tables of virtual functions.
# abi_test.sh compare LIBRARY DUMP: the library has still exactly that.
# abi_test.sh notices LIBRARY DUMP SED: and the comparison would say if DUMP were changed by SED.
#
# The library has to be built with debugging information.
set -euo pipefail
kind=$1 library=$2 dump=$3
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../../.." && pwd)

# Of types that no header of ours shows only the names count, of the C++ library's only what our
# own have of them. No folder of this machine stands in a dump.
describe() {
    abidw --suppressions "$here/abi.suppressions" --drop-private-types \
        --headers-dir "$root/include" --headers-dir "$root/corefoundation/include" \
        --headers-dir "$root/mobiledevice/include" \
        --exported-interfaces-only --drop-undefined-syms --no-show-locs --no-comp-dir-path \
        --no-corpus-path --no-parameter-names --no-elf-needed --no-write-default-sizes \
        --type-id-style hash "$library" |
        sed -e "s#path='\(\.\./\)*#path='#" -e "s#path='$root/#path='#"
}

if [ "$kind" = write ]; then
    described=$(describe)
    printf '%s\n' "$described" >"$dump"
    exit
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
describe >"$work/now.abi"
case $kind in
compare)
    abidiff "$dump" "$work/now.abi" || {
        echo "$library differs from $dump. What was meant: 'make abi', and docs/packaging.md on sonames."
        exit 1
    }
    ;;
notices)
    sed "$4" "$dump" >"$work/changed.abi"
    status=0
    abidiff "$work/changed.abi" "$work/now.abi" || status=$?
    # The third bit: there is a difference. The first two: it could not be told.
    [ $((status & 7)) -eq 4 ] || {
        echo "A changed dump ($4) went unnoticed, or could not be read: $status"
        exit 1
    }
    ;;
*)
    echo "unknown kind: $kind"
    exit 1
    ;;
esac
