"""The library's kernels as plain functions on numpy arrays, for analysis.

Every function takes arrays (any shape, read in C order) and returns new arrays;
nothing is changed in place. The names and the arithmetic are the library's own
(see include/taviklimiter.h); the wrappers always pass a stride of 1, as the
library does. Stereo kernels take interleaved samples, either flat or shaped
(frames, 2), and count frames; their stereo argument defaults to "shaped (frames, 2)".

Sample types: Q33.31 is int64 (full scale 2**31), Q1.31 and Q5.27 are int32
(full scale 2**31 and 2**27), float32 has full scale 1.0. Gains are Q15
(32767 is unity).
"""
import ctypes

import numpy as np

from . import _native as N

UNITY_GAIN = 32767
BLOCK_FRAMES = 64


def _in(a, dtype):
    """A C-contiguous copy-if-needed of a, of exactly dtype (integer input must fit)."""
    a = np.asarray(a)
    dtype = np.dtype(dtype)
    if a.dtype != dtype:
        if dtype.kind in "iu":
            if a.dtype.kind not in "iub":
                raise TypeError(f"expected integer samples for {dtype}, got {a.dtype}")
            info = np.iinfo(dtype)
            if a.size and (a.min() < info.min or a.max() > info.max):
                raise ValueError(f"samples do not fit in {dtype}")
        elif a.dtype.kind not in "fiub":
            raise TypeError(f"expected numeric samples, got {a.dtype}")
        a = a.astype(dtype)
    return np.ascontiguousarray(a)


def _ptr(a, ctype):
    return a.ctypes.data_as(ctypes.POINTER(ctype))


def _is_stereo(a, stereo):
    """stereo as given, or, when None, whether a is shaped (frames, 2)."""
    if stereo is None:
        return np.ndim(a) == 2 and np.shape(a)[1] == 2
    return bool(stereo)


def _frames(a, stereo):
    if stereo:
        if a.size % 2:
            raise ValueError("stereo samples must come in pairs")
        return a.size // 2
    return a.size


def ramp_table():
    """LMTR_RAMP_TABLE: 64 Q15 shares, entry i is 512 * i."""
    return np.array(N.LMTR_RAMP_TABLE[:], dtype=np.int32)


def version():
    """Limiter_GetVersion(): 0x127."""
    return int(N.Limiter_GetVersion())


def version_text():
    """Limiter_Get_Version(), decoded."""
    return N.Limiter_Get_Version().decode("ascii")


def limiter_check_pcm_format(code):
    """0 for format codes 0, 1, 2, else -1."""
    return int(N.limiter_check_pcm_format(code))


def limiter_check_state(code):
    """0 for state codes 0 and 1, else -1."""
    return int(N.limiter_check_state(code))


# ---- Gain derivation -------------------------------------------------------

def derive_gain(samples_q33p31, ceiling=UNITY_GAIN):
    """Required Q15 gain of each Q33.31 sample (int32, same shape)."""
    src = _in(samples_q33p31, np.int64)
    gains = np.empty(src.shape, np.int32)
    N.derive_gain(_ptr(src, ctypes.c_int64), _ptr(gains, ctypes.c_int32), src.size,
                  int(ceiling), 1)
    return gains


def calculate_block_min_gain(gains, stereo=None):
    """The smallest of 32767 and the gains (count: frames when stereo)."""
    stereo = _is_stereo(gains, stereo)
    g = _in(gains, np.int32)
    return int(N.calculate_block_min_gain(int(bool(stereo)), _ptr(g, ctypes.c_int32),
                                          _frames(g, stereo), 1))


# ---- Gain application (Q33.31 in, Q1.31 out) ---------------------------------

def no_limiter(samples_q33p31):
    """The low 32 bits of each sample (unity gain, wraps)."""
    src = _in(samples_q33p31, np.int64)
    dst = np.empty(src.shape, np.int32)
    N.no_limiter(_ptr(src, ctypes.c_int64), _ptr(dst, ctypes.c_int32), src.size, 1)
    return dst


def apply_fix_gain(samples_q33p31, gain):
    """Each sample times a constant Q15 gain (the Q15 scaling rule)."""
    src = _in(samples_q33p31, np.int64)
    dst = np.empty(src.shape, np.int32)
    N.apply_fix_gain(int(gain), _ptr(src, ctypes.c_int64), _ptr(dst, ctypes.c_int32), src.size, 1)
    return dst


