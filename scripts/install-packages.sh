#!/usr/bin/env bash
# install-packages.sh [WHAT...]: installs the Debian packages that something needs; quick when all are
# there. WHAT is any of: build (programs and library), demo (the same without vesk-prepare, vesk-play, the
# window and the Python module), package (Debian packages and their tests), tests, bench, checks, fuzz,
# valgrind. Without one: everything.
set -euo pipefail

build=(
    g++ cmake ninja-build pkg-config make unzip python3
    libsystemd-dev libplist-dev libusbmuxd-dev libnss3-dev libtag1-dev libseccomp-dev libcli11-dev libfmt-dev
    nlohmann-json3-dev nettle-dev libutf8proc-dev
)
# For vesk-prepare and vesk-play; all else is built without them too.
songs=(
    libavformat-dev libavcodec-dev libavfilter-dev libswresample-dev libavutil-dev
    libgstreamer1.0-dev gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-libav
)
# For vesk-desktop; all else is built without them too.
desktop=(libgtk-4-dev libadwaita-1-dev libglib2.0-dev-bin gettext adwaita-icon-theme)
# For the Python module; all else is built without them too.
python=(pybind11-dev python3-dev)
# A wheel of it, an environment to install that into, and what checks its types.
python_tests=(python3-wheel python3-venv mypy)
# A screen without one, and what reads it as a screen reader does.
desktop_tests=(xvfb xclip xdotool dbus-daemon at-spi2-core python3-gi gir1.2-atspi-2.0 gir1.2-gtk-4.0 fonts-cantarell)
tests=(
    libgtest-dev libgmock-dev libimobiledevice-dev libimobiledevice-utils ifuse libglib2.0-dev
    abigail-tools dbus-daemon systemd binutils python3 procps openssl openjdk-17-jdk-headless ffmpeg zsh fish groff-base
)
bench=(libbenchmark-dev libimobiledevice-dev)
checks=(clang-14 clang-format-14 clang-tidy-14 python3 git doxygen)
# Beside what debian/control asks for, which is in the lists above.
package=(debhelper dh-python doxygen dpkg-dev git help2man lintian mmdebstrap)
fuzz=(clang-14 libclang-rt-14-dev)

[ $# -gt 0 ] || set -- build package tests bench checks fuzz valgrind
packages=()
for what in "$@"; do
    case $what in
    demo) packages+=("${build[@]}") ;;
    build) packages+=("${build[@]}" "${songs[@]}" "${desktop[@]}" "${python[@]}") ;;
    tests)
        packages+=("${build[@]}" "${songs[@]}" "${desktop[@]}" "${python[@]}")
        packages+=("${tests[@]}" "${desktop_tests[@]}" "${python_tests[@]}")
        ;;
    package) packages+=("${build[@]}" "${songs[@]}" "${desktop[@]}" "${python[@]}" "${package[@]}") ;;
    bench) packages+=("${build[@]}" "${songs[@]}" "${tests[@]}" "${bench[@]}") ;;
    valgrind) packages+=(valgrind python3) ;;
    checks) packages+=("${checks[@]}") ;;
    fuzz) packages+=("${build[@]}" "${songs[@]}" "${fuzz[@]}") ;;
    *)
        echo "unknown: $what" >&2
        exit 2
        ;;
    esac
done

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
