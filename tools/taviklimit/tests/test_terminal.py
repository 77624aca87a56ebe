"""The progress bar (only on a terminal, only for inputs over five seconds,
never with -q), the summary, --help and --version."""

import os
import pty
import subprocess

import pytest

from conftest import TOOL, quiet_signal, run_ok, write_audio


def run_on_terminal(args, cwd):
    """Runs the tool with standard error on a pseudo-terminal; returns the
    status, standard output and what the terminal received."""
    master, slave = pty.openpty()
    proc = subprocess.Popen([TOOL, *map(str, args)], cwd=cwd, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=slave)
    os.close(slave)
    received = b""
    while True:
        try:
            chunk = os.read(master, 4096)
        except OSError:  # EIO once the tool has closed its side
            break
        if not chunk:
            break
        received += chunk
    stdout = proc.communicate(timeout=30)[0]
    os.close(master)
    return proc.returncode, stdout.decode(), received.decode()


# seconds of input, extra arguments, whether a progress bar is drawn
TERMINAL_CASES = [
    (6.0, [], True),
    (6.0, ["-q"], False),
    (2.0, [], False),
]


@pytest.mark.parametrize("seconds,extra,drawn", TERMINAL_CASES)
def test_progress_on_a_terminal(tmp_path, seconds, extra, drawn):
    write_audio(tmp_path / "in.wav", quiet_signal(seconds, 8000, 1), 8000, "pcm16")
    status, stdout, terminal = run_on_terminal(["in.wav", "out.wav", *extra], tmp_path)
    assert status == 0
    if drawn:
        assert "\r" in terminal and "100% [" + "#" * 40 + "]" in terminal
        assert "6.0 / 6.0 s" in terminal
    else:
        assert terminal == ""
    assert ("output peak" in stdout) == ("-q" not in extra)


def test_no_progress_without_a_terminal(tmp_path):
    write_audio(tmp_path / "in.wav", quiet_signal(6.0, 8000, 1), 8000, "pcm16")
    result = run_ok(tmp_path / "in.wav", tmp_path / "out.wav")
    assert result.stderr == ""
    for label in ("input peak", "output peak", "gain reduction", "blocks limited", "frames",
                  "speed"):
        assert f"  {label}" in result.stdout
    assert "48000 in, 48000 out" in result.stdout


def test_help_is_a_manual_page():
    result = run_ok("--help")
    sections = ["NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "EXAMPLES"]
    positions = [result.stdout.find("\n" + s + "\n") if i else result.stdout.find(s)
                 for i, s in enumerate(sections)]
    assert -1 not in positions and positions == sorted(positions)
    for option in ("--format", "--drive", "--period", "--keep-latency", "--bypass", "--subtype",
                   "--json", "--gain-log", "--quiet"):
        assert option in result.stdout


def test_version_names_the_library():
    assert "v1.2.7" in run_ok("--version").stdout
