"""The plot command draws a real recording into a PNG of the requested size."""
import os
import shutil
import struct
import subprocess
import sys

import numpy as np
import pytest

from taviklimiter import audio_io, plot

PACKAGE_DIR = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def png_size(path):
    with open(path, "rb") as f:
        head = f.read(24)
    assert head[:8] == b"\x89PNG\r\n\x1a\n" and head[12:16] == b"IHDR"
    return struct.unpack(">II", head[16:24])


@pytest.mark.parametrize("args,size", [
    (["--drive", "9"], (1400, 900)),
    (["--drive", "12", "--format", "q5p27", "--size", "1000x600"], (1000, 600)),
    (["--format", "q33p31", "--size", "800x500"], (800, 500)),
])
def test_command_writes_png_of_expected_size(recording, tmp_path, args, size):
    out = tmp_path / "picture.png"
    env = dict(os.environ, PYTHONPATH=PACKAGE_DIR + os.pathsep + os.environ.get("PYTHONPATH", ""))
    run = subprocess.run([sys.executable, "-m", "taviklimiter.plot", recording, "-o", str(out)]
                         + args, env=env, capture_output=True, text=True, timeout=120)
    assert run.returncode == 0, run.stderr
    assert png_size(out) == size
    assert out.stat().st_size > 20000  # a drawn picture, not an empty canvas


def test_analysis_of_the_recording(recording):
    x, rate = audio_io.read_wav(recording)
    assert rate == 48000 and x.shape[1] == 1
    r = plot.analyse(x, rate, drive_db=9.0)
    peak_in, peak_out = np.max(np.abs(r["input"])), np.max(np.abs(r["output"]))
    assert peak_in > 1.2 and 0.99 < peak_out <= 32730 / 32768
    assert r["gain"].min() < 32768 * 10 ** (-2 / 20)  # more than 2 dB of reduction
    # Where the input is loud enough to measure, output / input is the gain trace.
    loud = np.abs(r["input"][:, 0]) > 0.05
    ratio = r["output"][loud, 0] / r["input"][loud, 0]
    np.testing.assert_allclose(ratio, r["gain"][loud] / 32768.0, atol=1e-5)


def test_bad_size_is_refused(recording, tmp_path):
    with pytest.raises(SystemExit):
        plot.main([recording, "-o", str(tmp_path / "x.png"), "--size", "big"])


@pytest.mark.skipif(not shutil.which("ffmpeg"), reason="ffmpeg is not installed")
def test_ffmpeg_path_reads_what_wave_reads(recording, tmp_path):
    # A 24-bit WAV from ffmpeg has an extensible header that wave refuses.
    converted = tmp_path / "x24.wav"
    subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-i", recording, "-c:a", "pcm_s24le",
                    str(converted)], check=True)
    with pytest.raises(Exception):
        audio_io.read_wav(str(converted))
    a, rate_a = audio_io.read_wav(recording)
    b, rate_b = audio_io.read_audio(str(converted))
    assert rate_a == rate_b
    np.testing.assert_array_equal(a, b)


def test_wave_reader_handles_24_bit(tmp_path):
    import wave
    v = np.array([0, 1, -1, (1 << 23) - 1, -(1 << 23)], np.int64)
    raw = b"".join(int(s & 0xFFFFFF).to_bytes(3, "little") for s in v)
    path = tmp_path / "t.wav"
    with wave.open(str(path), "wb") as w:
        w.setnchannels(1), w.setsampwidth(3), w.setframerate(8000), w.writeframes(raw)
    x, rate = audio_io.read_wav(str(path))
    assert rate == 8000 and (x[:, 0] * 2 ** 23).tolist() == v.tolist()
