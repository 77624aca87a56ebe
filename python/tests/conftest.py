import os
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))  # the package, when PYTHONPATH does not name it

REPO = os.path.dirname(os.path.dirname(HERE))
RECORDING = "/usr/share/sounds/alsa/Front_Center.wav"


@pytest.fixture
def recording():
    if not os.path.exists(RECORDING):
        pytest.skip(f"{RECORDING} is missing (Debian package alsa-utils)")
    return RECORDING
