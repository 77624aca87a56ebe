"""Every file kind within the true bound, quiet audio bit for bit, period and latency; the
real recordings, whose loudness and true peak must agree with ffmpeg's EBU R128 meter."""

import re
import subprocess

import numpy as np
import pytest
import soundfile as sf

from conftest import (BLOCK, MUSIC, SPEECH, STORED_BOUND, TARGET, THRESHOLD, figures,
                      music_like, read, run_ok, write)


@pytest.mark.parametrize("ext,subtype,channels,rate,fmt", [
    ("wav", "pcm16", 1, 48000, "float32"), ("wav", "pcm24", 2, 44100, "q5.27"),
    ("wav", "pcm32", 2, 48000, "q33.31"), ("wav", "float", 1, 44100, "float32"),
    ("flac", "pcm16", 2, 44100, "q33.31"), ("aiff", "pcm24", 2, 48000, "q5.27")])
def test_limited_output_keeps_the_bound(tmp_path, ext, subtype, channels, rate, fmt):
    src, dst = tmp_path / f"in.{ext}", tmp_path / f"out.{ext}"
    write(src, music_like(0.5, rate, channels, peak=0.9), rate, subtype)
    run_ok(src, dst, "--format", fmt, "--drive", 9, "-q")
    x, y = read(src) * 10 ** (9 / 20), read(dst)
    assert y.shape == x.shape and sf.info(str(dst)).subtype == sf.info(str(src)).subtype
    assert np.max(np.abs(y)) <= STORED_BOUND
    assert np.max(np.abs(y[np.abs(x) > THRESHOLD * 1.0001])) <= TARGET  # peaks go to the target
    assert np.max(np.abs(y - x)[:int(0.1 * rate) - 2 * BLOCK]) < 2 ** -14  # quiet opening, unity


@pytest.mark.parametrize("subtype,fmt", [("pcm16", "float32"), ("pcm24", "q5.27"),
                                         ("pcm32", "q33.31")])
def test_quiet_audio_passes_bit_for_bit(tmp_path, subtype, fmt):
    write(tmp_path / "in.wav", music_like(0.3, 48000, 2, peak=0.1), 48000, subtype)
    run_ok(tmp_path / "in.wav", tmp_path / "out.wav", "--format", fmt, "-q")
    assert np.array_equal(read(tmp_path / "in.wav", "int32"), read(tmp_path / "out.wav", "int32"))


@pytest.mark.parametrize("fmt", ["float32", "q5.27", "q33.31"])
def test_period_changes_nothing_and_latency_one_block(tmp_path, fmt):
    write(tmp_path / "in.wav", music_like(0.25, 44100, 2, peak=0.95), 44100, "float")
    runs = [("--period", p) for p in (1, 63, 64, 65, 4096)] + [("--keep-latency",)]
    for k, args in enumerate(runs):
        run_ok(tmp_path / "in.wav", tmp_path / f"{k}.wav", "--format", fmt, "--drive", 6, *args,
               "-q")
    out = [read(tmp_path / f"{k}.wav", "float32").view(np.uint32) for k in range(len(runs))]
    assert all(np.array_equal(o, out[0]) for o in out[1:-1]) and len(out[0]) == 11025
    assert not out[-1][:BLOCK].any() and np.array_equal(out[-1][BLOCK:], out[0])


def test_speech_summary(tmp_path):
    text = run_ok(SPEECH, tmp_path / "out.wav", "--drive", 12).stdout
    assert "threshold       -0.0003 dBFS; peaks above it come down to -0.0101 dBFS" in text
    assert "68545 in, 68545 out" in text and not re.search(r"-0\.0+ |inf dB|nan", text)
    assert np.max(np.abs(read(tmp_path / "out.wav"))) <= STORED_BOUND


def ebur128(path, before=""):
    """ffmpeg's integrated loudness, loudness range and true peak (dBTP) after the last frame."""
    log = subprocess.run(["ffmpeg", "-nostats", "-i", str(path), "-af", before +
                          "ebur128=peak=true:metadata=1,ametadata=print", "-f", "null", "-"],
                         capture_output=True, text=True, check=True).stderr
    last = lambda key: float(re.findall(rf"lavfi\.r128\.{key}=(\S+)", log)[-1])
    return last("I"), last("LRA"), 20 * np.log10(last("true_peak"))


def test_music_loudness_agrees_with_ffmpeg(tmp_path):
    src, dst, report = tmp_path / "in.wav", tmp_path / "out.flac", tmp_path / "r.json"
    subprocess.run(["ffmpeg", "-v", "error", "-i", MUSIC, "-t", "30", src], check=True)
    with open(src, "rb") as stream:
        text = run_ok("-", dst, "--drive", 12, "--json", report, stdin=stream).stdout
    f = figures(report)
    assert f["frames"] == f["frames_written"] == 30 * 44100
    assert np.max(np.abs(read(dst))) <= STORED_BOUND
    for side, measured in (("output", ebur128(dst)), ("driven", ebur128(src, "volume=12dB,"))):
        assert np.allclose([f[f"{side}_loudness_lufs"], f[f"{side}_loudness_range_lu"],
                            f[f"{side}_true_peak_dbtp"]], measured, rtol=0, atol=0.1), side
    assert f["output_true_peak_dbtp"] > f["output_peak_dbfs"] > 20 * np.log10(TARGET) - 0.01
    assert f"{f['output_true_peak_over_sample_peak_db']:.2f} dB above the sample peak" in text
