#!/usr/bin/env python3
"""Writes the golden input files of tests/golden/ (run once; the files are committed).

One test signal, 84 blocks of 64 frames, written in each input format, mono
and stereo, as little-endian raw samples:

  blocks  0-3   quiet noise and a sine              (the gain stays at unity)
  blocks  4-6   noise peaking up to 1.25x full scale (attacks and releases)
  blocks  7-12  a square wave of +-2.0              (attack, then hold at 16364)
  blocks 13-36  a square wave of +-1.5              (whole-block releases, a partial
                                                     one to 21818, then hold)
  blocks 37-83  a quiet sine                        (whole-block releases, a partial
                                                     one to unity, then unity)

Usage: python3 make_inputs.py [output directory, default: this file's directory]
"""
import os
import sys

import numpy as np

BLOCK = 64
SEED = 20240604


def signal(rng, channel):
    """One channel of the test signal, as float64 in units of full scale."""
    t = np.arange(84 * BLOCK)
    x = np.zeros(t.size)
    phase = 0.7 * channel

    def span(first, last):
        return slice(first * BLOCK, (last + 1) * BLOCK)

    q = span(0, 3)
    x[q] = 0.3 * np.sin(2 * np.pi * 0.013 * t[q] + phase) + rng.uniform(-0.1, 0.1, t[q].size)
    h = span(4, 6)
    x[h] = rng.uniform(-1.0, 1.0, t[h].size) * rng.uniform(0.2, 1.25, t[h].size)
    sign = np.where((t // 23) % 2 == 0, 1.0, -1.0) * (1 if channel == 0 else -1)
    x[span(7, 12)] = 2.0 * sign[span(7, 12)]
    x[span(13, 36)] = 1.5 * sign[span(13, 36)]
    tail = span(37, 83)
    x[tail] = 0.5 * np.sin(2 * np.pi * 0.005 * t[tail] + phase)
    return x


def encode(x, fmt):
    if fmt == "q33p31":
        return np.round(x * 2.0**31).astype("<i8")
    if fmt == "float32":
        return x.astype("<f4")
    return np.round(x * 2.0**27).astype("<i4")  # q5p27


def main():
    out_dir = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))
    rng = np.random.default_rng(SEED)
    left, right = signal(rng, 0), signal(rng, 1)
    for fmt in ("q33p31", "float32", "q5p27"):
        for name, channels in (("mono", [left]), ("stereo", [left, right])):
            frames = np.stack([encode(c, fmt) for c in channels], axis=1)  # interleaved
            path = os.path.join(out_dir, f"{fmt}_{name}.raw")
            frames.tofile(path)
            print(f"{path}: {frames.nbytes} bytes")


if __name__ == "__main__":
    main()
