"""Draws what the limiter does to a recording.

    python3 -m taviklimiter.plot INPUT [--drive DB] [--format FMT] [--true-peak] -o picture.png

One picture: for each channel the peak envelope of the input (after the drive)
and of the output, on a waveform scale labelled in dBFS, with the threshold
(2147418110/2^31, about -0.0003 dBFS: a sample above it is brought to the target
32730/32768, about -0.0101 dBFS; one at or below it may pass unreduced) and, with
--true-peak, the output's true peak per bin as libebur128 measures it (4x
oversampled below 96 kHz); below them the gain reduction in dB over time. Time is
in seconds; the output is drawn latency compensated, so input and output line up.
More than two channels: the first two are used.
"""
import argparse
import os
import sys

import numpy as np

from .audio_io import read_audio, write_audio
from .limiter import (FORMATS, LATENCY_FRAMES, Limiter, decode_output, encode, format_code,
                      gain_trace)

THRESHOLD = 2147418110 / 2 ** 31  # no sample leaves above it (about -0.0003 dBFS)
TARGET = 32730 / 32768            # where a sample above the threshold is brought
UNITY = 32768           # gain_trace's factor for a frame that passes unscaled
TARGET_BINS = 1500       # envelope resolution: roughly one bin per pixel column


def db(x, floor=-120.0):
    with np.errstate(divide="ignore"):
        return np.maximum(20 * np.log10(np.abs(x)), floor)


def analyse(x, rate, drive_db=0.0, pcm_format="float32", true_peak=False):
    """Runs the limiter over x (frames x channels float64) and returns what is drawn;
    true_peak: also the output's true peak, per channel and per envelope bin."""
    if x.ndim == 1:
        x = x.reshape(-1, 1)
    x = x[:, :2]
    code = format_code(pcm_format)
    driven = x * 10.0 ** (drive_db / 20.0)
    encoded = encode(driven, code)
    lim = Limiter(x.shape[1], code)
    out = decode_output(lim.process_all(encoded), code)
    out = out.reshape(len(x), -1)
    fed = decode_output(encoded, code)  # the input as the limiter got it
    gain = gain_trace(encoded, code)
    result = {"rate": rate, "input": fed.reshape(len(x), -1), "output": out, "gain": gain,
              "drive_db": drive_db, "format": code}
    if true_peak:
        from .true_peak import true_peak as measure
        result["true_peak"] = measure(out, rate, bin_size(len(x)))
    return result


