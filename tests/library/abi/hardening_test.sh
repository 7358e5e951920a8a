#!/usr/bin/env bash
# hardening_test.sh BINARY RUNPATH KIND...: what the ELF headers of a binary say.
#
# It looks for libraries in exactly RUNPATH ("" for none), its tables of addresses are read-only once
# it runs, and neither stack nor data can be run. KIND "program": it is loaded at any address.
# KIND "stripped": names nothing that the dynamic linker does not ask for.
# KIND "guarded": compiled with guards on the stack; "fortified": with checked calls of the C library.
set -euo pipefail
export LC_ALL=C
binary=$1 runpath=$2
shift 2

failures=0
fail() {
    echo "$binary: $*"
    failures=1
}

dynamic=$(readelf -dW "$binary")
segments=$(readelf -lW "$binary")
undefined=$(nm -D --undefined-only "$binary")

found=$(sed -n 's/.*(RUNPATH).*\[\(.*\)\]/\1/p' <<<"$dynamic")
[ "$found" = "$runpath" ] || fail "looks for libraries in '$found', not in '$runpath'"
grep -q '(RPATH)' <<<"$dynamic" && fail "has an RPATH, which even LD_LIBRARY_PATH cannot override"
grep -q 'GNU_RELRO' <<<"$segments" || fail "has no read-only segment after relocation"
grep -qE '\(FLAGS\).*BIND_NOW|\(FLAGS_1\).*NOW' <<<"$dynamic" || fail "binds functions late"
grep -E '(LOAD|GNU_STACK) .* RWE' <<<"$segments" && fail "has memory that can be written and run"

for kind in "$@"; do
    case $kind in
    program)
        grep -q '(FLAGS_1).*PIE' <<<"$dynamic" || fail "is loaded at a fixed address"
        ;;
    stripped)
        readelf -SW "$binary" | grep -E ' \.(symtab|debug_)' && fail "is not stripped"
        ;;
    guarded)
        grep -q '__stack_chk_fail' <<<"$undefined" || fail "has no guards on the stack"
        if [ "$(uname -m)" = x86_64 ]; then
            readelf -nW "$binary" | grep -q 'x86 feature: .*SHSTK' ||
                fail "is not marked for the shadow stack"
            # Read whole: a reader that stops early would end the other with a broken pipe.
            [ "$(objdump -d --section=.text "$binary" | grep -c endbr64)" -gt 0 ] ||
                fail "has no landing pads"
        fi
        ;;
    fortified)
        grep -qE '__[a-z]+_chk(@|$)' <<<"$(grep -v '__stack_chk_fail' <<<"$undefined")" ||
            fail "calls the C library unchecked"
        ;;
    *)
        fail "unknown kind: $kind"
        ;;
    esac
done
exit $failures