def apply_makeup_gain(samples_q1p31, gain):
    """The output gain on Q1.31 samples: (x * g) >> 15 with bit 0 cleared."""
    out = _in(samples_q1p31, np.int32).copy()
    N.apply_makeup_gain(_ptr(out, ctypes.c_int32), out.size, int(gain))
    return out


def apply_step_gain_without_saturation(samples_q33p31, start_gain, step, stereo=None):
    """Release: frame k scaled by start_gain + (k + 1) * step. Returns (Q1.31, end gain)."""
    stereo = _is_stereo(samples_q33p31, stereo)
    src = _in(samples_q33p31, np.int64)
    dst = np.empty(src.shape, np.int32)
    end = N.apply_step_gain_without_saturation(int(bool(stereo)), int(start_gain), int(step),
                                                _ptr(src, ctypes.c_int64),
                                                _ptr(dst, ctypes.c_int32), _frames(src, stereo), 1)
    return dst, int(end)


def _ramp(table, frames):
    t = ramp_table() if table is None else _in(table, np.int32)
    if frames > t.size:
        raise ValueError(f"{frames} frames but the ramp table has {t.size} entries")
    return t


def apply_targ_gain(samples_q33p31, start_gain, end_gain, stereo=None, table=None):
    """Attack ramp over at most 64 frames, Q33.31 in, Q1.31 out."""
    stereo = _is_stereo(samples_q33p31, stereo)
    src = _in(samples_q33p31, np.int64)
    frames = _frames(src, stereo)
    t = _ramp(table, frames)
    dst = np.empty(src.shape, np.int32)
    N.apply_targ_gain(int(bool(stereo)), int(start_gain), int(end_gain),
                      _ptr(src, ctypes.c_int64), _ptr(dst, ctypes.c_int32),
                      _ptr(t, ctypes.c_int32), frames, 1)
    return dst


def _fade(fn, dtype, ctype, samples, start_gain, end_gain, stereo, table):
    stereo = _is_stereo(samples, stereo)
    src = _in(samples, dtype)
    frames = _frames(src, stereo)
    t = _ramp(table, frames)
    dst = np.empty(src.shape, dtype)
    fn(int(bool(stereo)), int(start_gain), int(end_gain), _ptr(src, ctype), _ptr(dst, ctype),
       _ptr(t, ctypes.c_int32), frames, 1)
    return dst


def apply_ramp_gain_for_q33p31(samples, start_gain, end_gain, stereo=None, table=None):
    """Fade of Q33.31 samples (kept 64-bit) from start_gain to end_gain."""
    return _fade(N.apply_ramp_gain_for_q33p31, np.int64, ctypes.c_int64, samples, start_gain,
                 end_gain, stereo, table)


def apply_ramp_gain_for_float32(samples, start_gain, end_gain, stereo=None, table=None):
    """Fade of float32 samples from start_gain to end_gain."""
    return _fade(N.apply_ramp_gain_for_float32, np.float32, ctypes.c_float, samples, start_gain,
                 end_gain, stereo, table)


def apply_ramp_gain_for_q5p27(samples, start_gain, end_gain, stereo=None, table=None):
    """Fade of Q5.27 samples from start_gain to end_gain."""
    return _fade(N.apply_ramp_gain_for_q5p27, np.int32, ctypes.c_int32, samples, start_gain,
                 end_gain, stereo, table)


def fade(samples, start_gain, end_gain, stereo=None):
    """The fade for the samples' own type: int64 Q33.31, float32, or int32 Q5.27."""
    kind = np.asarray(samples).dtype
    if kind == np.int64:
        return apply_ramp_gain_for_q33p31(samples, start_gain, end_gain, stereo)
    if kind == np.float32:
        return apply_ramp_gain_for_float32(samples, start_gain, end_gain, stereo)
    if kind == np.int32:
        return apply_ramp_gain_for_q5p27(samples, start_gain, end_gain, stereo)
    raise TypeError(f"fade: int64, float32 or int32 samples, not {kind}")


