#!/usr/bin/env bash
# Brings po/ up to date with what the window says. --check only says whether a translation lacks
# something.
set -euo pipefail
cd "$(dirname "$0")/.."

template=$(mktemp)
trap 'rm -f "$template"' EXIT
xgettext --from-code=UTF-8 --package-name=KRLVesk --no-wrap --no-location --keyword=_ --keyword=ngettext_:1,2 --files-from=po/POTFILES.in --output="$template"

for language in po/*.po; do
    if [ "${1:-}" = --check ]; then
        msgcmp "$language" "$template" || exit 1
        msgfmt --check --output-file=/dev/null "$language"
    else
        msgmerge --quiet --update --backup=none --no-wrap --no-fuzzy-matching "$language" "$template"
    fi
done
