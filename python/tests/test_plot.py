"""End to end on real recordings: the plot command, the analysis it draws, audio files."""
import os
import struct
import subprocess
import sys

import numpy as np
import pytest

import taviklimiter as tl
from conftest import assert_bound
from taviklimiter import audio_io, plot, true_peak


def test_command_draws_and_saves(recording, tmp_path):
    out, saved = tmp_path / "picture.png", tmp_path / "limited.flac"
    run = subprocess.run([sys.executable, "-m", "taviklimiter.plot", recording, "-o", str(out),
                          "--drive", "12", "--duration", "4", "--size", "900x500", "--true-peak",
                          "--save", str(saved)], capture_output=True, text=True, timeout=120,
                         env=dict(os.environ, PYTHONPATH=os.path.dirname(tl.__path__[0])))
    assert run.returncode == 0, run.stderr
    png = out.read_bytes()  # larger than an empty canvas
    assert png[:8] == b"\x89PNG\r\n\x1a\n" and struct.unpack(">II", png[16:24]) == (900, 500)
    assert len(png) > 20000
    y, rate = audio_io.read_audio(str(saved))  # the limited audio, 16-bit FLAC
    x, rate_in = audio_io.read_audio(recording, duration=4)
    assert rate == rate_in and y.shape == x.shape and 0.99 < np.abs(y).max() < 1


@pytest.mark.parametrize("fmt", ["q33p31", "float32", "q5p27"])
def test_analysis_of_a_recording_driven_into_the_limiter(recording, fmt):
    x, rate = audio_io.read_audio(recording, duration=3.0)
    r = plot.analyse(x, rate, drive_db=12.0, pcm_format=fmt, true_peak=True)
    enc = tl.encode(x * 10 ** (12 / 20), fmt)
    assert_bound(enc, tl.Limiter(x.shape[1], fmt).process_all(enc), fmt)
    assert r["gain"].min() < 32768 * 10 ** (-4 / 20)  # more than 4 dB of reduction
    loud = np.abs(r["input"]) > 0.05  # where output / input can be measured: the gain trace
    gain = np.broadcast_to(r["gain"][:, None], loud.shape)[loud] / 32768.0
    np.testing.assert_allclose(r["output"][loud] / r["input"][loud], gain, atol=1e-5)
    peaks, bins = r["true_peak"]
    assert np.all(peaks >= np.abs(r["output"]).max(axis=0)) and np.allclose(bins.max(0), peaks)


def test_true_peak_finds_the_peak_between_samples():
    n = np.arange(48000)  # a quarter of the sample rate, sampled 45 degrees off its peaks:
    x = np.stack([0.5 * np.sin(np.pi / 2 * n + np.pi / 4), 0.25 * np.sin(np.pi / 24 * n)], 1)
    np.testing.assert_allclose(true_peak.true_peak(x, 48000), [0.5, 0.25], rtol=0.02)  # not 0.354