def envelope(x, bin_frames):
    """Per bin of bin_frames frames: (min, max) of x (1-D), the last bin possibly short."""
    n = len(x)
    nb = -(-n // bin_frames)
    pad = np.full(nb * bin_frames, np.nan)
    pad[:n] = x
    pad = pad.reshape(nb, bin_frames)
    return np.nanmin(pad, axis=1), np.nanmax(pad, axis=1)


def bin_size(frames):
    """Frames per envelope bin: a multiple of the 64-frame block, about TARGET_BINS bins."""
    blocks = max(1, -(-frames // (LATENCY_FRAMES * TARGET_BINS)))
    return blocks * LATENCY_FRAMES


def render(result, path, title="", size=(1400, 900), dpi=100):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    from matplotlib.ticker import FixedLocator

    x, y, g, rate = result["input"], result["output"], result["gain"], result["rate"]
    frames, channels = x.shape
    bf = bin_size(frames)
    nb = -(-frames // bf)
    t = (np.arange(nb) * bf + bf / 2) / rate
    gr_db = 20 * np.log10(np.maximum(g, 1) / UNITY)
    gr_min = envelope(gr_db, bf)[0]

    peak_in = float(np.max(np.abs(x))) if x.size else 0.0
    peak_out = float(np.max(np.abs(y))) if y.size else 0.0
    limit = max(1.08, peak_in * 1.06)

    fig = plt.figure(figsize=(size[0] / dpi, size[1] / dpi), dpi=dpi)
    grid = fig.add_gridspec(channels + 1, 1, height_ratios=[3] * channels + [2], hspace=0.12)
    axes = [fig.add_subplot(grid[i]) for i in range(channels + 1)]
    for a in axes[1:]:
        a.sharex(axes[0])

    # Waveform scale labelled in dBFS: ticks at +-10^(dB/20).
    # Keep the levels that fit and stand at least a tenth of the scale apart.
    levels, last = [], limit
    gap = 0.1 * limit * max(1.0, 900 / size[1]) * channels ** 0.5
    for d in (30, 24, 20, 12, 6, 3, 0, -3, -6, -12, -20):
        v = 10 ** (d / 20)
        if v <= limit * 0.98 and last - v >= gap and v >= gap:
            levels.append(d)
            last = v
    ticks = sorted([-(10 ** (d / 20)) for d in levels] + [0.0] + [10 ** (d / 20) for d in levels])
    labels = [("\u2212\u221e" if v == 0 else f"{20 * np.log10(abs(v)):+.0f}".replace("+0", "0"))
              for v in ticks]

    names = ["left", "right"] if channels == 2 else ["mono"]
    for ch in range(channels):
        a = axes[ch]
        lo, hi = envelope(x[:, ch], bf)
        a.fill_between(t, lo, hi, step="mid", color="#f4a259", alpha=0.55, linewidth=0,
                       label=f"input (drive {result['drive_db']:+.1f} dB)")
        lo, hi = envelope(y[:, ch], bf)
        a.fill_between(t, lo, hi, step="mid", color="#1d4e89", alpha=0.9, linewidth=0,
                       label="output")
        for s in (1, -1):
            a.axhline(s * THRESHOLD, color="#c0392b", linestyle="--", linewidth=1.0,
                      label=f"threshold {db(THRESHOLD):.4f} dBFS (peaks above it: "
                            f"32730/32768, {db(TARGET):.4f} dBFS)" if s == 1 else None)
        note = ""
        if "true_peak" in result:
            tp = result["true_peak"][1][:, ch]
            for s in (1, -1):
                a.step(t, s * tp, where="mid", color="#8e44ad", linewidth=0.8,
                       label="output true peak (libebur128, oversampled)" if s == 1 else None)
            note = f", true peak out {db(result['true_peak'][0][ch]):+.2f} dBTP"
        a.set_ylim(-limit, limit)
        a.yaxis.set_major_locator(FixedLocator(ticks))
        a.set_yticklabels(labels)
        a.set_ylabel(f"{names[ch]}  (dBFS)")
        a.grid(True, axis="y", color="#dddddd", linewidth=0.6)
        a.tick_params(labelbottom=False)
        a.set_xlim(0, frames / rate)
        a.text(0.995, 0.04, f"peak in {db(np.max(np.abs(x[:, ch]))):+.2f} dBFS, "
               f"out {db(np.max(np.abs(y[:, ch]))):+.2f} dBFS{note}",
               transform=a.transAxes, ha="right", va="bottom", fontsize=9,
               bbox=dict(facecolor="white", edgecolor="none", alpha=0.8))
    axes[0].legend(loc="upper right", fontsize=9, ncol=2, framealpha=0.9)

    a = axes[-1]
    a.fill_between(t, gr_min, 0, step="mid", color="#2a9d8f", alpha=0.85, linewidth=0)
    a.plot(t, gr_min, drawstyle="steps-mid", color="#1b6f65", linewidth=0.8)
    worst = float(np.min(gr_db)) if gr_db.size else 0.0
    a.set_ylim(min(-1.0, worst * 1.15), 0.3)
    a.set_ylabel("gain reduction (dB)")
    a.set_xlabel("time (s)")
    a.grid(True, color="#dddddd", linewidth=0.6)
    a.text(0.995, 0.06, f"max reduction {-worst:.2f} dB, "
           f"{np.mean(g < UNITY) * 100:.1f}% of the time reduced",
           transform=a.transAxes, ha="right", va="bottom", fontsize=9,
           bbox=dict(facecolor="white", edgecolor="none", alpha=0.8))

    fmt_name = {v: k for k, v in FORMATS.items()}.get(result["format"], "?")
    fig.suptitle(f"{title}   [{fmt_name}, {channels} ch, {rate} Hz; peak envelope per "
                 f"{bf} frames; latency {LATENCY_FRAMES} frames compensated]\n"
                 f"input peak {db(peak_in):+.2f} dBFS  ->  output peak {db(peak_out):+.2f} dBFS",
                 fontsize=11)
    fig.subplots_adjust(left=0.07, right=0.985, top=0.91, bottom=0.07)
    fig.savefig(path, dpi=dpi)
    plt.close(fig)


def parse_size(text):
    try:
        w, h = (int(v) for v in text.lower().split("x"))
    except ValueError:
        raise argparse.ArgumentTypeError(f"size must look like 1400x900, not {text!r}")
    if w < 200 or h < 200:
        raise argparse.ArgumentTypeError("size: at least 200x200 pixels")
    return w, h


def main(argv=None):
    p = argparse.ArgumentParser(prog="python3 -m taviklimiter.plot",
                                description="Plot the input, output and gain reduction of the "
                                            "limiter for an audio file.")
    p.add_argument("input", help="an audio file libsndfile reads (WAV, FLAC, Ogg, AIFF, ...)")
    p.add_argument("-o", "--output", required=True, help="PNG file to write")
    p.add_argument("--drive", type=float, default=0.0, metavar="DB",
                   help="gain in dB applied before the limiter (default 0)")
    p.add_argument("--format", default="float32", choices=sorted(FORMATS),
                   help="sample format the limiter runs in (default float32)")
    p.add_argument("--size", type=parse_size, default=(1400, 900), metavar="WxH",
                   help="picture size in pixels (default 1400x900)")
    p.add_argument("--true-peak", action="store_true",
                   help="also draw the output's true peak, measured with libebur128")
    p.add_argument("--start", type=float, default=0.0, metavar="S",
                   help="seconds of the input to skip (default 0)")
    p.add_argument("--duration", type=float, default=None, metavar="S",
                   help="seconds of the input to use (default: to the end)")
    p.add_argument("--save", metavar="FILE",
                   help="also write the limited audio (latency compensated) to FILE, in the "
                        "format its name gives")
    args = p.parse_args(argv)

    x, rate = read_audio(args.input, args.start, args.duration)
    if x.shape[1] > 2:
        print(f"{args.input}: {x.shape[1]} channels, plotting the first two", file=sys.stderr)
    result = analyse(x, rate, args.drive, args.format, args.true_peak)
    render(result, args.output, title=os.path.basename(args.input), size=args.size)
    if args.save:
        write_audio(args.save, result["output"], rate)
    g = result["gain"]
    worst = max(0.0, -20 * np.log10(max(int(g.min()), 1) / UNITY)) if g.size else 0.0
    print(f"{args.output}: {len(x)} frames, max gain reduction {worst:.2f} dB")
    return 0


if __name__ == "__main__":
    sys.exit(main())