def clipping_limiter(samples_q33p31):
    """Each sample clamped to the Q1.31 range."""
    src = _in(samples_q33p31, np.int64)
    dst = np.empty(src.shape, np.int32)
    N.clipping_limiter(_ptr(src, ctypes.c_int64), _ptr(dst, ctypes.c_int32), src.size, 1)
    return dst


# ---- Format conversion --------------------------------------------------------

def _copy(fn, src_dtype, src_ctype, dst_dtype, dst_ctype, samples):
    src = _in(samples, src_dtype)
    dst = np.empty(src.shape, dst_dtype)
    fn(_ptr(src, src_ctype), _ptr(dst, dst_ctype), src.size)
    return dst


def copy_float32_to_q33p31(samples):
    """float32 -> Q33.31: trunc(x * 2**31 + 0.5) in double precision."""
    return _copy(N.copy_float32_to_q33p31, np.float32, ctypes.c_float, np.int64, ctypes.c_int64,
                 samples)


def copy_q1p31_to_float32(samples):
    """Q1.31 -> float32, w * 2**-31 rounded to nearest even."""
    return _copy(N.copy_q1p31_to_float32, np.int32, ctypes.c_int32, np.float32, ctypes.c_float,
                 samples)


def copy_q5p27_to_q33p31(samples):
    """Q5.27 -> Q33.31: shifted left by 4, exact."""
    return _copy(N.copy_q5p27_to_q33p31, np.int32, ctypes.c_int32, np.int64, ctypes.c_int64,
                 samples)


def copy_q1p31_to_q5p27(samples):
    """Q1.31 -> Q5.27: arithmetic shift right by 4."""
    return _copy(N.copy_q1p31_to_q5p27, np.int32, ctypes.c_int32, np.int32, ctypes.c_int32,
                 samples)


def _reencode(fn, src_dtype, dst_dtype, samples):
    src = _in(samples, src_dtype)
    count = src.size
    width = max(np.dtype(src_dtype).itemsize, np.dtype(dst_dtype).itemsize)
    buf = np.zeros(count * width, np.uint8)
    buf[:src.nbytes] = src.reshape(-1).view(np.uint8)
    fn(buf.ctypes.data_as(ctypes.c_void_p), count)
    return buf[:count * np.dtype(dst_dtype).itemsize].view(dst_dtype).reshape(src.shape).copy()


def convert_from_float32_to_q33p31(samples):
    """In-place re-encoding kernel, float32 -> Q33.31 (as copy_float32_to_q33p31)."""
    return _reencode(N.convert_from_float32_to_q33p31, np.float32, np.int64, samples)


def convert_from_q5p27_to_q33p31(samples):
    """In-place re-encoding kernel, Q5.27 -> Q33.31."""
    return _reencode(N.convert_from_q5p27_to_q33p31, np.int32, np.int64, samples)


def convert_from_q33p31_to_float32(samples):
    """In-place re-encoding kernel, Q33.31 -> float32 (one rounding, no wrap)."""
    return _reencode(N.convert_from_q33p31_to_float32, np.int64, np.float32, samples)


def convert_from_q33p31_to_q5p27(samples):
    """In-place re-encoding kernel, Q33.31 -> Q5.27 (low 32 bits, then >> 4)."""
    return _reencode(N.convert_from_q33p31_to_q5p27, np.int64, np.int32, samples)


def convert_from_q5p27_to_float32(samples):
    """In-place re-encoding kernel, Q5.27 -> float32."""
    return _reencode(N.convert_from_q5p27_to_float32, np.int32, np.float32, samples)


def convert_from_float32_to_q5p27(samples):
    """In-place re-encoding kernel, float32 -> Q5.27 (saturating, NaN -> 0)."""
    return _reencode(N.convert_from_float32_to_q5p27, np.float32, np.int32, samples)


def move_from_q33p31_to_q1p31(samples_q33p31):
    """The low 32 bits of each Q33.31 word (wraps)."""
    return _copy(N.move_from_q33p31_to_q1p31, np.int64, ctypes.c_int64, np.int32, ctypes.c_int32,
                 samples_q33p31)


def clip_from_q33p31_to_q1p31(samples_q33p31):
    """Each Q33.31 word clamped to the Q1.31 range."""
    return _copy(N.clip_from_q33p31_to_q1p31, np.int64, ctypes.c_int64, np.int32, ctypes.c_int32,
                 samples_q33p31)
