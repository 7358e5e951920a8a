#!/usr/bin/env bash
# exported_names_test.sh list LIBRARY NODE FILE: the library exports exactly the names in the file.
# exported_names_test.sh pattern LIBRARY NODE REGEX: it exports something, and only names that match.
#
# Each name is of the version node, and of no other; of none when NODE is empty.
set -euo pipefail
kind=$1 library=$2 node=$3 expected=$4

# Names that a sanitizer's runtime adds are not ours; a node itself is a name with the value 0.
symbols=$(nm -D --defined-only --with-symbol-versions "$library" |
    awk -v node="$node" '!($2 == "A" && node != "" && $3 ~ "^" node "(@|$)") { print $3 }' |
    grep -vE '^(__asan|__odr_asan|__tsan|__ubsan|__sanitizer)')
[ -n "$symbols" ] || { echo "$library exports nothing"; exit 1; }

version=${node:+@@$node}
if strangers=$(grep -vE "^[^@]+$version\$" <<<"$symbols"); then
    printf '%s\n' "$strangers" "$library exports these names outside of '$node'."
    exit 1
fi

# C++ names are shown as they are written.
exported=$(sed 's/@.*//' <<<"$symbols" | c++filt | LC_ALL=C sort -u)

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
