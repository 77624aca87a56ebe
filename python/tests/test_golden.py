"""The binding replays the golden manifest of the C tests and must hash the same bytes."""
import hashlib
import os

import numpy as np
import pytest

import taviklimiter as tl
from conftest import REPO

GOLDEN = os.path.join(REPO, "tests", "golden")
with open(os.path.join(GOLDEN, "vectors.txt")) as manifest:
    CASES = [line.split() for line in manifest if line.strip() and not line.startswith("#")]


@pytest.mark.parametrize("name,fmt,ch,path,schedule,digest", CASES, ids=[c[0] for c in CASES])
def test_replay_matches(name, fmt, ch, path, schedule, digest):
    """One Limiter_Process call per pN step, the cursor moving by what it consumed."""
    x = np.fromfile(os.path.join(GOLDEN, path), {"0": "<i8", "1": "<f4", "2": "<i4"}[fmt])
    x, lim = x.reshape(-1, 2) if ch == "2" else x, tl.Limiter(int(ch), int(fmt))
    h, cursor = hashlib.sha256(), 0
    for step in schedule.split(","):
        if step[0] != "p":
            {"b": lim.bypass, "l": lim.limit, "r": lim.reset}[step]()
            continue
        out, consumed = lim.process_once(x[cursor:cursor + int(step[1:])], room=int(step[1:]))
        assert consumed == min(int(step[1:]), len(x) - cursor) // 64 * 64
        h.update(out.tobytes())
        cursor += consumed
    assert h.hexdigest() == digest

