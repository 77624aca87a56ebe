"""The binding replays the golden manifest of the C tests and must hash the same bytes."""
import hashlib
import os

import numpy as np
import pytest

import taviklimiter as tl
from conftest import REPO

GOLDEN = os.environ.get("TAVIKLIMITER_GOLDEN_DIR", os.path.join(REPO, "tests", "golden"))
MANIFEST = os.path.join(GOLDEN, "vectors.txt")
DTYPES = {0: "<i8", 1: "<f4", 2: "<i4"}


def manifest():
    if not os.path.exists(MANIFEST):
        return []
    cases = []
    with open(MANIFEST) as f:
        for line in f:
            if line.strip() and not line.startswith("#"):
                name, fmt, ch, path, schedule, digest = line.split()
                cases.append(pytest.param(name, int(fmt), int(ch), path, schedule, digest, id=name))
    return cases


CASES = manifest()
needs_manifest = pytest.mark.skipif(not CASES, reason=f"no golden manifest at {MANIFEST}")


def load(fmt, ch, path):
    x = np.fromfile(os.path.join(GOLDEN, path), DTYPES[fmt])
    return x.reshape(-1, ch) if ch == 2 else x


def replay(fmt, ch, x, schedule):
    """One Limiter_Process call per pN step, the cursor moving by what the call consumed."""
    lim = tl.Limiter(ch, fmt)
    digest, cursor = hashlib.sha256(), 0
    for step in schedule.split(","):
        if step[0] == "p":
            n = int(step[1:])
            out, consumed = lim.process_once(x[cursor:cursor + n], room=n)
            assert consumed == min(n, len(x) - cursor) // 64 * 64
            cursor += consumed
            digest.update(out.tobytes())
        else:
            {"b": lim.bypass, "l": lim.limit, "r": lim.reset}[step]()
    return digest.hexdigest()


@needs_manifest
def test_manifest_is_complete():
    assert len(CASES) >= 24


@needs_manifest
@pytest.mark.parametrize("name,fmt,ch,path,schedule,digest", CASES)
def test_replay_matches(name, fmt, ch, path, schedule, digest):
    assert replay(fmt, ch, load(fmt, ch, path), schedule) == digest


@needs_manifest
@pytest.mark.parametrize("name,fmt,ch,path,schedule,digest",
                         [c for c in CASES if set(c.values[4]) <= set("p0123456789,")])
def test_streaming_matches_schedules_without_requests(name, fmt, ch, path, schedule, digest):
    # Without switches the output does not depend on how the periods fall, so
    # streaming the steps' sizes through process() must give the same bytes.
    x, lim, h, cursor = load(fmt, ch, path), tl.Limiter(ch, fmt), hashlib.sha256(), 0
    for step in schedule.split(","):
        n = int(step[1:])
        h.update(lim.process(x[cursor:cursor + n]).tobytes())
        cursor += n
    assert h.hexdigest() == digest


def test_replay_detects_a_changed_sample():
    # The replay is only worth something if a one-sample change moves the hash.
    if not CASES:
        pytest.skip(f"no golden manifest at {MANIFEST}")
    name, fmt, ch, path, schedule, digest = CASES[0].values
    x = load(fmt, ch, path).copy()
    x.reshape(-1)[100] += 1 if fmt != 1 else np.float32(1e-3)
    assert replay(fmt, ch, x, schedule) != digest
