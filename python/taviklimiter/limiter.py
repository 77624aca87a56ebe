"""Limiter: one library instance with its own instance and scratch memory."""
import ctypes
from typing import NamedTuple

import numpy as np

from . import _native as N
from . import kernels
from .errors import LMTR_ERR_PCM_FORMAT, check

BLOCK_FRAMES = 64
LATENCY_FRAMES = 64

FORMATS = {"q33p31": 0, "float32": 1, "q5p27": 2}
FORMAT_NAMES = {code: name for name, code in FORMATS.items()}
# Sample types in and out, by format code.
INPUT_DTYPES = {0: np.dtype(np.int64), 1: np.dtype(np.float32), 2: np.dtype(np.int32)}
OUTPUT_DTYPES = {0: np.dtype(np.int32), 1: np.dtype(np.float32), 2: np.dtype(np.int32)}
# Full scale of the output samples, by format code (Q1.31, float, Q5.27).
OUTPUT_FULL_SCALE = {0: 2.0 ** 31, 1: 1.0, 2: 2.0 ** 27}
INPUT_FULL_SCALE = {0: 2.0 ** 31, 1: 1.0, 2: 2.0 ** 27}

STATE_LIMITING = 0
STATE_BYPASS = 1
CMD_SET_LIMITING, CMD_SET_BYPASS, CMD_SET_PCM_FORMAT, CMD_RESET = 0, 1, 2, 3


def format_code(pcm_format):
    """A format code from a name ('q33p31', 'float32', 'q5p27') or a number.

    Numbers are passed on unchecked: the library judges them."""
    if isinstance(pcm_format, str):
        try:
            return FORMATS[pcm_format.lower()]
        except KeyError:
            raise LMTR_ERR_PCM_FORMAT(f"unknown format name {pcm_format!r}; "
                                      f"one of {', '.join(FORMATS)}") from None
    return int(pcm_format) & 0xFFFFFFFF


class Status(NamedTuple):
    """Limiter_GetStatus(): the requested format and state."""
    pcm_format: int
    state: int

    @property
    def bypassed(self):
        return self.state == STATE_BYPASS

    @property
    def format_name(self):
        return FORMAT_NAMES.get(self.pcm_format, str(self.pcm_format))


