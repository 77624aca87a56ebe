"""Damaged input is reported, not hidden: NaN and infinities are counted and kept out of the
figures; a file cut off in its data gives a warning, or an error with --strict."""

import re

import numpy as np
import pytest

from conftest import STORED_BOUND, THRESHOLD, figures, music_like, read, run_ok, run_tool, write

NAN_BITS = [0x7FC00000, 0xFFC00000, 0x7F800001, 0x7FBFFFFF, 0xFFFFFFFF]  # quiet, signalling
SPECIAL = np.concatenate([  # five NaN, two infinities, then finite edge values
    np.array(NAN_BITS, np.uint32).view(np.float32),
    np.array([np.inf, -np.inf, 1e-45, -1e-45, 0.0, -0.0, 1.0, -1.0, np.nextafter(1, 2), 16.0,
              -16.0, THRESHOLD, -THRESHOLD, np.nextafter(THRESHOLD, 2)], np.float32)])


@pytest.mark.parametrize("fmt", ["float32", "q5.27", "q33.31"])
def test_nan_and_infinities_are_counted(tmp_path, fmt):
    x = music_like(0.5, 48000, 2, peak=2.0).astype(np.float32)
    x.reshape(-1)[np.random.default_rng(7).choice(x.size, 3 * SPECIAL.size, replace=False)] = \
        np.tile(SPECIAL, 3)
    write(tmp_path / "in.wav", x, 48000, "float")
    result = run_ok(tmp_path / "in.wav", tmp_path / "o.wav", "--format", fmt,
                    "--json", tmp_path / "j")
    f, first = figures(tmp_path / "j"), np.flatnonzero(~np.isfinite(x))[0] // 2 / 48000
    assert (f["nan_input_samples"], f["infinite_input_samples"]) == (15, 6)
    assert f"warning: 15 NaN and 6 infinite input samples, the first at {first:.4f} s" \
        in result.stdout
    y = read(tmp_path / "o.wav")
    assert np.all(np.isfinite(y)) and np.max(np.abs(y)) <= STORED_BOUND
    assert np.all(np.isfinite([f["input_peak_dbfs"], f["output_loudness_lufs"],
                               f["driven_true_peak_dbtp"]]))
    assert not re.search(r"-0\.0+ |inf dB|nan |-inf dBFS", result.stdout)


def test_a_cut_off_file(tmp_path):
    write(tmp_path / "in.wav", music_like(0.5, 48000, 2, peak=0.5), 48000, "pcm16")
    (tmp_path / "cut.wav").write_bytes((tmp_path / "in.wav").read_bytes()[:48022])
    warning = "'cut.wav' is truncated: its header announces more audio than it holds; 11994 frames"
    assert "  warning: " + warning in run_ok("cut.wav", "out.wav", cwd=tmp_path).stdout
    assert len(read(tmp_path / "out.wav")) == 11994  # all it holds
    quiet = run_ok("cut.wav", "q.wav", "-q", cwd=tmp_path)
    assert quiet.stdout == "" and quiet.stderr == f"taviklimit: warning: {warning} read\n"
    strict = run_tool("cut.wav", "s.wav", "--strict", cwd=tmp_path)
    assert strict.returncode == 1 and warning in strict.stderr and not (tmp_path / "s.wav").exists()
