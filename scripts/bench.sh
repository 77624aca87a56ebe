#!/usr/bin/env bash
# Builds the benchmark (RelWithDebInfo, the default x86-64 level) and runs it:
# Limiter_Process in every format, channel count, period and signal, beside
# memcpy and the scalar build in the same process. Prints the benchmark's own
# output, then the table of docs/PERFORMANCE.md (from build/bench/results.json).
#   bash scripts/bench.sh                         every case
#   bash scripts/bench.sh --benchmark_filter=X    benchmark options pass through
#   TAVIKLIMITER_X86_LEVEL=4 bash scripts/bench.sh    another x86-64 level (1..4, host)
# Take figures on a quiet machine (see uptime): the ratios are measured within
# one run, but a busy machine still makes them noisier.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/setup.sh
level=${TAVIKLIMITER_X86_LEVEL:-3}
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVIKLIMITER_BUILD_BENCH=ON \
      -DTAVIKLIMITER_X86_LEVEL="$level" \
      -DTAVIKLIMITER_BUILD_TESTS=OFF -DTAVIKLIMITER_BUILD_TOOLS=OFF -DTAVIKLIMITER_CHECK_EXPORTS=OFF >/dev/null
cmake --build build/bench -j2 --target taviklimiter_bench
echo "machine: $(lscpu | sed -n 's/^Model name: *//p' | head -1), x86-64 level: $level, load: $(cut -d' ' -f1-3 /proc/loadavg)"
build/bench/bench/taviklimiter_bench --benchmark_out=build/bench/results.json --benchmark_out_format=json "$@"
python3 scripts/bench_table.py build/bench/results.json
