"""Result codes become exceptions named after them; bad arguments are refused."""
import numpy as np
import pytest

import taviklimiter as tl
from taviklimiter import _native as N, audio_io


@pytest.mark.parametrize("name,code", [("LMTR_ERR_NULL_POINTER", -1), ("LMTR_ERR_PCM_FORMAT", -3),
                                       ("LMTR_ERR_COMMAND", -4), ("LMTR_ERR_STATE", -5)])
def test_each_code_raises_its_class(name, code):
    with pytest.raises(getattr(tl, name)) as info:
        tl.check(code, "somewhere")
    assert isinstance(info.value, tl.LimiterError) and info.value.code == code
    assert name in str(info.value) and tl.check(0) == 0


def pending():
    lm = tl.Limiter(2)
    lm.process(np.zeros((10, 2), np.float32))  # 10 frames of a block kept
    return lm


BAD_CALLS = [  # (what, call, exception): each must raise exactly that class
    ("format code 3", lambda: tl.Limiter(1, 3), tl.LMTR_ERR_PCM_FORMAT),
    ("format name", lambda: tl.Limiter(1, "pcm16"), tl.LMTR_ERR_PCM_FORMAT),
    ("command 4", lambda: tl.Limiter().set_parameters(4), tl.LMTR_ERR_COMMAND),
    ("format request 3", lambda: tl.Limiter().set_parameters(2, 3), tl.LMTR_ERR_PCM_FORMAT),
    ("set_format 7", lambda: tl.Limiter().set_format(7), tl.LMTR_ERR_PCM_FORMAT),
    ("channels 3", lambda: tl.Limiter(3), ValueError),
    ("stereo given mono", lambda: tl.Limiter(2).process(np.zeros(64, np.float32)), ValueError),
    ("float into q33p31", lambda: tl.Limiter(1, "q33p31").process(np.zeros(64)), TypeError),
    ("format change mid-block", lambda: pending().set_format("q5p27"), ValueError),
    ("null handle", lambda: tl.check(N.Limiter_Reset(None)), tl.LMTR_ERR_NULL_POINTER),
    ("unknown code -2", lambda: tl.check(-2), tl.LimiterError),
    ("missing file", lambda: audio_io.read_audio("/no/x.wav"), FileNotFoundError),
]


@pytest.mark.parametrize("what,call,exc", BAD_CALLS, ids=[c[0] for c in BAD_CALLS])
def test_bad_arguments_raise(what, call, exc):
    with pytest.raises(exc) as info:
        call()
    assert type(info.value) is exc
