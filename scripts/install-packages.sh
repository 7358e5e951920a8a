#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the demo need. Quick when all are there.
set -euo pipefail

packages=(
    g++ cmake ninja-build pkg-config make git
    unzip libsystemd-dev dbus-daemon
    libplist-dev libusbmuxd-dev libnss3-dev libtag1-dev libcli11-dev libfmt-dev nlohmann-json3-dev
    libgtest-dev libgmock-dev libbenchmark-dev libimobiledevice-dev libimobiledevice-utils ifuse
    libglib2.0-dev clang-format-14 binutils
)

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "These packages are missing, and neither root nor sudo is at hand: ${missing[*]}" >&2
        exit 1
    }
    as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
