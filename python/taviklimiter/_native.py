"""Loads libtaviklimiter_vendor.so with ctypes and declares every exported name.

Where the library is looked for, first match wins:
  1. the path in the environment variable TAVIKLIMITER_LIB;
  2. libtaviklimiter_vendor.so inside this package: the copy that
     `pip install ./python` took from the build it was installed with;
  3. build/gcc/libtaviklimiter_vendor.so of the source tree this package sits in
     (PYTHONPATH=python in a built checkout);
  4. libtaviklimiter_vendor.so.1 on the system's library path (`cmake --install`
     into /usr/local, or a prefix named in LD_LIBRARY_PATH).
"""
import ctypes
import os
from ctypes import POINTER, c_char, c_float, c_int32, c_int64, c_uint32, c_void_p

LIBRARY_NAME = "libtaviklimiter_vendor.so"
SONAME = "libtaviklimiter_vendor.so.1"
ENV_VAR = "TAVIKLIMITER_LIB"

_here = os.path.dirname(os.path.abspath(__file__))


def candidate_paths():
    """The files searched, in order (the environment variable first, if set)."""
    paths = [os.environ[ENV_VAR]] if os.environ.get(ENV_VAR) else []
    paths.append(os.path.join(_here, LIBRARY_NAME))
    paths.append(os.path.join(os.path.dirname(os.path.dirname(_here)), "build", "gcc",
                              LIBRARY_NAME))
    return paths


def _load():
    env = os.environ.get(ENV_VAR)
    if env and not os.path.exists(env):
        raise OSError(f"{ENV_VAR}={env}: no such file")
    for path in candidate_paths():
        if os.path.exists(path):
            return ctypes.CDLL(path), path
    try:
        return ctypes.CDLL(SONAME), SONAME
    except OSError:
        raise OSError(f"{LIBRARY_NAME} not found; build it (cmake --preset gcc && "
                      f"cmake --build --preset gcc), install it, or set {ENV_VAR}. "
                      f"Looked in: {', '.join(candidate_paths())} and for {SONAME} "
                      "on the system's library path") from None


lib, path = _load()

p_i64 = POINTER(c_int64)
p_i32 = POINTER(c_int32)
p_u32 = POINTER(c_uint32)
p_f32 = POINTER(c_float)


class LimiterConfig(ctypes.Structure):
    _fields_ = [("channels", c_uint32), ("aux_config", c_uint32),
                ("pcm_format", c_uint32), ("state", c_uint32)]


class LimiterParam(ctypes.Structure):
    _fields_ = [("command", c_uint32), ("value", c_uint32)]


class LimiterStatus(ctypes.Structure):
    _fields_ = [("pcm_format", c_uint32), ("state", c_uint32)]


def _declare(name, restype, *argtypes):
    fn = getattr(lib, name)
    fn.restype = restype
    fn.argtypes = list(argtypes)
    return fn


# Entry points.
Limiter_GetBufferSize = _declare("Limiter_GetBufferSize", c_int32, p_u32, p_u32, c_uint32)
Limiter_Open = _declare("Limiter_Open", c_int32, POINTER(c_void_p), c_void_p,
                        POINTER(LimiterConfig))
Limiter_Reset = _declare("Limiter_Reset", c_int32, c_void_p)
Limiter_SetParameters = _declare("Limiter_SetParameters", c_int32, c_void_p,
                                 POINTER(LimiterParam))
Limiter_GetStatus = _declare("Limiter_GetStatus", c_int32, c_void_p, POINTER(LimiterStatus))
Limiter_GetVersion = _declare("Limiter_GetVersion", c_uint32)
Limiter_Get_Version = _declare("Limiter_Get_Version", ctypes.c_char_p)
Limiter_Process = _declare("Limiter_Process", c_int32, c_void_p, c_void_p, c_void_p, p_u32,
                           c_void_p, p_u32)
