"""Result codes become exceptions named after them; bad Python arguments are refused."""
import ctypes

import numpy as np
import pytest

import taviklimiter as tl
from taviklimiter import _native as N

CODES = [("LMTR_ERR_NULL_POINTER", -1), ("LMTR_ERR_PCM_FORMAT", -3),
         ("LMTR_ERR_COMMAND", -4), ("LMTR_ERR_STATE", -5)]


@pytest.mark.parametrize("name,code", CODES)
def test_each_code_has_its_class(name, code):
    cls = getattr(tl, name)
    assert cls.__name__ == name and cls.code == code
    assert issubclass(cls, tl.LimiterError)
    with pytest.raises(cls) as info:
        tl.check(code, "somewhere")
    assert info.value.code == code and name in str(info.value)


def test_unknown_code_raises_the_base_class_and_ok_passes():
    with pytest.raises(tl.LimiterError) as info:
        tl.check(-2)
    assert type(info.value) is tl.LimiterError and info.value.code == -2
    assert tl.check(0) == 0


def lim():
    return tl.Limiter(2, "float32")


# (what, call, exception): each call must raise exactly that class.
BAD_CALLS = [
    ("format code 3", lambda: tl.Limiter(1, 3), tl.LMTR_ERR_PCM_FORMAT),
    ("format code -1", lambda: tl.Limiter(1, -1), tl.LMTR_ERR_PCM_FORMAT),
    ("format name", lambda: tl.Limiter(1, "pcm16"), tl.LMTR_ERR_PCM_FORMAT),
    ("command 4", lambda: lim().set_parameters(4), tl.LMTR_ERR_COMMAND),
    ("command 2, value 3", lambda: lim().set_parameters(2, 3), tl.LMTR_ERR_PCM_FORMAT),
    ("set_format 7", lambda: lim().set_format(7), tl.LMTR_ERR_PCM_FORMAT),
    ("channels 3", lambda: tl.Limiter(3), ValueError),
    ("stereo given mono shape", lambda: lim().process(np.zeros(64, np.float32)), ValueError),
    ("mono given stereo", lambda: tl.Limiter(1).process(np.zeros((64, 2), np.float32)), ValueError),
    ("float into q33p31", lambda: tl.Limiter(1, "q33p31").process(np.zeros(64)), TypeError),
    ("int into float32", lambda: tl.Limiter(1, "float32").process(np.zeros(64, int)), TypeError),
    ("q5p27 out of range", lambda: tl.Limiter(1, "q5p27").process(np.full(64, 2 ** 31)), ValueError),
    ("fade longer than the ramp", lambda: tl.apply_targ_gain(np.zeros(65, np.int64), 1, 2),
     ValueError),
    ("fade of int16", lambda: tl.fade(np.zeros(8, np.int16), 1, 2), TypeError),
]


@pytest.mark.parametrize("what,call,exc", BAD_CALLS, ids=[c[0] for c in BAD_CALLS])
def test_bad_arguments_raise(what, call, exc):
    with pytest.raises(exc):
        call()


def test_refused_format_leaves_the_status():
    lm = lim()
    with pytest.raises(tl.LMTR_ERR_PCM_FORMAT):
        lm.set_parameters(2, 3)
    assert lm.status == (1, 0)
    lm.bypass()
    assert lm.status == (1, 1) and lm.status.bypassed


def test_partial_block_blocks_a_format_change_and_a_raw_call():
    lm = lim()
    lm.process(np.zeros((10, 2), np.float32))
    with pytest.raises(ValueError):
        lm.set_format("q5p27")
    with pytest.raises(ValueError):
        lm.process_once(np.zeros((64, 2), np.float32))
    lm.reset()
    assert lm.pending_frames == 0
    lm.set_format("q5p27")
    assert lm.status.format_name == "q5p27"


# Raw calls, for the codes the Limiter class never provokes itself.
def test_open_with_state_2_raises_and_writes_nothing():
    mem = (ctypes.c_uint8 * 1096)(*([0xAB] * 1096))
    handle = ctypes.c_void_p(1234)
    config = N.LimiterConfig(1, 0, 1, 2)
    with pytest.raises(tl.LMTR_ERR_STATE):
        tl.check(N.Limiter_Open(ctypes.byref(handle), mem, ctypes.byref(config)))
    assert handle.value == 1234 and set(mem) == {0xAB}


def test_process_with_null_output_raises_and_zeroes_the_sizes():
    lm = lim()
    x = np.zeros((64, 2), np.float32)
    in_size, out_size = ctypes.c_uint32(x.nbytes), ctypes.c_uint32(x.nbytes)
    with pytest.raises(tl.LMTR_ERR_NULL_POINTER):
        tl.check(N.Limiter_Process(lm.handle, lm.scratch, x.ctypes.data_as(ctypes.c_void_p),
                                   ctypes.byref(in_size), None, ctypes.byref(out_size)))
    assert in_size.value == 0 and out_size.value == 0


@pytest.mark.parametrize("call", [
    lambda: N.Limiter_Reset(None),
    lambda: N.Limiter_SetParameters(None, ctypes.byref(N.LimiterParam(0, 0))),
    lambda: N.Limiter_GetStatus(lim().handle, None),
    lambda: N.Limiter_Open(None, (ctypes.c_uint8 * 1096)(), ctypes.byref(N.LimiterConfig())),
])
def test_null_arguments(call):
    with pytest.raises(tl.LMTR_ERR_NULL_POINTER):
        tl.check(call())
