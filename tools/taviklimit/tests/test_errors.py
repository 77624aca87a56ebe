"""Every refusal: a one-line message naming the problem, the documented exit
status, and nothing left behind (no output, no temporary file, the input
untouched)."""

import os
import signal
import subprocess
import time

import numpy as np
import pytest

from conftest import TOOL, quiet_signal, run_tool, write_audio

USAGE, FILE = 2, 1

# name, arguments (files relative to the test directory), status, words in the message
CASES = [
    ("missing input", ["nosuch.wav", "out.wav"], FILE, "cannot open 'nosuch.wav'"),
    ("not audio", ["notes.wav", "out.wav"], FILE, "cannot read 'notes.wav' as audio"),
    ("directory input", ["adir", "out.wav"], FILE, "is a directory"),
    ("three channels", ["three.wav", "out.wav"], FILE, "has 3 channels"),
    ("output is input", ["in.wav", "in.wav"], USAGE, "is the input"),
    ("another spelling", ["in.wav", "./adir/../in.wav"], USAGE, "is the input"),
    ("symbolic link", ["in.wav", "link.wav"], USAGE, "is the input"),
    ("hard link", ["in.wav", "hard.wav"], USAGE, "is the input"),
    ("json onto input", ["in.wav", "out.wav", "--json", "in.wav"], USAGE, "is the input"),
    ("bad format", ["in.wav", "out.wav", "--format", "q1.15"], USAGE, "--format: expected"),
    ("bad drive", ["in.wav", "out.wav", "--drive", "loud"], USAGE, "--drive: expected"),
    ("drive too high", ["in.wav", "out.wav", "--drive=61"], USAGE, "--drive: expected"),
    ("period zero", ["in.wav", "out.wav", "--period", "0"], USAGE, "--period: expected"),
    ("period fraction", ["in.wav", "out.wav", "--period", "2.5"], USAGE, "--period: expected"),
    ("period too long", ["in.wav", "out.wav", "--period", "2000000"], USAGE, "--period: expected"),
    ("bypass reversed", ["in.wav", "out.wav", "--bypass", "0.2-0.1"], USAGE, "--bypass: expected"),
    ("bypass overlap", ["in.wav", "out.wav", "--bypass", "0-0.2,0.1-0.3"], USAGE, "--bypass"),
    ("bypass words", ["in.wav", "out.wav", "--bypass", "start-end"], USAGE, "--bypass"),
    ("bad subtype", ["in.wav", "out.wav", "--subtype", "pcm8"], USAGE, "--subtype: expected"),
    ("subtype the container lacks", ["in.wav", "out.flac", "--subtype", "float"], USAGE,
     "FLAC output cannot hold it"),
    ("unknown extension", ["in.wav", "out.xyz"], USAGE, "cannot tell the output format"),
    ("unknown option", ["in.wav", "out.wav", "--frobnicate"], USAGE, "unknown option '--frobnicate'"),
    ("missing output", ["in.wav"], USAGE, "missing OUTPUT"),
    ("missing value", ["in.wav", "out.wav", "--drive"], USAGE, "--drive: missing value"),
    ("extra operand", ["in.wav", "out.wav", "more.wav"], USAGE, "unexpected operand"),
    ("no output directory", ["in.wav", "nodir/out.wav"], FILE, "cannot create a file in 'nodir'"),
]


@pytest.fixture
def workdir(tmp_path):
    write_audio(tmp_path / "in.wav", quiet_signal(0.2, 48000, 2), 48000, "pcm16")
    write_audio(tmp_path / "three.wav", quiet_signal(0.2, 48000, 3), 48000, "pcm16")
    (tmp_path / "notes.wav").write_text("not a sound file\n")
    (tmp_path / "adir").mkdir()
    (tmp_path / "link.wav").symlink_to("in.wav")
    os.link(tmp_path / "in.wav", tmp_path / "hard.wav")
    return tmp_path


def listing(path):
    return sorted(str(p.relative_to(path)) for p in path.rglob("*"))


@pytest.mark.parametrize("name,args,status,words", CASES, ids=[c[0] for c in CASES])
def test_refusal(workdir, name, args, status, words):
    before = listing(workdir)
    original = (workdir / "in.wav").read_bytes()
    result = run_tool(*args, cwd=workdir)
    assert result.returncode == status, result.stderr
    assert result.stdout == ""
    lines = result.stderr.splitlines()
    assert len(lines) == 1 and lines[0].startswith("taviklimit: ") and words in lines[0], lines
    assert listing(workdir) == before
    assert (workdir / "in.wav").read_bytes() == original


def test_refusal_keeps_an_existing_output(workdir):
    (workdir / "out.wav").write_bytes(b"previous take")
    result = run_tool("in.wav", "out.wav", "--period", "-1", cwd=workdir)
    assert result.returncode == USAGE
    assert (workdir / "out.wav").read_bytes() == b"previous take"


def test_interrupted_run_leaves_nothing(tmp_path):
    # 20 s of stereo float fed one frame per call takes seconds: time to
    # interrupt it while the temporary output is open.
    write_audio(tmp_path / "long.wav", np.tile(quiet_signal(1.0, 48000, 2), (20, 1)), 48000, "float")
    before = listing(tmp_path)
    proc = subprocess.Popen([TOOL, "long.wav", "out.wav", "--period", "1"], cwd=tmp_path,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    deadline = time.monotonic() + 10
    while len(listing(tmp_path)) == len(before) and time.monotonic() < deadline:
        time.sleep(0.01)
    assert len(listing(tmp_path)) == len(before) + 1, "no temporary output appeared"
    time.sleep(0.1)
    proc.send_signal(signal.SIGINT)
    proc.communicate(timeout=10)
    assert proc.returncode == -signal.SIGINT
    assert listing(tmp_path) == before
