#!/usr/bin/env bash
# Builds the benchmarks (RelWithDebInfo, the default x86-64 level) and runs
# them: taviklimiter_bench, Limiter_Process in every format, channel count,
# period and signal, beside memcpy and the scalar build in the same process;
# then taviklimiter_streaming_bench, 30 s of music streamed through
# Limiter_Process beside memcpy. Prints each benchmark's own output, then its
# table of docs/PERFORMANCE.md (from build/bench/results.json and
# build/bench/streaming.json).
#   bash scripts/bench.sh                         both, every case
#   bash scripts/bench.sh --benchmark_filter=X    the first only; options pass through
#   bash scripts/bench.sh --streaming [OPTIONS]   the streaming benchmark only
#   TAVIKLIMITER_X86_LEVEL=4 bash scripts/bench.sh    another x86-64 level (1..4, host)
# Take figures on a quiet machine (see uptime): the ratios are measured within
# one run, but a busy machine still makes them noisier.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

streaming_only=0
if [[ "${1:-}" == --streaming ]]; then
    streaming_only=1
    shift
fi

bash scripts/setup.sh
level=${TAVIKLIMITER_X86_LEVEL:-3}
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVIKLIMITER_BUILD_BENCH=ON \
      -DTAVIKLIMITER_X86_LEVEL="$level" \
      -DTAVIKLIMITER_BUILD_TESTS=OFF -DTAVIKLIMITER_BUILD_TOOLS=OFF -DTAVIKLIMITER_CHECK_EXPORTS=OFF >/dev/null
cmake --build build/bench -j2 --target taviklimiter_bench taviklimiter_streaming_bench
machine="$(lscpu | sed -n 's/^Model name: *//p' | head -1), x86-64 level: $level"
if ((!streaming_only)); then
    echo "machine: $machine, load: $(cut -d' ' -f1-3 /proc/loadavg)"
    build/bench/bench/taviklimiter_bench --benchmark_out=build/bench/results.json --benchmark_out_format=json "$@"
    python3 scripts/bench_table.py build/bench/results.json
fi
if ((streaming_only || $# == 0)); then
    echo "machine: $machine, load: $(cut -d' ' -f1-3 /proc/loadavg)"
    build/bench/bench/taviklimiter_streaming_bench --benchmark_out=build/bench/streaming.json \
        --benchmark_out_format=json "$@"
    python3 scripts/bench_table.py build/bench/streaming.json
fi
