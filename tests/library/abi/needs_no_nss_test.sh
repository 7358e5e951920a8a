#!/usr/bin/env bash
# needs_no_nss_test.sh LIBRARY: it is linked to other libraries, and NSS is not among them.
set -euo pipefail

needed=$(readelf -d "$1" | grep NEEDED)
if grep -E 'libnss|libssl3|libsmime|libnspr|libplc4|libplds4' <<<"$needed"; then
    echo "$1 needs these; only the provider may."
    exit 1
fi
