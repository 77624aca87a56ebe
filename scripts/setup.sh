#!/usr/bin/env bash
# Installs what building and testing taviklimiter needs on Debian 12.
# Idempotent: asks dpkg which packages are missing and runs apt-get only
# for those, so a machine that has everything is done in a moment.
set -euo pipefail

PACKAGES=(
    # compilers, build tools, test and benchmark libraries
    build-essential
    cmake
    ninja-build
    clang
    lld
    libclang-rt-14-dev        # clang's sanitizer runtimes (only recommended by clang)
    libgtest-dev
    googletest                # GoogleTest sources, built for arm64 in the cross build
    libbenchmark-dev
    valgrind
    binutils                  # readelf for the export checks
    # arm64 cross build, tests run under qemu
    gcc-aarch64-linux-gnu
    g++-aarch64-linux-gnu
    libc6-dev-arm64-cross
    qemu-user
    # scripts and tools
    python3
    python3-numpy
    python3-matplotlib
    python3-pytest
    libsndfile1-dev
    libebur128-dev            # loudness and true peak (EBU R128) in taviklimit
    pkg-config
    man-db                    # man taviklimit, checked after an install
    python3-soundfile         # the Python package's audio files, through libsndfile
    python3-venv              # the Python package installed into a venv, offline
    python3-setuptools
    python3-wheel
    python3-pip
    ffmpeg
    lv2-dev
    lilv-utils
    sordi                     # sord_validate: checks the LV2 bundle's Turtle
    alsa-utils                # a speech recording: Front_Center.wav
    frozen-bubble-data        # music: Ogg Vorbis, stereo 44.1 kHz
    sndfile-programs
    sox                       # the README's pipe example
)

# One dpkg-query for all; a package dpkg has never heard of is not listed.
declare -A installed=()
while read -r package status; do
    [[ "$status" == installed ]] && installed[$package]=1
done < <(dpkg-query -W -f='${Package} ${db:Status-Status}\n' "${PACKAGES[@]}" 2>/dev/null || true)

missing=()
for package in "${PACKAGES[@]}"; do
    [[ -n "${installed[$package]:-}" ]] || missing+=("$package")
done

if ((${#missing[@]} == 0)); then
    echo "setup: all ${#PACKAGES[@]} packages present"
    exit 0
fi

if [[ $(id -u) -eq 0 ]]; then
    as_root=()
elif command -v sudo >/dev/null 2>&1; then
    as_root=(sudo)
else
    echo "setup: missing ${missing[*]}; run this script as root to install them" >&2
    exit 1
fi

echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update
"${as_root[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
