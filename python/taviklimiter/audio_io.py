"""Reading audio files as float64 frames (full scale 1.0).

WAV files with 8/16/24/32-bit integer PCM are read with the standard library's
wave module. Anything else (float WAV, WAVE_FORMAT_EXTENSIBLE headers as most
24-bit files have, FLAC, MP3, ...) is decoded by ffmpeg into a temporary file of
raw 64-bit floats, which keeps 32-bit integers exactly and floats above full scale.
"""
import json
import os
import shutil
import subprocess
import tempfile
import wave

import numpy as np


def read_wav(path):
    """(frames x channels float64, sample rate) from an integer PCM WAV file."""
    with wave.open(path, "rb") as w:
        channels, width, rate = w.getnchannels(), w.getsampwidth(), w.getframerate()
        raw = w.readframes(w.getnframes())
    if width == 1:  # 8-bit WAV is unsigned
        x = (np.frombuffer(raw, np.uint8).astype(np.float64) - 128.0) / 128.0
    elif width == 2:
        x = np.frombuffer(raw, "<i2").astype(np.float64) / 2.0 ** 15
    elif width == 3:
        b = np.frombuffer(raw, np.uint8).reshape(-1, 3).astype(np.int32)
        v = b[:, 0] | (b[:, 1] << 8) | (b[:, 2] << 16)
        v = np.where(v >= 1 << 23, v - (1 << 24), v)
        x = v.astype(np.float64) / 2.0 ** 23
    elif width == 4:
        x = np.frombuffer(raw, "<i4").astype(np.float64) / 2.0 ** 31
    else:
        raise ValueError(f"{path}: {8 * width}-bit WAV samples are not supported")
    return x.reshape(-1, channels), rate


def _probe(path):
    out = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "a:0", "-show_entries",
                          "stream=sample_rate,channels", "-of", "json", path],
                         check=True, capture_output=True, text=True).stdout
    streams = json.loads(out).get("streams", [])
    if not streams:
        raise ValueError(f"{path}: no audio stream")
    return int(streams[0]["sample_rate"]), int(streams[0]["channels"])


def read_with_ffmpeg(path):
    """(frames x channels float64, sample rate) of the first audio stream, via ffmpeg."""
    if not shutil.which("ffmpeg") or not shutil.which("ffprobe"):
        raise RuntimeError(f"{path}: not a PCM WAV file, and ffmpeg is not installed")
    rate, channels = _probe(path)
    with tempfile.TemporaryDirectory() as tmp:
        raw = os.path.join(tmp, "audio.f64")
        subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-i", path, "-map", "0:a:0",
                        "-f", "f64le", "-c:a", "pcm_f64le", raw], check=True)
        x = np.fromfile(raw, "<f8")
    return x.reshape(-1, channels), rate


def read_audio(path):
    """(frames x channels float64, sample rate): wave first, ffmpeg for the rest."""
    if not os.path.exists(path):
        raise FileNotFoundError(path)
    try:
        return read_wav(path)
    except (wave.Error, EOFError, ValueError):
        return read_with_ffmpeg(path)
