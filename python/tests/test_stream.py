"""Streaming through Limiter.process() in random periods equals one call."""
import numpy as np
import pytest

import taviklimiter as tl

FS = {"q33p31": 2.0 ** 31, "float32": 1.0, "q5p27": 2.0 ** 27}


def signal(fmt, ch, frames, seed):
    """Noise with bursts up to 2x full scale, so the gain moves all the time."""
    rng = np.random.default_rng(seed)
    x = rng.standard_normal((frames, ch)) * 0.3
    x[rng.integers(0, frames, 40)] *= 6
    x = np.clip(x, -2.0, 2.0)
    enc = tl.encode(x, fmt)
    return enc[:, 0] if ch == 1 else enc


def chunks(rng, total):
    cuts, pos = [], 0
    while pos < total:
        n = int(rng.choice([0, 1, 7, 63, 64, 65, 100, 129, 500]))
        cuts.append((pos, min(total, pos + n)))
        pos += n
    return cuts


CASES = [(fmt, ch) for fmt in ("q33p31", "float32", "q5p27") for ch in (1, 2)]


@pytest.mark.parametrize("fmt,ch", CASES)
def test_random_periods_equal_one_call(fmt, ch):
    x = signal(fmt, ch, 5000, seed=ch * 7 + len(fmt))
    whole = tl.Limiter(ch, fmt).process(x)
    assert len(whole) == 5000 // 64 * 64
    rng = np.random.default_rng(11)
    for _ in range(3):
        lim = tl.Limiter(ch, fmt)
        parts = [lim.process(x[a:b]) for a, b in chunks(rng, len(x))]
        streamed = np.concatenate(parts)
        assert streamed.dtype == whole.dtype
        np.testing.assert_array_equal(streamed, whole)
        assert lim.pending_frames == 5000 % 64
        # Every call returns whole blocks only.
        assert all(len(p) % 64 == 0 for p in parts)


@pytest.mark.parametrize("fmt,ch", CASES)
def test_requests_between_periods_take_effect_on_the_next_block(fmt, ch):
    # Bypass requested after 3 whole blocks: a stream cut anywhere before the 4th block
    # is complete must give the same output as whole blocks.
    x = signal(fmt, ch, 1024, seed=3)
    ref = tl.Limiter(ch, fmt)
    first = ref.process(x[:192])
    ref.bypass()
    expected = np.concatenate([first, ref.process(x[192:])])
    lim = tl.Limiter(ch, fmt)
    got = [lim.process(x[:100]), lim.process(x[100:230])]  # the 4th block is not whole yet
    assert sum(len(g) for g in got) == 192
    lim.bypass()
    got.append(lim.process(x[230:]))
    np.testing.assert_array_equal(np.concatenate(got), expected)
    assert lim.status.bypassed


@pytest.mark.parametrize("fmt,ch", CASES)
def test_process_all_latency_and_ceiling(fmt, ch):
    x = signal(fmt, ch, 3000, seed=5)
    lim = tl.Limiter(ch, fmt)
    y = lim.process_all(x)
    raw = lim.process_all(x, compensate_latency=False)
    assert len(y) == 3000 and len(raw) == 3064
    np.testing.assert_array_equal(raw[64:], y)
    assert not raw[:64].any()  # the silent delay line leaves first
    peak = np.max(np.abs(tl.decode_output(y, fmt)))
    assert 0.99 < peak <= 32730 / 32768


@pytest.mark.parametrize("fmt,ch", CASES)
def test_bypass_delays_by_one_block_exactly(fmt, ch):
    x = signal(fmt, ch, 640, seed=9)
    y = tl.Limiter(ch, fmt, bypassed=True).process(x)
    expected = x if fmt != "q33p31" else tl.move_from_q33p31_to_q1p31(x)
    np.testing.assert_array_equal(y[64:], expected[:576])
    assert not y[:64].any()


def test_process_all_starts_from_a_reset():
    x = signal("float32", 2, 2000, seed=1)
    lim = tl.Limiter(2, "float32")
    lim.process(x[:333])
    np.testing.assert_array_equal(lim.process_all(x), tl.Limiter(2, "float32").process_all(x))


def test_gain_trace_explains_the_output_exactly():
    # output = (Q33.31 input * gain) >> 15, sample by sample, in every format.
    for fmt, ch in CASES:
        x = signal(fmt, ch, 4000, seed=2)
        g = tl.gain_trace(x, fmt)
        assert g.min() < 20000 and g.max() == 32768  # 32768: passed unscaled
        y = tl.Limiter(ch, fmt).process_all(x)
        q = {"q33p31": lambda v: v.astype(np.int64), "float32": tl.copy_float32_to_q33p31,
             "q5p27": tl.copy_q5p27_to_q33p31}[fmt](x)
        gg = g if ch == 1 else g[:, None]
        q1p31 = ((q * gg) >> 15).astype(np.int32)
        expected = {"q33p31": q1p31, "float32": tl.copy_q1p31_to_float32(q1p31),
                    "q5p27": tl.copy_q1p31_to_q5p27(q1p31)}[fmt]
        np.testing.assert_array_equal(y, expected, err_msg=f"{fmt} {ch} ch")
