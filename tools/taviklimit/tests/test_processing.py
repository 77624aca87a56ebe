"""End-to-end processing: containers, encodings, channel counts and rates;
the ceiling, length and alignment; unchanged quiet audio; period splits;
latency; the gain figures."""

import csv
import json
import pathlib

import numpy as np
import pytest

from conftest import (BLOCK, CEILING, quiet_signal, music_like, read_audio, run_ok, run_tool,
                      write_audio)

FORMATS = ["float32", "q5.27", "q33.31"]

# container, subtype, channels, rate
FILES = [
    ("wav", "pcm16", 1, 48000),
    ("wav", "pcm24", 2, 44100),
    ("wav", "pcm32", 2, 48000),
    ("wav", "float", 1, 44100),
    ("flac", "pcm16", 2, 44100),
    ("flac", "pcm24", 1, 48000),
    ("aiff", "pcm24", 2, 48000),
]


def through_the_tool(x, fmt, subtype):
    """x as the tool passes it at unity gain: rounded to the library format,
    then to the output subtype (to nearest, ties to even, both times)."""
    if fmt == "float32":
        # The library widens a float by (double)x * 2^31 + 0.5 truncated
        # toward zero and answers with the nearest float of the Q1.31 word.
        words = np.trunc(x.astype(np.float32).astype(np.float64) * 2.0 ** 31 + 0.5)
        y = words.astype(np.float32).astype(np.float64) * 2.0 ** -31
    else:
        scale = 2.0 ** (27 if fmt == "q5.27" else 31)
        y = np.rint(x * scale) / scale
    if subtype == "float":
        return y.astype(np.float32).astype(np.float64)
    scale = 2.0 ** ({"pcm16": 16, "pcm24": 24, "pcm32": 32}[subtype] - 1)
    return np.rint(y * scale) / scale


@pytest.mark.parametrize("fmt", FORMATS)
@pytest.mark.parametrize("container,subtype,channels,rate", FILES)
def test_limits_every_file_kind(tmp_path, container, subtype, channels, rate, fmt):
    src = tmp_path / f"in.{container}"
    dst = tmp_path / f"out.{container}"
    write_audio(src, music_like(0.5, rate, channels, peak=0.9), rate, subtype)
    run_ok(src, dst, "--format", fmt, "--drive", 9, "-q")
    a, b = read_audio(src), read_audio(dst)
    assert (b.frames, b.channels, b.rate, b.sf_format) == (a.frames, a.channels, a.rate, a.sf_format)
    peak = np.max(np.abs(b.samples))
    assert peak <= CEILING
    assert peak > CEILING * 0.99, "driven 8 dB over full scale, the output should reach the ceiling"
    # The quiet opening (0.1 s, unity gain up to the block before the first
    # loud one) comes out as the driven input, at the same place.
    n = int(0.1 * rate) - 2 * BLOCK
    expected = through_the_tool(a.samples[:n] * 10 ** (9 / 20), fmt, subtype)
    assert np.array_equal(b.samples[:n], expected)


# subtype, format: quiet integer audio with no drive passes bit for bit
IDENTITY = [("pcm16", "float32"), ("pcm24", "float32"), ("pcm16", "q5.27"), ("pcm24", "q5.27"),
            ("pcm16", "q33.31"), ("pcm24", "q33.31"), ("pcm32", "q33.31")]


@pytest.mark.parametrize("channels", [1, 2])
@pytest.mark.parametrize("subtype,fmt", IDENTITY)
def test_quiet_audio_passes_bit_for_bit(tmp_path, subtype, fmt, channels):
    src, dst = tmp_path / "in.wav", tmp_path / "out.wav"
    write_audio(src, quiet_signal(0.3, 48000, channels), 48000, subtype)
    run_ok(src, dst, "--format", fmt, "--drive", 0, "-q")
    a, b = read_audio(src), read_audio(dst)
    assert b.sf_format == a.sf_format
    assert np.array_equal(a.samples, b.samples)


@pytest.mark.parametrize("channels", [1, 2])
def test_quiet_float_file_passes_as_the_library_converts(tmp_path, channels):
    """At unity gain the float32 path gives back the nearest float of the
    Q1.31 word the library widened the sample to. That is the sample itself
    from 2^-6 (-36 dBFS) up. Below, a negative sample's word is 1 too high
    (the rounding adds 0.5 and truncates toward zero), which the float
    answer keeps or rounds to the neighbouring float (a tie, to even), and
    anything under 2^-8 lands on the Q1.31 grid: never more than 2^-30
    (-181 dBFS) away."""
    src, dst = tmp_path / "in.wav", tmp_path / "out.wav"
    write_audio(src, quiet_signal(0.3, 48000, channels), 48000, "float")
    run_ok(src, dst, "--format", "float32", "--drive", 0, "-q")
    a, b = read_audio(src, as_float32=True), read_audio(dst, as_float32=True)
    assert b.sf_format == a.sf_format
    expected = through_the_tool(a.samples.astype(np.float64), "float32", "float").astype(np.float32)
    assert np.array_equal(b.samples.view(np.uint32), expected.view(np.uint32))
    large = np.abs(a.samples) >= 2.0 ** -6
    assert large.mean() > 0.8
    assert np.array_equal(b.samples[large].view(np.uint32), a.samples[large].view(np.uint32))
    assert np.max(np.abs(b.samples.astype(np.float64) - a.samples)) <= 2.0 ** -30


