#!/usr/bin/env bash
# Sets up the machine, builds taviklimit (gcc configuration) and runs it on a
# real recording, music driven 12 dB into the limiter; prints its summary.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/setup.sh
cmake --preset gcc
cmake --build --preset gcc -j2 --target taviklimit

# frozen-bubble-data: music, Ogg Vorbis, stereo 44.1 kHz, 5 min 22 s
recording=/usr/share/games/frozen-bubble/snd/frozen-mainzik-1p.ogg
out=build/gcc/main
mkdir -p "$out"
echo
build/gcc/tools/taviklimit/taviklimit "$recording" "$out/frozen-mainzik-1p-limited.flac" --drive 12 \
    --json "$out/frozen-mainzik-1p-limited.json" --gain-log "$out/frozen-mainzik-1p-gain.csv"
echo
echo "written: $out/frozen-mainzik-1p-limited.flac, its figures (.json) and gain per block (-gain.csv)"
