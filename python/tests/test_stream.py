"""Limiter's streaming keeps whole blocks and the rest; the output keeps its bound."""
import numpy as np
import pytest

import taviklimiter as tl
from conftest import T, assert_bound

I64, I32, F = np.iinfo(np.int64), np.iinfo(np.int32), T / 2 ** 31
SPECIAL = {  # float32: NaNs, infinities, subnormals, zeros by their bits, then values
    "float32": np.concatenate([np.array([
        0x7FC00000, 0xFFC00000, 0x7F800001, 0x7FBFFFFF, 0xFFFFFFFF, 0x7F800000, 0xFF800000, 1,
        0x807FFFFF, 0, 0x80000000], np.uint32).view(np.float32), np.float32(
        [1, -1, 1 + 2 ** -23, -1 + 2 ** -24, 16, -16, 16 + 2 ** -19, F, -F, F + 2 ** -23])]),
    "q33p31": np.array([I64.min, I64.max, I32.min, I32.max, 1 << 46, -(1 << 46), (1 << 46) - 1,
                        T, T + 1, -T, -T - 1, 0], np.int64),
    "q5p27": np.array([I32.min, I32.max, 1 << 27, -(1 << 27), T >> 4, (T >> 4) + 1, 0], np.int32),
}


def signal(fmt, ch, frames, seed):
    """Noise with bursts up to 2x full scale and the format's special values at random places."""
    rng = np.random.default_rng(seed)
    x = rng.standard_normal((frames, ch)) * np.where(rng.random((frames, 1)) < 0.01, 1.8, 0.3)
    enc = tl.encode(np.clip(x, -2.0, 2.0), fmt)
    enc.reshape(-1)[rng.integers(0, enc.size, 60)] = rng.choice(SPECIAL[fmt], 60)
    return enc[:, 0] if ch == 1 else enc


@pytest.mark.parametrize("fmt,ch", [(f, c) for f in ("q33p31", "float32", "q5p27") for c in (1, 2)])
def test_random_periods_equal_one_call_and_keep_the_bound(fmt, ch):
    x = signal(fmt, ch, 5000, seed=ch * 7 + len(fmt))
    whole = tl.Limiter(ch, fmt).process(x)
    rng, lim, parts, pos = np.random.default_rng(11), tl.Limiter(ch, fmt), [], 0
    while pos < len(x):
        n = int(rng.choice([0, 1, 7, 63, 64, 65, 100, 129, 500]))
        parts.append(lim.process(x[pos:pos + n]))
        pos += n
    assert all(len(p) % 64 == 0 for p in parts) and lim.pending_frames == 5000 % 64
    np.testing.assert_array_equal(np.concatenate(parts), whole)
    y = tl.Limiter(ch, fmt).process_all(x)
    np.testing.assert_array_equal(y[:len(whole) - 64], whole[64:])  # latency compensated
    assert_bound(x, y, fmt)


def test_a_request_between_periods_takes_effect_on_the_next_whole_block():
    x, ref, lim = signal("float32", 2, 1024, seed=3), tl.Limiter(2), tl.Limiter(2)
    expected = [ref.process(x[:192]), ref.bypass(), ref.process(x[192:])][::2]
    got = [lim.process(x[:100]), lim.process(x[100:230]), lim.bypass(), lim.process(x[230:])]
    del got[2]  # the request came when the 4th block was not yet whole
    np.testing.assert_array_equal(np.concatenate(got), np.concatenate(expected))
