#!/usr/bin/env bash
# The window over a virtual phone of firmware 1.1.1 with a few ringtones. The phone goes when the
# window is closed.
#
#   window.sh BUILD_FOLDER [FILE...]     files and folders that are added to the phone's list
set -euo pipefail

source_folder=$(cd "$(dirname "$0")/.." && pwd)
bin=$(cd "$1" && pwd)/bin
shift

if [ ! -x "$bin/vesk-desktop" ]; then
    echo "The window was not built: install libgtk-4-dev and libadwaita-1-dev, and configure anew." >&2
    exit 1
fi
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
    echo "There is no display: neither DISPLAY nor WAYLAND_DISPLAY is set. Without a screen," \
        "xvfb-run -a make window runs it on a virtual one." >&2
    exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_STATE_HOME=$work/state

"$bin/virtualphone" --root "$work/phone" --name "My Phone" --free-bytes 6900m --total-bytes 7600m -- \
    "$bin/vesk" --quiet add "$source_folder"/samples/{bells.mp3,harp.m4a,sunrise.m4r,horn.aiff}
"$bin/virtualphone" --root "$work/phone" --name "My Phone" --free-bytes 6900m --total-bytes 7600m \
    --link-speed 16K -- "$bin/vesk-desktop" "$@"
