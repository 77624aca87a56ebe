"""taviklimiter: Python access to the look-ahead peak limiter library.

    import numpy as np, taviklimiter as tl
    lim = tl.Limiter(channels=2, pcm_format="float32")
    y = lim.process_all(x)            # x: float32 array of shape (frames, 2)
    g = tl.gain_trace(x)              # Q15 gain per frame (32767 = unity)

Limiter wraps one instance (Limiter_Open and friends); every result code other
than LMTR_OK raises the exception class of the same name (LMTR_ERR_PCM_FORMAT,
...), all derived from LimiterError. The kernels are in taviklimiter.kernels
and re-exported here under their C names. taviklimiter.audio_io reads and writes
audio files (libsndfile), taviklimiter.true_peak measures true peak (libebur128),
and `python3 -m taviklimiter.plot` draws what the limiter does to a recording.
library_path names the shared library in use (see taviklimiter._native).
"""
from . import kernels
from ._native import path as library_path
from .errors import (LMTR_ERR_COMMAND, LMTR_ERR_NULL_POINTER, LMTR_ERR_PCM_FORMAT,
                     LMTR_ERR_STATE, LMTR_OK, LimiterError, check)
from .kernels import *  # noqa: F401,F403  (the kernels under their C names)
from .limiter import (BLOCK_FRAMES, FORMATS, LATENCY_FRAMES, Limiter, Status, decode_output,
                      encode, format_code, gain_trace)

__all__ = [
    "Limiter", "Status", "LimiterError", "LMTR_OK", "LMTR_ERR_NULL_POINTER",
    "LMTR_ERR_PCM_FORMAT", "LMTR_ERR_COMMAND", "LMTR_ERR_STATE", "check", "kernels",
    "gain_trace", "encode", "decode_output", "format_code", "FORMATS", "BLOCK_FRAMES",
    "LATENCY_FRAMES", "library_path",
] + [name for name in dir(kernels) if not name.startswith("_") and callable(getattr(kernels, name))
     and getattr(getattr(kernels, name), "__module__", "") == kernels.__name__]
