#!/usr/bin/env bash
# Sets up the machine, builds taviklimit (gcc configuration) and runs it on a
# real recording, driven 12 dB into the limiter; prints its summary.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/setup.sh
cmake --preset gcc
cmake --build --preset gcc -j2 --target taviklimit

recording=/usr/share/sounds/alsa/Front_Center.wav  # alsa-utils: speech, mono 48 kHz 16-bit
out=build/gcc/main
mkdir -p "$out"
echo
build/gcc/tools/taviklimit/taviklimit "$recording" "$out/Front_Center-limited.wav" --drive 12 \
    --json "$out/Front_Center-limited.json" --gain-log "$out/Front_Center-gain.csv"
echo
echo "written: $out/Front_Center-limited.wav, its figures (.json) and gain per block (-gain.csv)"
