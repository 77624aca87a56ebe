#!/bin/sh
# differential.sh MUSIC RAW PROGRAM [ARG]...: decodes 30 s of MUSIC, driven +12 dB, to raw
# stereo float32 at RAW, then runs PROGRAM [ARG]... music=RAW where no decoder is (qemu).
set -eu
music=$1 raw=$2 && shift 2
ffmpeg -nostdin -v error -y -t 30 -i "$music" -af volume=12dB -ac 2 -ar 44100 -f f32le "$raw"
exec "$@" "music=$raw"
