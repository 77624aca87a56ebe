#!/usr/bin/env bash
# Builds the library (gcc configuration) and runs the demo on a test signal.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/setup.sh
cmake --preset gcc
cmake --build --preset gcc -j2 --target taviklimiter_demo
build/gcc/tools/taviklimiter_demo
