"""--bypass: switching on the block grid, the faded switch, the unchanged
stretch, and integer output that saturates instead of wrapping."""

import json

import numpy as np
import pytest

from conftest import BLOCK, CEILING, music_like, read_audio, run_ok, write_audio

RATE = 48000
B, E = 9600, 24000  # 0.2 s and 0.5 s at 48 kHz, both on the block grid


@pytest.fixture
def loud_float_file(tmp_path):
    path = tmp_path / "loud.wav"
    write_audio(path, music_like(0.7, RATE, 2, peak=3.8), RATE, "float")  # +11.6 dBFS
    return path


def test_faded_switch_then_the_input_unchanged(tmp_path, loud_float_file):
    dst, log = tmp_path / "out.wav", tmp_path / "gain.csv"
    run_ok(loud_float_file, dst, "--bypass", "0.2-0.5", "--gain-log", log, "-q")
    x = read_audio(loud_float_file, as_float32=True).samples
    y = read_audio(dst, as_float32=True).samples

    # From one block after the switch to one block before the way back, the
    # float samples pass untouched, peaks over full scale included.
    assert np.array_equal(y[B + BLOCK:E - BLOCK].view(np.uint32), x[B + BLOCK:E - BLOCK].view(np.uint32))
    assert np.max(np.abs(y[B + BLOCK:E - BLOCK])) > 1.5
    # Limited everywhere else, the last limited block included.
    assert np.max(np.abs(y[:B])) <= CEILING
    assert np.max(np.abs(y[E:])) <= CEILING

    # The block at the switch fades from the limiter's gain g1 to unity along
    # the ramp: frame i at g1 + ((512 i (32767 - g1)) >> 15), applied to a
    # float as (x * g) * 2^-15.
    fade_x, fade_y = x[B:B + BLOCK], y[B:B + BLOCK]
    c = int(np.argmax(np.abs(fade_x[0])))
    g1 = int(round(float(fade_y[0, c]) / float(fade_x[0, c]) * 32768))
    assert g1 < 0.6 * 32768
    g = g1 + ((512 * np.arange(BLOCK) * (32767 - g1)) >> 15)
    expected = (fade_x * g.astype(np.float32)[:, None]) * np.float32(2.0 ** -15)
    assert np.array_equal(fade_y.view(np.uint32), expected.astype(np.float32).view(np.uint32))

    gains = np.loadtxt(log, delimiter=",", skiprows=1)[:, 1]
    assert gains[B // BLOCK] < -1.0
    assert np.all(gains[B // BLOCK + 1:E // BLOCK - 1] == 0.0)
    assert np.all(gains[B // BLOCK - 20:B // BLOCK] < 0.0)


def test_schedule_is_the_same_whatever_the_period(tmp_path, loud_float_file):
    outputs = []
    for period, ranges in ((480, "0.2-0.5"), (100, "0.2-0.5"), (1000, "0.2-0.5"),
                           (480, "0.2004-0.4996")):  # rounds to the same blocks
        dst = tmp_path / f"out{period}.wav"
        run_ok(loud_float_file, dst, "--period", period, "--bypass", ranges, "-q")
        outputs.append(read_audio(dst, as_float32=True).samples.view(np.uint32))
    for out in outputs[1:]:
        assert np.array_equal(out, outputs[0])


# --bypass value, ranges as applied (seconds)
SCHEDULES = [
    ("0.05-0.1,0.3-0.35", [[2432 / RATE, 4800 / RATE], [14400 / RATE, 16768 / RATE]]),
    ("0.1-0.2,0.2-0.3", [[0.1, 0.3]]),                      # ranges that meet merge
    ("0.1-0.1001", [[0.1, (4800 + BLOCK) / RATE]]),         # widened to one block
    ("0-0.05", [[0.0, 2432 / RATE]]),                       # from the very start
]


@pytest.mark.parametrize("ranges,applied", SCHEDULES)
def test_schedule_as_applied(tmp_path, loud_float_file, ranges, applied):
    dst, report = tmp_path / "out.wav", tmp_path / "r.json"
    run_ok(loud_float_file, dst, "--bypass", ranges, "--json", report, "-q")
    figures = json.loads(report.read_text())
    assert len(figures["bypass_s"]) == len(applied)
    assert np.allclose(figures["bypass_s"], applied, rtol=0, atol=1e-9)
    x = read_audio(loud_float_file, as_float32=True).samples
    y = read_audio(dst, as_float32=True).samples
    for start, end in applied:
        a, b = round(start * RATE), round(end * RATE)
        inner = slice(a + BLOCK, b - BLOCK)
        assert np.array_equal(y[inner].view(np.uint32), x[inner].view(np.uint32))


@pytest.mark.parametrize("fmt", ["float32", "q5.27", "q33.31"])
def test_integer_output_saturates_in_bypass(tmp_path, fmt):
    src, dst, report = tmp_path / "in.wav", tmp_path / "out.wav", tmp_path / "r.json"
    write_audio(src, music_like(0.7, RATE, 2, peak=0.9), RATE, "pcm16")
    result = run_ok(src, dst, "--format", fmt, "--drive", 6, "--bypass", "0.2-0.5", "--json", report)
    x = read_audio(src).samples * 10 ** (6 / 20)
    y = read_audio(dst).samples

    # In bypass the driven samples pass in the library format; the 16-bit
    # output saturates them at full scale instead of wrapping.
    if fmt == "float32":
        lib = x.astype(np.float32).astype(np.float64)
    elif fmt == "q5.27":
        lib = np.rint(x * 2.0 ** 27) / 2.0 ** 27
    else:  # saturated to Q1.31 on the way in, since bypass passes 32 bits
        lib = np.clip(np.rint(x * 2.0 ** 31), -2.0 ** 31, 2.0 ** 31 - 1) / 2.0 ** 31
    words = np.rint(lib * 32768)
    inner = slice(B + BLOCK, E - BLOCK)
    assert np.array_equal(y[inner] * 32768, np.clip(words, -32768, 32767)[inner])

    over = int(np.sum(np.abs(words[inner] + 0.5) > 32768))
    assert over > 100
    clipped = json.loads(report.read_text())["clipped_output_samples"]
    assert over <= clipped <= over + 2 * BLOCK * 2  # and perhaps in the two fading blocks
    assert f"note: {clipped} output samples clipped to full scale" in result.stdout
    # Limited outside the bypass.
    assert np.max(np.abs(y[:B])) <= CEILING and np.max(np.abs(y[E:])) <= CEILING


def test_quiet_run_still_warns_about_clipping(tmp_path):
    src, dst = tmp_path / "in.wav", tmp_path / "out.wav"
    write_audio(src, music_like(0.7, RATE, 1, peak=0.9), RATE, "pcm24")
    result = run_ok(src, dst, "--drive", 6, "--bypass", "0.2-0.5", "-q")
    assert result.stdout == ""
    assert result.stderr.startswith("taviklimit: warning: ")
    assert "output samples clipped to full scale" in result.stderr
