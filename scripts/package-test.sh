#!/usr/bin/env bash
# package-test.sh FOLDER: installs the packages of a folder in a clean root, runs debian/tests there, removes them,
# and looks for what they leave. The log is kept in the folder.
#
# The root is of this machine's release and comes from where its own packages come from. It is made in a
# namespace of its own unless root does it, and is gone afterwards.
set -euo pipefail
cd "$(dirname "$0")/.."

folder=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"

mkdir "$work/packages" "$work/tree"
find "$folder" -maxdepth 1 -name '*.deb' ! -name '*-dbgsym_*' -exec cp {} "$work/packages" \;
[ -n "$(ls "$work/packages")" ] || {
    echo "There is no package in $folder: 'make package' first." >&2
    exit 1
}
git ls-files -z debian examples samples scripts tests/packaging |
    tar --create --null --files-from=- | tar --extract --directory="$work/tree"

sources=()
for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.{list,sources}; do
    [ -s "$file" ] && sources+=("$file")
done
apt-config dump Acquire >"$work/acquire.conf"

release=$(. /etc/os-release && echo "$VERSION_CODENAME")
mmdebstrap --quiet --variant=apt --aptopt="$work/acquire.conf" \
    --customize-hook="copy-in $work/packages $work/tree /srv" \
    --customize-hook='chroot "$1" env --ignore-environment PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
        http_proxy="$http_proxy" https_proxy="$https_proxy" no_proxy="$no_proxy" \
        /srv/tree/scripts/package-test-inside.sh /srv/packages' \
    "$release" /dev/null "${sources[@]}" 2>&1 | tee "$folder/package-test.log"
