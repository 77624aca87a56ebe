#!/usr/bin/env python3
"""Prints the benchmark results (JSON from taviklimiter_bench) as the
Markdown table of docs/PERFORMANCE.md: one row per format, channels and
period, one column group per signal.

  bench_table.py build/bench/results.json
"""
import json
import sys

SIGNALS = ["silence", "quiet", "hot", "worst"]


def main():
    runs = json.load(open(sys.argv[1]))["benchmarks"]
    rows = {}
    for r in runs:
        fmt, ch, period, signal = r["label"].split()
        rows.setdefault((fmt, ch, int(period)), {})[signal] = r
    print("| format | channels | period | " + " | ".join(
        f"{s}: ns/sample, x memcpy, scalar x memcpy, call us p99.9 / max" for s in SIGNALS) + " |")
    print("|---|---|---|" + "---|" * len(SIGNALS))
    for (fmt, ch, period), by_signal in rows.items():
        cells = []
        for s in SIGNALS:
            r = by_signal.get(s)
            cells.append("-" if r is None else
                         f"{r['ns_per_sample']:.3f}, **{r['x_memcpy']:.1f}x**, {r['scalar_x_memcpy']:.1f}x, "
                         f"{r['p999_call_us']:.1f} / {r['max_call_us']:.0f}")
        print(f"| {fmt} | {ch} | {period} | " + " | ".join(cells) + " |")


if __name__ == "__main__":
    main()
