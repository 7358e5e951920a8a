#!/usr/bin/env bash
# package-test-inside.sh PACKAGES: what package-test.sh does within the root. Installs, and is for no other place.
set -euo pipefail
packages=$1
cd "$(dirname "$0")/.."
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

step() { printf '\n==== %s\n' "$*"; }

ours=$(for file in "$packages"/*.deb; do dpkg-deb --field "$file" Package; done)

# What a field of some control files asks for besides our own packages, one a line.
wants() {
    sed 's/([^)]*:[^)]*)//; s/,/\n/g' | sed 's/^ *//; s/ *$//' |
        grep -vE "^($(paste -sd'|' <<<"$ours"))( |\$)" | grep . | sort -u
}

# All that is there; not what the package manager knows of packages, and what anyone may throw away.
everything() {
    find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /tmp -o -path /srv -o -path /var/cache \
        -o -path /var/log -o -path /var/lib/apt -o -path /var/lib/dpkg \) -prune -o -printf '%p %y %l\n' |
        LC_ALL=C sort
}

step "what the packages and their tests need"
needs=$({
    for file in "$packages"/*.deb; do
        dpkg-deb --field "$file" Depends
        dpkg-deb --field "$file" Recommends
    done
    sed -n 's/^Depends: //p' debian/tests/control
} | wants | paste -sd,)
echo "$needs"
apt-get satisfy --yes -qq "$needs" >/tmp/needs.log 2>&1 || {
    tail -n 30 /tmp/needs.log
    exit 1
}
everything >/tmp/before

step "install"
apt-get install --yes -qq -o Dpkg::Use-Pty=0 "$packages"/*.deb
dpkg-query --show $ours

for test in $(sed -n 's/^Tests: //p' debian/tests/control); do
    step "test: $test"
    "debian/tests/$test"
done

step "remove"
apt-get purge --yes -qq -o Dpkg::Use-Pty=0 $ours

step "what is left"
everything >/tmp/after
diff /tmp/before /tmp/after
echo "nothing"
