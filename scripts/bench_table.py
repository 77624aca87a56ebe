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


def table(keys, groups, columns, rows, cell):
    """One row per key of rows (a dict of dicts: key -> group -> result), one
    column group per group, each cell cell(result) or "-" where none."""
    print("| " + " | ".join(keys) + " | " + " | ".join(f"{g}: {columns}" for g in groups) + " |")
    print("|" + "---|" * (len(keys) + len(groups)))
    for key, by_group in rows.items():
        cells = ["-" if by_group.get(g) is None else cell(by_group[g]) for g in groups]
        print("| " + " | ".join(str(k) for k in key) + " | " + " | ".join(cells) + " |")


def streaming_table(runs):
    skipped = {r["error_message"] for r in runs if r.get("error_occurred")}
    for message in sorted(skipped):
        print(f"streaming: skipped: {message}")
    rows = {}
    for r in runs:
        if not r.get("error_occurred"):
            fmt, _, period, signal, caches = r["label"].split()
            rows.setdefault((int(period), fmt, signal), {})[caches] = r
    if rows:
        table(["period", "format", "signal"], CACHES, "ns/sample, x memcpy (best; median), memcpy GB/s", rows,
              lambda r: f"{r['ns_per_sample']:.3f}, **{r['x_memcpy']:.2f}x**; {r['x_memcpy_median']:.2f}x, "
                        f"{r['memcpy_GBps']:.1f}")


def main():
    runs = json.load(open(sys.argv[1]))["benchmarks"]
    if runs and runs[0]["name"].startswith("BM_Streaming"):
        streaming_table(runs)
        return
    rows = {}
    for r in runs:
        fmt, ch, period, signal = r["label"].split()
        rows.setdefault((fmt, ch, int(period)), {})[signal] = r
    table(["format", "channels", "period"], SIGNALS, "ns/sample, x memcpy, scalar x memcpy, call us p99.9 / max", rows,
          lambda r: f"{r['ns_per_sample']:.3f}, **{r['x_memcpy']:.1f}x**, {r['scalar_x_memcpy']:.1f}x, "
                    f"{r['p999_call_us']:.1f} / {r['max_call_us']:.0f}")


if __name__ == "__main__":
    main()
