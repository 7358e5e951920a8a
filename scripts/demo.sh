#!/usr/bin/env bash
# A whole sync before your eyes: a virtual phone of firmware 1.1.1, the sample ringtones, vesk.
#
#   demo.sh BUILD_FOLDER [KEEP_FOLDER]
#
# Checks that each step did what it says, and ends with 1 at the first that did not. Leaves nothing
# behind, or the phone's folder, its log and the ringtones in KEEP_FOLDER.
set -euo pipefail

source_folder=$(cd "$(dirname "$0")/.." && pwd)
bin=$(cd "$1" && pwd)/bin
work=$(mktemp -d)
phone=$work/phone
music=$work/music
export USBMUXD_SOCKET_ADDRESS=UNIX:$work/usbmux
export XDG_STATE_HOME=$work/state XDG_CACHE_HOME=$work/cache

phone_process=
finish() {
    if [ -n "$phone_process" ]; then
        kill "$phone_process" 2>/dev/null || true
        wait "$phone_process" 2>/dev/null || true
    fi
    if [ -n "${keep_folder:-}" ]; then
        mkdir -p "$keep_folder"
        cp -R "$phone" "$music" "$work/requests.log" "$keep_folder"
    fi
    rm -rf "$work"
}
trap finish EXIT
trap 'exit 130' INT TERM
keep_folder=${2:-}

bold= dim= plain=
if [ -t 1 ] && [ -z "${NO_COLOR:-}" ] && [ "${TERM:-dumb}" != dumb ]; then
    bold=$'\e[1m' dim=$'\e[2m' plain=$'\e[0m'
fi

heading() {
    printf '\n%s== %s%s\n' "$bold" "$*" "$plain"
}

# Shows a command as it would be typed, then runs it.
type_and_run() {
    local shown=
    for word in "$@"; do
        case $word in
        "$bin"/*) word=${word#"$bin"/} ;;
        "$music" | "$music"/*) word=music${word#"$music"} ;;
        "$phone" | "$phone"/*) word=phone${word#"$phone"} ;;
        esac
        [[ $word == *[\ \;\&]* ]] && word="\"$word\""
        shown+=" $word"
    done
    printf '%s$%s%s\n' "$dim" "$plain$bold" "$shown$plain"
    "$@"
}

vesk() { type_and_run "$bin/vesk" "$@"; }

fail() {
    echo "demo: $*" >&2
    exit 1
}

# expect_ringtones NAME...: the phone holds exactly these.
expect_ringtones() {
    local wanted got
    wanted=$(printf '%s\n' "$@" | sort)
    got=$("$bin/vesk" list --json | sed -n 's/^ *"name": "\(.*\)",$/\1/p' | tail -n +2 | sort)
    [ "$got" = "$wanted" ] || fail "the phone should hold: $wanted; it holds: $got"
}

files_on_phone() { find "$phone" -path '*/Ringtones/*' -type f -name "$1" | wc -l; }

# ----------------------------------------------------------------------------- the show

mkdir "$music"
cp "$source_folder"/samples/*.{m4r,m4a,mp3,wav,aiff} "$music"

heading "A virtual phone of firmware 1.1.1 is plugged in; its sessions are SSL 3.0"
"$bin/virtualphone" --root "$phone" --firmware 1.1.1 --name "My Phone" --socket "$work/usbmux" \
    --log "$work/requests.log" --link-speed 16K --session ssl3 --unpaired >"$work/out" 2>&1 &
phone_process=$!
for _ in $(seq 300); do
    [ -S "$work/usbmux" ] && break
    kill -0 "$phone_process" 2>/dev/null || fail "the virtual phone did not start: $(cat "$work/out")"
    sleep 0.1
done
vesk devices
vesk pair
vesk info
expect_ringtones ""

heading "Six ringtones are waiting in a folder"
type_and_run ls "$music"

heading "What a sync would do"
vesk sync "$music" --dry-run
[ "$(files_on_phone '*')" = 0 ] || fail "a dry run wrote to the phone"

heading "The sync"
vesk sync "$music"
expect_ringtones "Glöckchen" "Harp" "Horn" "Sunrise 🌅" "Tick Tock" "two-tone"

heading "The phone's ringtones"
vesk list

heading "Its folder: other types than m4r have an empty placeholder beside them"
type_and_run ls -s "$phone/iTunes_Control/Ringtones"
[ "$(files_on_phone '*.mp3')" = 2 ] || fail "two mp3 files should be on the phone"
[ "$(find "$phone" -path '*/Ringtones/*.m4r' -empty | wc -l)" = 5 ] ||
    fail "five placeholders should be on the phone"

heading "Its catalogue"
type_and_run cat "$phone/iTunes_Control/iTunes/Ringtones.plist"

heading "Is the catalogue in an order that firmware 1.1.1 copes with?"
vesk check "$phone/iTunes_Control/iTunes/Ringtones.plist"

heading "One ringtone goes from the phone, another from the folder"
vesk remove Horn
expect_ringtones "Glöckchen" "Harp" "Sunrise 🌅" "Tick Tock" "two-tone"
type_and_run rm "$music/tick.wav"

heading "A second sync carries only what is different"
vesk sync "$music"
expect_ringtones "Glöckchen" "Harp" "Horn" "Sunrise 🌅" "two-tone"
vesk list

grep -q '"request":"Handshake","name":"SSL 3.0' "$work/requests.log" ||
    fail "the sessions should have been SSL 3.0"

heading "Next"
cat <<END
Try it yourself, from $source_folder:

  $1/bin/virtualphone --root /tmp/phone --firmware 1.1.1 --name "My Phone" --session ssl3 -- bash
  $1/bin/vesk sync samples          (in the shell that this opens)
  $1/bin/vesk --help

With a real phone on USB, vesk needs no option: vesk pair, then vesk devices.
END
