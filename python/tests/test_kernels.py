"""The kernel wrappers pass the right counts, modes and types: worked values from the header."""
import numpy as np
import pytest

import taviklimiter as tl

T = 2147418110  # derive_gain's threshold for the ceiling 32767


def gain_ref(m, c=32767):
    """derive_gain's rule for one magnitude, written out in Python integers."""
    if m <= T:
        return 32767
    if m >= 1 << 46:
        return 0
    d = m >> 15
    q = 2144993280 // d if d else 0
    return ((c * q) >> 15) & ~1


@pytest.mark.parametrize("sample,expected", [
    (0, 32767), (T, 32767), (-T, 32767), (T + 1, gain_ref(T + 1)), (1 << 31, gain_ref(1 << 31)),
    (-(1 << 32), gain_ref(1 << 32)), (3 << 31, gain_ref(3 << 31)), ((1 << 46) - 1, gain_ref((1 << 46) - 1)),
    (1 << 46, 0), (-(1 << 63), 0),
])
def test_derive_gain_worked_values(sample, expected):
    assert tl.derive_gain(np.array([sample], np.int64))[0] == expected


def test_derive_gain_ceiling_and_shape():
    x = np.array([[1 << 32, 0], [0, 1 << 31]], np.int64)
    g = tl.derive_gain(x, ceiling=16384)
    assert g.shape == (2, 2) and g.dtype == np.int32
    assert g[0, 0] == ((16384 * (2144993280 // (1 << 17))) >> 15) & ~1


@pytest.mark.parametrize("gains,stereo,expected", [
    ([30000, 100, 7000], False, 100),
    ([30000, 100, 7000, 5], True, 5),       # two frames, four words
    ([40000, 32768], False, 32767),         # never above unity
    ([], False, 32767),
])
def test_block_min_gain(gains, stereo, expected):
    assert tl.calculate_block_min_gain(np.array(gains, np.int32), stereo) == expected


@pytest.mark.parametrize("fn,args,src,expected", [
    (tl.apply_fix_gain, (16384,), [-3, 3, 1 << 31], [-2, 1, 1 << 30]),
    (tl.no_limiter, (), [1 << 31, -5], [-(1 << 31), -5]),
    (tl.clipping_limiter, (), [1 << 31, -(1 << 40), 7], [(1 << 31) - 1, -(1 << 31), 7]),
    (tl.move_from_q33p31_to_q1p31, (), [1 << 31, -5], [-(1 << 31), -5]),
    (tl.clip_from_q33p31_to_q1p31, (), [1 << 31, -(1 << 40)], [(1 << 31) - 1, -(1 << 31)]),
])
def test_q33p31_to_q1p31_kernels(fn, args, src, expected):
    out = fn(np.array(src, np.int64), *args)
    assert out.dtype == np.int32
    assert out.tolist() == expected


F32, I32, I64 = np.float32, np.int32, np.int64


@pytest.mark.parametrize("fn,src_type,src,dtype,expected", [
    (tl.copy_float32_to_q33p31, F32, [-1.0, 0.5, 3.0], I64, [-2147483647, 1 << 30, 3 << 31]),
    (tl.convert_from_float32_to_q33p31, F32, [-1.0, 0.5], I64, [-2147483647, 1 << 30]),
    (tl.copy_q5p27_to_q33p31, I32, [1 << 27, -1], I64, [1 << 31, -16]),
    (tl.convert_from_q5p27_to_q33p31, I32, [1 << 27, -1], I64, [1 << 31, -16]),
    (tl.copy_q1p31_to_q5p27, I32, [-(1 << 31), -1], I32, [-(1 << 27), -1]),
    (tl.convert_from_float32_to_q5p27, F32, [16.0, -16.0, -17.0, np.nan, 0.25], I32,
     [(1 << 31) - 1, -(1 << 31) + 1, -(1 << 31), 0, 1 << 25]),
    (tl.convert_from_q33p31_to_q5p27, I64, [1 << 31, 1 << 30], I32, [-(1 << 27), 1 << 26]),
])
def test_integer_results_of_conversions(fn, src_type, src, dtype, expected):
    out = fn(np.array(src, src_type))
    assert out.dtype == dtype and out.tolist() == expected


@pytest.mark.parametrize("fn,src,expected", [
    (tl.copy_q1p31_to_float32, np.array([1 << 30, -(1 << 31)], np.int32), [0.5, -1.0]),
    (tl.convert_from_q33p31_to_float32, np.array([3 << 31, -(1 << 29)], np.int64), [3.0, -0.25]),
    (tl.convert_from_q5p27_to_float32, np.array([1 << 27, -(1 << 26)], np.int32), [1.0, -0.5]),
])
def test_float_results_of_conversions(fn, src, expected):
    out = fn(src)
    assert out.dtype == np.float32 and out.tolist() == expected


def test_ramp_table_and_version():
    assert tl.ramp_table().tolist() == [512 * i for i in range(64)]
    assert tl.version() == 0x127
    assert tl.version_text() == "Version: v1.2.7, Build Time: 2024-Jun-04 14:32"
    assert [tl.limiter_check_pcm_format(c) for c in (0, 2, 3)] == [0, 0, -1]
    assert [tl.limiter_check_state(c) for c in (1, 2)] == [0, -1]


def ramp_gains(start, end, frames):
    return [start + ((512 * i * (end - start)) >> 15) for i in range(frames)]


@pytest.mark.parametrize("dtype,one,fn", [
    (np.int64, 1 << 31, tl.apply_ramp_gain_for_q33p31),
    (np.float32, 1.0, tl.apply_ramp_gain_for_float32),
    (np.int32, 1 << 27, tl.apply_ramp_gain_for_q5p27),
])
@pytest.mark.parametrize("stereo", [False, True])
def test_fades_follow_the_ramp_per_frame(dtype, one, fn, stereo):
    frames = 64
    x = np.full((frames, 2) if stereo else frames, one, dtype)
    out = fn(x, 32767, 8000, stereo)
    np.testing.assert_array_equal(out, tl.fade(x, 32767, 8000, stereo))
    np.testing.assert_array_equal(out, fn(x, 32767, 8000))  # stereo told by the shape
    gains = np.array(ramp_gains(32767, 8000, frames))
    scaled = gains / 32768.0 if dtype == np.float32 else (int(one) * gains) >> 15
    per_frame = out if not stereo else out[:, 0]
    np.testing.assert_array_equal(per_frame, np.asarray(scaled, dtype))
    if stereo:
        np.testing.assert_array_equal(out[:, 0], out[:, 1])


def test_attack_and_release_kernels():
    x = np.full(64, 1 << 31, np.int64)
    att = tl.apply_targ_gain(x, 32767, 0)
    assert att.tolist() == [(1 << 31) * g >> 15 for g in ramp_gains(32767, 0, 64)]
    rel, end = tl.apply_step_gain_without_saturation(np.full((10, 2), 1 << 31, np.int64), 100, 4,
                                                     stereo=True)
    assert end == 100 + 10 * 4
    assert rel[:, 1].tolist() == [((1 << 31) * (100 + 4 * (k + 1))) >> 15 for k in range(10)]
    made = tl.apply_makeup_gain(np.array([1 << 30, 3], np.int32), 16384)
    assert made.tolist() == [1 << 29, 0]


def test_library_is_the_one_named_in_the_environment():
    import os
    wanted = os.environ.get("TAVIKLIMITER_LIB")
    if not wanted:
        pytest.skip("TAVIKLIMITER_LIB is not set (run through CTest to check the built library)")
    assert os.path.samefile(tl.library_path, wanted)