class Limiter:
    """One limiter instance. It owns its instance memory and scratch memory.

    channels: 1 (mono) or 2 (interleaved stereo).
    pcm_format: 'q33p31' (int64 Q33.31 in, int32 Q1.31 out), 'float32', or
    'q5p27' (int32 in and out), or the codes 0, 1, 2.

    Audio is given and returned as numpy arrays: shape (frames,) for mono,
    (frames, 2) for stereo. The output is 64 frames late (LATENCY_FRAMES).
    """

    def __init__(self, channels=1, pcm_format="float32", bypassed=False):
        if channels not in (1, 2):
            raise ValueError(f"channels must be 1 or 2, not {channels!r}")
        code = format_code(pcm_format)
        inst_size, scratch_size = ctypes.c_uint32(0), ctypes.c_uint32(0)
        check(N.Limiter_GetBufferSize(ctypes.byref(inst_size), ctypes.byref(scratch_size), code),
              "Limiter_GetBufferSize")
        # 64-bit words, so both areas are 8-byte aligned.
        self._instance_mem = (ctypes.c_int64 * ((inst_size.value + 7) // 8))()
        self._scratch = (ctypes.c_int64 * ((scratch_size.value + 7) // 8))()
        config = N.LimiterConfig(channels, 0, code, STATE_BYPASS if bypassed else STATE_LIMITING)
        handle = ctypes.c_void_p()
        check(N.Limiter_Open(ctypes.byref(handle), self._instance_mem, ctypes.byref(config)),
              "Limiter_Open")
        self._handle = handle
        self.channels = channels
        self._format = code
        self._pending = self._empty_input()

    # ---- properties -----------------------------------------------------------
    @property
    def handle(self):
        """The instance handle (a ctypes void pointer), for the raw calls in _native."""
        return self._handle

    @property
    def scratch(self):
        """This instance's scratch memory (ctypes array), for the raw calls in _native."""
        return self._scratch

    @property
    def pcm_format(self):
        return self._format

    @property
    def input_dtype(self):
        return INPUT_DTYPES[self._format]

    @property
    def output_dtype(self):
        return OUTPUT_DTYPES[self._format]

    @property
    def latency(self):
        return LATENCY_FRAMES

    @property
    def pending_frames(self):
        """Frames of a partial block held back by process() until the block is whole."""
        return len(self._pending)

    @property
    def status(self):
        s = N.LimiterStatus()
        check(N.Limiter_GetStatus(self._handle, ctypes.byref(s)), "Limiter_GetStatus")
        return Status(int(s.pcm_format), int(s.state))

    # ---- requests -------------------------------------------------------------
    def set_parameters(self, command, value=0):
        """Limiter_SetParameters() with a raw command and value."""
        param = N.LimiterParam(command, value)
        check(N.Limiter_SetParameters(self._handle, ctypes.byref(param)), "Limiter_SetParameters")

    def bypass(self):
        """Request bypass; the next processed block switches, with a fade."""
        self.set_parameters(CMD_SET_BYPASS)

    def limit(self):
        """Request limiting; the next processed block switches (no fade)."""
        self.set_parameters(CMD_SET_LIMITING)

    def reset(self):
        """Silent delay line, unity gain; drops a partial block held by process()."""
        check(N.Limiter_Reset(self._handle), "Limiter_Reset")
        self._pending = self._empty_input()

    def set_format(self, pcm_format):
        """Request another input format for the following calls."""
        code = format_code(pcm_format)
        if len(self._pending):
            raise ValueError(f"{len(self._pending)} frames of a partial block in the old format "
                             "are pending; change the format on a block boundary")
        self.set_parameters(CMD_SET_PCM_FORMAT, code)
        self._format = code
        self._pending = self._empty_input()

    # ---- audio ----------------------------------------------------------------
    def process(self, block):
        """Streams one period: returns the whole blocks that are ready (a multiple of 64
        frames) and keeps the partial rest for the next call, as a host should."""
        x = self._as_frames(block)
        if len(self._pending):
            x = np.concatenate([self._pending, x])
        n = len(x) - len(x) % BLOCK_FRAMES
        out = self._call(x[:n], n)
        self._pending = x[n:].copy()
        return self._shape_out(out)

    def process_once(self, block, room=None):
        """One Limiter_Process() call, nothing kept: offers all of block with output room
        for `room` frames (default: as many as block). Returns (output, frames consumed)."""
        if len(self._pending):
            raise ValueError("process() holds a partial block; reset() first")
        x = self._as_frames(block)
        room = len(x) if room is None else int(room)
        out = self._call(x, room)
        return self._shape_out(out), len(out)

    def process_all(self, signal, compensate_latency=True):
        """A whole signal from a reset start, followed by silence to flush the delay line.

        compensate_latency: return exactly len(signal) frames aligned with the input;
        otherwise len(signal) + 64 frames, the first 64 being the silent delay line."""
        self.reset()
        x = self._as_frames(signal)
        n = len(x)
        total = -(-(n + LATENCY_FRAMES) // BLOCK_FRAMES) * BLOCK_FRAMES
        padded = np.zeros((total, self.channels), self.input_dtype)
        padded[:n] = x
        out = self.process(padded)
        out = out[LATENCY_FRAMES:LATENCY_FRAMES + n] if compensate_latency else out[:n + LATENCY_FRAMES]
        return out

    # ---- internals ------------------------------------------------------------
    def _empty_input(self):
        return np.zeros((0, self.channels), INPUT_DTYPES.get(self._format, np.int32))

    def _as_frames(self, block):
        a = np.asarray(block)
        if self.channels == 1 and a.ndim == 1:
            a = a.reshape(-1, 1)
        if a.ndim != 2 or a.shape[1] != self.channels:
            want = "(frames,) or (frames, 1)" if self.channels == 1 else "(frames, 2)"
            raise ValueError(f"{self.channels}-channel audio must have shape {want}, "
                             f"not {a.shape}")
        dtype = self.input_dtype
        if dtype.kind == "f" and a.dtype.kind not in "f":
            raise TypeError(f"{FORMAT_NAMES[self._format]} input wants float samples, "
                            f"not {a.dtype}")
        if dtype.kind == "i" and a.dtype.kind not in "iu":
            raise TypeError(f"{FORMAT_NAMES[self._format]} input wants integer samples, "
                            f"not {a.dtype}")
        return kernels._in(a, dtype)

    def _call(self, x, room_frames):
        out = np.zeros((max(room_frames, 0), self.channels), self.output_dtype)
        in_size = ctypes.c_uint32(x.nbytes)
        out_size = ctypes.c_uint32(out.nbytes)
        # Zero-length arrays still need valid addresses: the library rejects null.
        src = x if x.size else np.zeros(1, x.dtype)
        dst = out if out.size else np.zeros(1, out.dtype)
        check(N.Limiter_Process(self._handle, self._scratch, src.ctypes.data_as(ctypes.c_void_p),
                                ctypes.byref(in_size), dst.ctypes.data_as(ctypes.c_void_p),
                                ctypes.byref(out_size)), "Limiter_Process")
        produced = out_size.value // (self.output_dtype.itemsize * self.channels)
        return out[:produced]

    def _shape_out(self, out):
        return out.reshape(-1) if self.channels == 1 else out


# ---- sample helpers -------------------------------------------------------------

def encode(signal, pcm_format):
    """float64 samples (full scale 1.0) -> the input type of pcm_format, rounded to nearest.

    Q33.31 keeps up to 2**32 times full scale; Q5.27 saturates at +-16."""
    code = format_code(pcm_format)
    x = np.asarray(signal, np.float64)
    if code == 0:
        return np.rint(np.clip(x * 2.0 ** 31, -2.0 ** 62, 2.0 ** 62)).astype(np.int64)
    if code == 1:
        return x.astype(np.float32)
    if code == 2:
        return np.clip(np.rint(x * 2.0 ** 27), -2.0 ** 31, 2.0 ** 31 - 1).astype(np.int32)
    raise LMTR_ERR_PCM_FORMAT(f"format code {code}")


def decode_output(samples, pcm_format):
    """Output samples of pcm_format (Q1.31, float32 or Q5.27) -> float64, full scale 1.0."""
    code = format_code(pcm_format)
    if code not in OUTPUT_FULL_SCALE:
        raise LMTR_ERR_PCM_FORMAT(f"format code {code}")
    return np.asarray(samples, np.float64) / OUTPUT_FULL_SCALE[code]


def gain_trace(signal, pcm_format="float32"):
    """The factor, in units of 2**-15, by which each frame of signal leaves the
    limiter (latency compensated: entry i belongs to input frame i), from a reset
    start. 32768 where the frame passes unscaled (the engine's unity), the Q15 gain
    (32767 and below) where it is scaled.

    Measured, not modelled: the gain depends only on the largest magnitude in each
    frame, so a stereo instance gets that magnitude (as Q33.31) on the left and a
    constant probe of half full scale, which never needs reduction, on the right;
    the probe leaves as exactly factor * 2**15."""
    code = format_code(pcm_format)
    x = np.asarray(signal)
    if x.ndim == 1:
        x = x.reshape(-1, 1)
    if code == 1:
        q = kernels.copy_float32_to_q33p31(x)
    elif code == 2:
        q = kernels.copy_q5p27_to_q33p31(x)
    elif code == 0:
        q = kernels._in(x, np.int64)
    else:
        raise LMTR_ERR_PCM_FORMAT(f"format code {code}")
    neg_min = q == np.iinfo(np.int64).min
    mag = np.where(neg_min, np.iinfo(np.int64).max, np.abs(np.where(neg_min, 0, q)))
    probe = np.empty((len(q), 2), np.int64)
    probe[:, 0] = mag.max(axis=1) if len(q) else 0
    probe[:, 1] = 1 << 30
    out = Limiter(2, "q33p31").process_all(probe)
    return (out[:, 1].astype(np.int64) >> 15).astype(np.int32)
