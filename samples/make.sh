#!/bin/sh
# Makes the sample ringtones anew from sine waves. Needs ffmpeg with its AAC and LAME encoders.
set -eu
cd "$(dirname "$0")"

# tone FILE SECONDS EXPRESSION TITLE [FFMPEG OUTPUT OPTIONS...]
tone() {
    file=$1 seconds=$2 expression=$3 title=$4
    shift 4
    ffmpeg -hide_banner -loglevel error -y \
        -f lavfi -i "aevalsrc='$expression':s=8000:d=$seconds" \
        -fflags +bitexact -flags +bitexact -map_metadata -1 \
        ${title:+-metadata "title=$title"} "$@" "$file"
}

# A note that dies away, struck anew every STEP seconds: note FREQUENCY STEP
note() {
    printf '0.5*sin(2*PI*%s*t)*exp(-5*mod(t\\,%s))' "$1" "$2"
}

tone sunrise.m4r 2.4 "$(note '(440+110*floor(t*2.5))' 0.4)" 'Sunrise 🌅' -c:a aac -b:a 16k -f ipod
tone harp.m4a 2 "$(note '(330+66*floor(t*4))' 0.25)" 'Harp' -c:a aac -b:a 16k -f ipod
tone bells.mp3 3 "$(note '(660+mod(floor(t*2)\,3)*165)' 0.5)" 'Glöckchen' -c:a libmp3lame -b:a 16k -id3v2_version 3
tone two-tone.mp3 3 "$(note '(440+mod(floor(t*2)\,2)*220)' 0.5)" '' -c:a libmp3lame -b:a 16k -write_xing 0
tone tick.wav 1 "$(note '1000' 0.25)" 'Tick Tock' -c:a pcm_u8
tone horn.aiff 0.55 "0.3*(sin(2*PI*220*t)+sin(2*PI*277*t))" 'Horn' -c:a pcm_s16be -write_id3v2 1
