"""Refusals a user meets (one line naming the problem, the documented status, nothing left
behind), and an interrupted run."""

import os
import signal
import subprocess
import time

import pytest

from conftest import TOOL, music_like, run_tool, write

USAGE, FILE = 2, 1
# arguments (files relative to the test directory), status, words in the message
CASES = [
    (["nosuch.wav", "out.wav"], FILE, "cannot open 'nosuch.wav'"),
    (["notes.wav", "out.wav"], FILE, "cannot read 'notes.wav' as audio"),
    (["three.wav", "out.wav"], FILE, "has 3 channels"),
    (["in.wav", "./link.wav"], USAGE, "is the input"),
    (["in.wav", "out.wav", "--json", "hard.wav"], USAGE, "is the input"),
    (["in.wav", "out.flac", "--subtype", "float"], USAGE, "FLAC output cannot hold it"),
    (["in.wav", "out.wav", "--raw-input", "48000,3,pcm16"], USAGE, "--raw-input: expected"),
    (["in.wav", "nodir/out.wav"], FILE, "cannot create a file in 'nodir'"),
]


@pytest.mark.parametrize("args,status,words", CASES, ids=[c[2] for c in CASES])
def test_refusal(tmp_path, args, status, words):
    for name, channels in (("in.wav", 2), ("three.wav", 3)):
        write(tmp_path / name, music_like(0.2, 48000, channels, peak=0.1), 48000, "pcm16")
    (tmp_path / "notes.wav").write_text("not a sound file\n")
    (tmp_path / "link.wav").symlink_to("in.wav")
    os.link(tmp_path / "in.wav", tmp_path / "hard.wav")
    before = sorted(tmp_path.iterdir())
    result = run_tool(*args, cwd=tmp_path)
    assert (result.returncode, result.stdout) == (status, "") and words in result.stderr
    assert result.stderr.startswith("taviklimit: ") and result.stderr.count("\n") == 1
    assert sorted(tmp_path.iterdir()) == before


def test_interrupted_run_leaves_nothing(tmp_path):
    # 20 s fed one frame per call: time to interrupt it while the output is open.
    write(tmp_path / "long.wav", music_like(20, 48000, 2, peak=0.1), 48000, "float")
    proc = subprocess.Popen([TOOL, "long.wav", "out.wav", "--period", "1"], cwd=tmp_path)
    deadline = time.monotonic() + 10
    while len(list(tmp_path.iterdir())) == 1 and time.monotonic() < deadline:
        time.sleep(0.01)
    assert len(list(tmp_path.iterdir())) == 2, "no temporary output appeared"
    proc.send_signal(signal.SIGINT)
    assert proc.wait(timeout=10) == -signal.SIGINT and os.listdir(tmp_path) == ["long.wav"]
