#!/usr/bin/env python3
"""Prints the benchmark results as the Markdown tables of docs/PERFORMANCE.md.
From taviklimiter_bench: one row per format, channels and period, one
column group per signal. From taviklimiter_streaming_bench: one row per
period, format and signal, one column group per state of the caches.

  bench_table.py build/bench/results.json
  bench_table.py build/bench/streaming.json
"""
import json
import sys

SIGNALS = ["silence", "quiet", "hot", "worst"]
CACHES = ["evicted", "left"]


def streaming_table(runs):
    skipped = {r["error_message"] for r in runs if r.get("error_occurred")}
    for message in sorted(skipped):
        print(f"streaming: skipped: {message}")
    rows = {}
    for r in runs:
        if not r.get("error_occurred"):
            fmt, _, period, signal, caches = r["label"].split()
            rows.setdefault((int(period), fmt, signal), {})[caches] = r
    if not rows:
        return
    print("| period | format | signal | " + " | ".join(
        f"{c}: ns/sample, x memcpy, memcpy GB/s" for c in CACHES) + " |")
    print("|---|---|---|" + "---|" * len(CACHES))
    for (period, fmt, signal), by_caches in rows.items():
        cells = []
        for c in CACHES:
            r = by_caches.get(c)
            cells.append("-" if r is None else
                         f"{r['ns_per_sample']:.3f}, **{r['x_memcpy']:.2f}x**, {r['memcpy_GBps']:.1f}")
        print(f"| {period} | {fmt} | {signal} | " + " | ".join(cells) + " |")


def main():
    runs = json.load(open(sys.argv[1]))["benchmarks"]
    if runs and runs[0]["name"].startswith("BM_Streaming"):
        streaming_table(runs)
        return
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
