#!/usr/bin/env bash
# fuzz.sh BUILD_DIR [SECONDS]: runs each fuzz target for a while (20 seconds unless said otherwise).
set -euo pipefail
seconds=${2:-20}
seeds=$(dirname "$0")/../fuzz/seeds
for fuzzer in "$1"/fuzz/*_fuzzer; do
    name=$(basename "$fuzzer")
    echo "==== $name"
    corpus=$(mktemp -d)
    known=()
    [ ! -d "$seeds/$name" ] || known=("$seeds/$name")
    trap 'rm -rf "$corpus"' EXIT
    "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -verbosity=0 -print_funcs=0 \
        -print_final_stats=1 -artifact_prefix="$corpus/" "$corpus" \
        "${known[@]}" ||
        { echo "failed; the input:"; find "$corpus" -type f -name '*-*' -exec base64 {} +; exit 1; }
done
