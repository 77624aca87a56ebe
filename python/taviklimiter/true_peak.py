"""True peak, the level between the samples, measured by libebur128 (EBU R128).

libebur128.so.1 (Debian libebur128-1; the one taviklimit uses) is loaded with
ctypes. It interpolates with a polyphase FIR filter, 4x oversampled below
96 kHz and 2x below 192 kHz; its filter delays a sample's contribution by a
few frames, so a per-bin figure may belong to a neighbouring bin's samples.
"""
import ctypes

import numpy as np

MODE_TRUE_PEAK = (1 << 5) | (1 << 4) | 1  # EBUR128_MODE_TRUE_PEAK
_lib = None


def _library():
    global _lib
    if _lib is None:
        lib = ctypes.CDLL("libebur128.so.1")
        lib.ebur128_init.restype = ctypes.c_void_p
        lib.ebur128_init.argtypes = [ctypes.c_uint, ctypes.c_ulong, ctypes.c_int]
        lib.ebur128_destroy.argtypes = [ctypes.POINTER(ctypes.c_void_p)]
        lib.ebur128_add_frames_double.argtypes = [ctypes.c_void_p,
                                                  ctypes.POINTER(ctypes.c_double), ctypes.c_size_t]
        for fn in (lib.ebur128_true_peak, lib.ebur128_prev_true_peak):
            fn.argtypes = [ctypes.c_void_p, ctypes.c_uint, ctypes.POINTER(ctypes.c_double)]
        _lib = lib
    return _lib


def true_peak(x, rate, bin_frames=None):
    """The true peak of each channel of x (frames x channels, full scale 1.0) as an
    array of magnitudes; with bin_frames also (per channel, per bin of that many
    frames) as a second array of shape (bins, channels)."""
    lib = _library()
    x = np.asarray(x, np.float64)
    x = np.ascontiguousarray(x[:, None] if x.ndim == 1 else x)
    channels = x.shape[1]
    state = ctypes.c_void_p(lib.ebur128_init(channels, int(rate), MODE_TRUE_PEAK))
    if not state:
        raise ValueError(f"libebur128 refuses {channels} channels at {rate} Hz")
    value, bins = ctypes.c_double(), []

    def read(fn, channel):
        fn(state, channel, ctypes.byref(value))
        return value.value

    try:
        step = bin_frames or max(len(x), 1)
        for first in range(0, len(x), step):
            part = x[first:first + step]
            if lib.ebur128_add_frames_double(state, part.ctypes.data_as(
                    ctypes.POINTER(ctypes.c_double)), len(part)):
                raise MemoryError("libebur128: add_frames failed")
            if bin_frames:
                bins.append([read(lib.ebur128_prev_true_peak, c) for c in range(channels)])
        peaks = np.array([read(lib.ebur128_true_peak, c) for c in range(channels)])
    finally:
        lib.ebur128_destroy(ctypes.byref(state))
    return (peaks, np.array(bins).reshape(-1, channels)) if bin_frames else peaks
