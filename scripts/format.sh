#!/usr/bin/env bash
# Formats all sources; with --check only says which ones are not formatted, and fails.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=(-i)
[ "${1:-}" != --check ] || mode=(--dry-run -Werror)
clang_format=$(command -v clang-format-14 || command -v clang-format)
git ls-files -z --cached --others --exclude-standard -- '*.c' '*.h' '*.cpp' |
    xargs -0 "$clang_format" "${mode[@]}"
