"""Shared helpers for the taviklimit end-to-end tests.

Sound files are written and read through libsndfile (ctypes), so the tests
make every container and encoding themselves, sample for sample: integer
PCM from exact integer words, float files from float32 values.
"""

import ctypes
import ctypes.util
import os
import pathlib
import subprocess

import numpy as np
import pytest

TOOL = os.environ.get(
    "TAVIKLIMIT",
    str(pathlib.Path(__file__).resolve().parents[3] / "build/gcc/tools/taviklimit/taviklimit"))

CEILING = 32730 / 32768  # the library's output ceiling
BLOCK = 64

# ---- libsndfile -------------------------------------------------------------


class SfInfo(ctypes.Structure):
    _fields_ = [("frames", ctypes.c_int64), ("samplerate", ctypes.c_int),
                ("channels", ctypes.c_int), ("format", ctypes.c_int),
                ("sections", ctypes.c_int), ("seekable", ctypes.c_int)]


_sf = ctypes.CDLL(ctypes.util.find_library("sndfile") or "libsndfile.so.1")
_sf.sf_open.restype = ctypes.c_void_p
_sf.sf_open.argtypes = [ctypes.c_char_p, ctypes.c_int, ctypes.POINTER(SfInfo)]
_sf.sf_close.argtypes = [ctypes.c_void_p]
_sf.sf_strerror.restype = ctypes.c_char_p
_sf.sf_strerror.argtypes = [ctypes.c_void_p]
for _name, _ctype in (("double", ctypes.c_double), ("float", ctypes.c_float),
                      ("int", ctypes.c_int32)):
    for _op in ("readf", "writef"):
        _fn = getattr(_sf, f"sf_{_op}_{_name}")
        _fn.restype = ctypes.c_int64
        _fn.argtypes = [ctypes.c_void_p, ctypes.POINTER(_ctype), ctypes.c_int64]

SFM_READ, SFM_WRITE = 0x10, 0x20
MAJOR = {"wav": 0x010000, "aiff": 0x020000, "flac": 0x170000}
SUBTYPE = {"pcm16": 0x0002, "pcm24": 0x0003, "pcm32": 0x0004, "float": 0x0006,
           "double": 0x0007}
BITS = {"pcm16": 16, "pcm24": 24, "pcm32": 32}


def _open(path, mode, info):
    handle = _sf.sf_open(str(path).encode(), mode, ctypes.byref(info))
    if not handle:
        raise OSError(f"libsndfile: {path}: {_sf.sf_strerror(None).decode()}")
    return handle


def write_audio(path, samples, rate, subtype):
    """Writes samples (frames x channels, full scale 1.0) to path; the
    container follows the extension. Integer subtypes take the samples
    rounded to their bits (the test signals are made on that grid)."""
    samples = np.atleast_2d(np.asarray(samples, dtype=np.float64).T).T
    frames, channels = samples.shape
    info = SfInfo(0, rate, channels, MAJOR[pathlib.Path(path).suffix[1:]] | SUBTYPE[subtype], 0, 0)
    handle = _open(path, SFM_WRITE, info)
    try:
        if subtype in BITS:
            bits = BITS[subtype]
            words = np.clip(np.rint(samples * 2.0 ** (bits - 1)),
                            -2 ** (bits - 1), 2 ** (bits - 1) - 1).astype(np.int64)
            data = np.ascontiguousarray((words << (32 - bits)).astype(np.int32))
            written = _sf.sf_writef_int(handle, data.ctypes.data_as(ctypes.POINTER(ctypes.c_int32)),
                                        frames)
        else:
            data = np.ascontiguousarray(samples.astype(np.float32))
            written = _sf.sf_writef_float(handle, data.ctypes.data_as(ctypes.POINTER(ctypes.c_float)),
                                          frames)
        assert written == frames
    finally:
        _sf.sf_close(handle)


class Audio:
    def __init__(self, samples, rate, sf_format):
        self.samples = samples  # frames x channels, float64, exact
        self.rate = rate
        self.sf_format = sf_format

    @property
    def frames(self):
        return self.samples.shape[0]

    @property
    def channels(self):
        return self.samples.shape[1]

    @property
    def subtype(self):
        return {v: k for k, v in SUBTYPE.items()}[self.sf_format & 0xFFFF]


def read_audio(path, as_float32=False):
    """Reads a file exactly: doubles (integer words / 2^(b-1)), or with
    as_float32 the float32 values themselves, for bit comparisons."""
    info = SfInfo()
    handle = _open(path, SFM_READ, info)
    try:
        dtype, ctype, fn = ((np.float32, ctypes.c_float, _sf.sf_readf_float) if as_float32
                            else (np.float64, ctypes.c_double, _sf.sf_readf_double))
        data = np.zeros((info.frames, info.channels), dtype=dtype)
        got = fn(handle, data.ctypes.data_as(ctypes.POINTER(ctype)), info.frames)
        assert got == info.frames
    finally:
        _sf.sf_close(handle)
    return Audio(data, info.samplerate, info.format)


# ---- signals ------------------------------------------------------------------


def music_like(seconds, rate, channels, peak, seed=1):
    """Tones and noise under a moving envelope: quiet for the first 0.1 s,
    then phrases of different loudness reaching `peak`, with fast attacks
    that make the limiter ramp and release."""
    rng = np.random.default_rng(seed)
    t = np.arange(int(seconds * rate)) / rate
    out = np.empty((t.size, channels))
    for c in range(channels):
        tone = (np.sin(2 * np.pi * (220 + 30 * c) * t) + 0.5 * np.sin(2 * np.pi * 1375 * t + c)
                + 0.2 * rng.standard_normal(t.size))
        out[:, c] = tone / np.max(np.abs(tone))
    envelope = np.where(t < 0.1, 0.05, 0.35 + 0.65 * np.abs(np.sin(2 * np.pi * 1.7 * t)) ** 4)
    return out * envelope[:, None] * peak


def quiet_signal(seconds, rate, channels, seed=2):
    """Noise and a tone around -20 dBFS: nothing for the limiter to do."""
    rng = np.random.default_rng(seed)
    t = np.arange(int(seconds * rate)) / rate
    tone = 0.08 * np.sin(2 * np.pi * 440 * t)[:, None] + 0.02 * rng.standard_normal((t.size, channels))
    return tone + 0.0  # no negative zeros


# ---- running the tool -----------------------------------------------------------


def run_tool(*args, **kwargs):
    return subprocess.run([TOOL, *map(str, args)], capture_output=True, text=True, timeout=60,
                          **kwargs)


def run_ok(*args):
    result = run_tool(*args)
    assert result.returncode == 0, result.stderr
    return result


@pytest.fixture(scope="session", autouse=True)
def tool_exists():
    assert os.access(TOOL, os.X_OK), f"taviklimit not built at {TOOL} (set TAVIKLIMIT)"