@pytest.mark.parametrize("fmt", FORMATS)
def test_output_does_not_depend_on_the_period(tmp_path, fmt):
    src = tmp_path / "in.wav"
    write_audio(src, music_like(0.25, 44100, 2, peak=0.95), 44100, "float")
    outputs = []
    for period in (1, 63, 64, 65, 480, 4096):
        dst = tmp_path / f"out{period}.wav"
        run_ok(src, dst, "--format", fmt, "--drive", 6, "--period", period, "-q")
        outputs.append(read_audio(dst, as_float32=True).samples.view(np.uint32))
    for out in outputs[1:]:
        assert np.array_equal(out, outputs[0])


def test_keep_latency_delays_by_one_block(tmp_path):
    src = tmp_path / "in.flac"
    write_audio(src, music_like(0.3, 48000, 2, peak=0.9), 48000, "pcm24")
    run_ok(src, tmp_path / "aligned.flac", "--drive", 6, "-q")
    run_ok(src, tmp_path / "kept.flac", "--drive", 6, "--keep-latency", "-q")
    a = read_audio(src)
    aligned, kept = read_audio(tmp_path / "aligned.flac"), read_audio(tmp_path / "kept.flac")
    assert aligned.frames == a.frames and kept.frames == a.frames + BLOCK
    assert not kept.samples[:BLOCK].any()
    assert np.array_equal(kept.samples[BLOCK:], aligned.samples)


def test_gain_figures_match_the_audio(tmp_path):
    rate = 48000
    t = np.arange(int(0.4 * rate)) / rate
    # A sine at +6 dBFS between two quiet stretches (a float file holds it).
    level = np.where((t > 0.1) & (t < 0.3), 2.0, 0.1)
    src = tmp_path / "in.wav"
    write_audio(src, level * np.sin(2 * np.pi * 500 * t), rate, "float")
    dst, report, log = tmp_path / "out.wav", tmp_path / "r.json", tmp_path / "gain.csv"
    run_ok(src, dst, "--json", report, "--gain-log", log, "-q")

    figures = json.loads(report.read_text())
    a, b = read_audio(src).samples[:, 0], read_audio(dst).samples[:, 0]
    assert figures["frames"] == figures["frames_written"] == a.size
    assert figures["output_peak_dbfs"] == pytest.approx(20 * np.log10(np.max(np.abs(b))), abs=1e-4)
    assert figures["input_peak_dbfs"] == pytest.approx(20 * np.log10(2.0), abs=1e-3)
    # Steady +6 dBFS comes down to the ceiling.
    assert figures["largest_gain_reduction_db"] == pytest.approx(20 * np.log10(2 / CEILING), abs=0.01)

    with open(log) as f:
        rows = [(float(r["time_s"]), float(r["gain_db"])) for r in csv.DictReader(f)]
    assert len(rows) == figures["blocks"] == -(-a.size // BLOCK)
    limited = sum(1 for _, g in rows if g < 0)
    assert limited == figures["blocks_limited"]
    # 0.2 s loud, then the release: 4 per frame from about 16384 to 32767
    # takes about 4096 frames.
    assert 0.70 < figures["blocks_limited_share"] < 0.73
    for k, (time_s, gain) in enumerate(rows):
        assert time_s == pytest.approx(k * BLOCK / rate, abs=1e-6)
        x, y = a[k * BLOCK:(k + 1) * BLOCK], b[k * BLOCK:(k + 1) * BLOCK]
        loud = np.abs(x) > 0.05
        ratio = y[loud] / x[loud]
        # Every frame goes at or above the block's lowest gain, and the
        # loudest frames of a block in the steady part sit at it.
        assert np.all(ratio >= 10 ** (gain / 20) - 2e-4), k
        if 0.12 < time_s < 0.28:
            assert np.min(ratio) == pytest.approx(10 ** (gain / 20), abs=2e-4)
        if time_s < 0.09 or time_s > 0.39:
            assert gain == 0.0, k


def test_real_recording(tmp_path):
    speech = pathlib.Path("/usr/share/sounds/alsa/Front_Center.wav")
    if not speech.exists():
        pytest.skip("alsa-utils' sounds are not installed")
    dst = tmp_path / "out.wav"
    result = run_ok(speech, dst, "--drive", 12)
    a, b = read_audio(speech), read_audio(dst)
    assert b.frames == a.frames and b.sf_format == a.sf_format
    assert np.max(np.abs(b.samples)) <= CEILING
    assert "output peak     -0.01 dBFS" in result.stdout
    assert "68545 in, 68545 out" in result.stdout


def test_output_container_and_subtype_choice(tmp_path):
    src = tmp_path / "in.wav"
    write_audio(src, quiet_signal(0.1, 44100, 1), 44100, "float")
    cases = [("out.flac", [], 0x170000 | 0x0003),            # float input -> 24-bit FLAC
             ("out.aiff", [], 0x020000 | 0x0006),            # AIFF keeps float
             ("out.wav", ["--subtype", "pcm16"], 0x010000 | 0x0002),
             ("out.wav", ["--subtype", "double"], 0x010000 | 0x0007)]
    for name, extra, expected in cases:
        run_ok(src, tmp_path / name, "-q", *extra)
        assert read_audio(tmp_path / name).sf_format == expected, name
    assert run_tool(src, tmp_path / "x.ogg", "-q").returncode == 0  # lossy output works too
