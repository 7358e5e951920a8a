#!/usr/bin/env bash
# exported_names_test.sh list LIBRARY FILE: the library exports exactly the names in the file.
# exported_names_test.sh pattern LIBRARY REGEX: it exports something, and only names that match.
set -euo pipefail
kind=$1 library=$2 expected=$3

# C++ names are shown as they are written. Names that a sanitizer's runtime adds are not ours.
exported=$(nm -D --defined-only "$library" | awk '{print $3}' | sed 's/@.*//' | c++filt |
    grep -vE '^(__asan|__odr_asan|__tsan|__ubsan|__sanitizer)' | LC_ALL=C sort -u)
[ -n "$exported" ] || { echo "$library exports nothing"; exit 1; }

case $kind in
list)
    diff <(grep -vE '^(#|$)' "$expected" | LC_ALL=C sort -u) <(printf '%s\n' "$exported") || {
        echo "The exported names ('>') differ from the documented ones ('<') in $expected."
        exit 1
    }
    ;;
pattern)
    if printf '%s\n' "$exported" | grep -vE "$expected"; then
        echo "$library exports these names, which do not match $expected."
        exit 1
    fi
    ;;
*)
    echo "unknown kind: $kind"
    exit 1
    ;;
esac