limiter_check_pcm_format = _declare("limiter_check_pcm_format", c_int32, c_uint32)
limiter_check_state = _declare("limiter_check_state", c_int32, c_uint32)
limiter_all_format = _declare("limiter_all_format", c_int32, c_void_p, c_void_p, c_void_p,
                              p_i64, p_i32, c_uint32)

# Kernels: gain derivation and application.
derive_gain = _declare("derive_gain", None, p_i64, p_i32, c_uint32, c_int32, c_int32)
calculate_block_min_gain = _declare("calculate_block_min_gain", c_int32, c_int32, p_i32,
                                    c_int32, c_int32)
no_limiter = _declare("no_limiter", None, p_i64, p_i32, c_uint32, c_int32)
apply_fix_gain = _declare("apply_fix_gain", None, c_int32, p_i64, p_i32, c_int32, c_int32)
apply_makeup_gain = _declare("apply_makeup_gain", None, p_i32, c_uint32, c_int32)
apply_step_gain_without_saturation = _declare(
    "apply_step_gain_without_saturation", c_int32, c_int32, c_int32, c_int32, p_i64, p_i32,
    c_uint32, c_int32)
apply_targ_gain = _declare("apply_targ_gain", c_int32, c_int32, c_int32, c_int32, p_i64, p_i32,
                           p_i32, c_uint32, c_int32)
apply_ramp_gain_for_q33p31 = _declare("apply_ramp_gain_for_q33p31", c_int32, c_int32, c_int32,
                                      c_int32, p_i64, p_i64, p_i32, c_uint32, c_int32)
apply_ramp_gain_for_float32 = _declare("apply_ramp_gain_for_float32", c_int32, c_int32, c_int32,
                                       c_int32, p_f32, p_f32, p_i32, c_uint32, c_int32)
apply_ramp_gain_for_q5p27 = _declare("apply_ramp_gain_for_q5p27", c_int32, c_int32, c_int32,
                                     c_int32, p_i32, p_i32, p_i32, c_uint32, c_int32)
clipping_limiter = _declare("clipping_limiter", None, p_i64, p_i32, c_uint32, c_int32)

# Kernels: format conversion.
copy_float32_to_q33p31 = _declare("copy_float32_to_q33p31", None, p_f32, p_i64, c_uint32)
copy_q1p31_to_float32 = _declare("copy_q1p31_to_float32", None, p_i32, p_f32, c_uint32)
copy_q5p27_to_q33p31 = _declare("copy_q5p27_to_q33p31", None, p_i32, p_i64, c_uint32)
copy_q1p31_to_q5p27 = _declare("copy_q1p31_to_q5p27", None, p_i32, p_i32, c_uint32)
convert_from_float32_to_q33p31 = _declare("convert_from_float32_to_q33p31", None, c_void_p,
                                          c_uint32)
convert_from_q5p27_to_q33p31 = _declare("convert_from_q5p27_to_q33p31", None, c_void_p, c_uint32)
convert_from_q33p31_to_float32 = _declare("convert_from_q33p31_to_float32", None, c_void_p,
                                          c_uint32)
convert_from_q33p31_to_q5p27 = _declare("convert_from_q33p31_to_q5p27", None, c_void_p, c_uint32)
convert_from_q5p27_to_float32 = _declare("convert_from_q5p27_to_float32", None, c_void_p,
                                         c_uint32)
convert_from_float32_to_q5p27 = _declare("convert_from_float32_to_q5p27", None, c_void_p,
                                         c_uint32)
move_from_q33p31_to_q1p31 = _declare("move_from_q33p31_to_q1p31", None, p_i64, p_i32, c_uint32)
clip_from_q33p31_to_q1p31 = _declare("clip_from_q33p31_to_q1p31", None, p_i64, p_i32, c_uint32)

# Data.
limiter_version = (c_char * 47).in_dll(lib, "limiter_version")
LMTR_RAMP_TABLE = (c_int32 * 64).in_dll(lib, "LMTR_RAMP_TABLE")
