"""Audio files through libsndfile (python3-soundfile), the library taviklimit uses.

Samples are float64 frames, shape (frames, channels), full scale 1.0: integer
PCM is scaled by 2**-(bits - 1), float files keep their values, including any
above full scale. Whatever libsndfile reads is accepted (WAV of every kind,
FLAC, AIFF, Ogg Vorbis, ...).
"""
import os

import numpy as np
import soundfile


def read_audio(path, start=0.0, duration=None):
    """(frames x channels float64, sample rate) of the file, from `start` seconds on,
    `duration` seconds of it (default: to the end)."""
    if not os.path.exists(path):
        raise FileNotFoundError(path)
    rate = soundfile.info(path).samplerate
    first = int(round(start * rate))
    frames = -1 if duration is None else int(round(duration * rate))
    x, rate = soundfile.read(path, frames=frames, start=first, dtype="float64", always_2d=True)
    return x, rate


def write_audio(path, x, rate, subtype=None):
    """Writes frames (or a mono 1-D array) of full scale 1.0; the container comes from
    the file name, subtype is libsndfile's ("PCM_16", "PCM_24", "FLOAT", ...; default
    the container's own)."""
    soundfile.write(path, np.asarray(x, np.float64), rate, subtype=subtype)
