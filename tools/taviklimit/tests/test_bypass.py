"""--bypass: the output keeps the bound everywhere but in the bypassed range
(whose last block, held at the switch back, is not examined), passes the
input there unchanged, and integer output saturates instead of wrapping."""

import numpy as np
import pytest

from conftest import BLOCK, STORED_BOUND, figures, music_like, read, run_ok, write

B, E = 9600, 24000  # 0.2 s and 0.5 s at 48 kHz, both on the block grid
INNER = slice(B + BLOCK, E - BLOCK)  # after the fade, before the held block


@pytest.mark.parametrize("period", [100, 480, 1000])
def test_bound_kept_outside_bypass(tmp_path, period):
    write(tmp_path / "in.wav", music_like(0.7, 48000, 2, peak=3.8).astype(np.float32), 48000,
          "float")  # peaks at +11.6 dBFS
    result = run_ok(tmp_path / "in.wav", tmp_path / "out.wav", "--bypass", "0.2004-0.4996",
                    "--period", period, "--json", tmp_path / "r.json")
    x, y = read(tmp_path / "in.wav", "float32"), read(tmp_path / "out.wav", "float32")
    assert np.max(np.abs(np.concatenate([y[:B], y[E:]]))) <= STORED_BOUND
    assert np.array_equal(y[INNER].view(np.uint32), x[INNER].view(np.uint32))
    above = int(np.sum(np.abs(y) > STORED_BOUND))
    assert above > 1000 and figures(tmp_path / "r.json")["output_samples_above_threshold"] == above
    assert f"note: {above} output samples above the threshold: bypass passes" in result.stdout


def test_integer_output_saturates_in_bypass(tmp_path):
    write(tmp_path / "in.wav", music_like(0.7, 48000, 2, peak=0.9), 48000, "pcm16")
    result = run_ok(tmp_path / "in.wav", tmp_path / "out.wav", "--drive", 6, "--bypass", "0.2-0.5",
                    "-q", "--json", tmp_path / "r.json")
    words = np.rint((read(tmp_path / "in.wav") * 10 ** (6 / 20)).astype(np.float32) * 32768.0)
    y = read(tmp_path / "out.wav", "int16")
    assert np.array_equal(y[INNER], np.clip(words, -32768, 32767)[INNER])
    clipped = figures(tmp_path / "r.json")["clipped_output_samples"]
    assert clipped >= np.sum(np.abs(words[INNER] + 0.5) > 32768) > 100
    assert result.stderr == f"taviklimit: warning: {clipped} output samples clipped to full scale\n"
