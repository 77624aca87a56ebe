"""Shared helpers for the taviklimit end-to-end tests: the tool, sound files through libsndfile
(python3-soundfile), test signals, and real recordings from packages scripts/setup.sh installs."""

import json
import os
import pathlib
import subprocess

import numpy as np
import soundfile as sf

TOOL = os.environ.get("TAVIKLIMIT",
                      pathlib.Path(__file__).parents[3] / "build/gcc/tools/taviklimit/taviklimit")
MUSIC = "/usr/share/games/frozen-bubble/snd/frozen-mainzik-1p.ogg"  # frozen-bubble-data: stereo
SPEECH = "/usr/share/sounds/alsa/Front_Center.wav"  # alsa-utils: mono 48 kHz 16-bit
BLOCK = 64
THRESHOLD = 2147418110 / 2 ** 31
STORED_BOUND = 1 - 2 ** -15  # the threshold as float, 16 and 24-bit PCM store it
TARGET = 32730 / 32768


def music_like(seconds, rate, channels, peak, seed=1):
    """Tones and noise, quiet for the first 0.1 s, then phrases reaching peak."""
    rng = np.random.default_rng(seed)
    t = np.arange(int(seconds * rate))[:, None] / rate
    tone = np.sin(2 * np.pi * (220 + 30 * np.arange(channels)) * t) + 0.5 * np.sin(
        2 * np.pi * 1375 * t) + 0.2 * rng.standard_normal((t.size, channels))
    envelope = np.where(t < 0.1, 0.05, 0.35 + 0.65 * np.abs(np.sin(2 * np.pi * 1.7 * t)) ** 4)
    return tone / np.max(np.abs(tone)) * envelope * peak


def write(path, samples, rate, subtype):
    """Integer PCM from exact words round(x * 2^(b-1)); float32 arrays keep their bits."""
    bits = {"pcm16": 16, "pcm24": 24, "pcm32": 32}.get(subtype)
    if bits:
        top = 2.0 ** (bits - 1)
        samples = (np.clip(np.rint(samples * top), -top, top - 1).astype(np.int64)
                   << (32 - bits)).astype(np.int32)
    sf.write(str(path), samples, rate, subtype=subtype.upper().replace("PCM", "PCM_"))


def read(path, dtype="float64"):  # frames x channels
    return sf.read(str(path), dtype=dtype, always_2d=True)[0]


def figures(path):  # the --json file
    return json.loads(pathlib.Path(path).read_text())


def run_tool(*args, text=True, **kwargs):
    return subprocess.run([TOOL, *map(str, args)], capture_output=True, text=text, timeout=120,
                          **kwargs)


def run_ok(*args, **kwargs):
    result = run_tool(*args, **kwargs)
    assert result.returncode == 0, result.stderr
    return result
