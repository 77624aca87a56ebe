import os
import sys

import numpy as np
import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
try:
    import taviklimiter as tl  # installed, or named by PYTHONPATH
except ImportError:
    sys.path.insert(0, os.path.dirname(HERE))  # the source tree's package
    import taviklimiter as tl

if os.environ.get("TAVIKLIMITER_LIB"):  # CTest names the library it built: it must be that one
    assert os.path.samefile(tl.library_path, os.environ["TAVIKLIMITER_LIB"]), tl.library_path

REPO = os.path.dirname(os.path.dirname(HERE))
T = 2147418110  # the no-reduction threshold (Q1.31); the bounds in output words:
BOUND = {"q33p31": (-T, T), "float32": (2 ** -15 - 1, 1 - 2 ** -15),  # every sample
         "q5p27": (-0x7FFF000, 0x7FFEFFF)}
TARGET = {"q33p31": 2144993280, "float32": 32730 / 32768, "q5p27": 0x07FDA000}  # input > T
WIDEN = {"q33p31": np.asarray, "float32": tl.copy_float32_to_q33p31,
         "q5p27": tl.copy_q5p27_to_q33p31}


def assert_bound(x, y, fmt):
    """y, the latency-compensated output of x from a reset start, keeps the bounds."""
    assert BOUND[fmt][0] <= y.min() and y.max() <= BOUND[fmt][1]
    wide = WIDEN[fmt](x).astype(np.float64)
    above = np.abs(y.reshape(wide.shape)[np.abs(wide) > T].astype(np.float64))
    assert above.size and above.max() <= TARGET[fmt]


@pytest.fixture(params=["/usr/share/sounds/alsa/Front_Center.wav",  # speech, alsa-utils
                        "/usr/share/games/frozen-bubble/snd/frozen-mainzik-1p.ogg"],  # music
                ids=["speech", "music"])
def recording(request):
    if not os.path.exists(request.param):
        pytest.skip(f"{request.param} is missing (scripts/setup.sh installs it)")
    return request.param
