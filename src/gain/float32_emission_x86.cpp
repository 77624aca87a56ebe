// A held float32 block leaving as float32, on x86-64 with AVX2: four samples
// at a time in double precision, where every step is exact.
//
//   t   = x * 2^31 + 0.5, one fused rounding (x * 2^31 is exact, so this is
//         the double the widening rule forms);
//   q   = trunc(t), the Q33.31 sample;
//   v   = floor(q * (g * 2^-15)), where g * 2^-15 is exact for every 32-bit
//         gain. Whenever v lies in the int32 range, q * g is below 2^46 in
//         magnitude, an integer that the product holds exactly, and v is the
//         Q15 rule's result (whose 64-bit product cannot have wrapped). A
//         product that rounded, or one from a q the rule would have
//         saturated, lies far beyond;
//   out = float(v) * 2^-31, with cvttpd2dq, exact for an integral v.
// At unity, cvttpd2dq truncates t itself. Outside the int32 range (and for
// NaN) cvttpd2dq gives 0x80000000: a group of eight with that value, which
// -1.0 can also be, goes through the scalar kernel, as do the last samples
// that make no whole group.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/sample_rules.h"
#include "common/simd_x86.h"

#if defined(__AVX2__)

namespace tvl::x86 {

namespace {

TVL_X86_INLINE __m128i at_unity4(const u8* src) { return _mm256_cvttpd_epi32(widening_double(load128f(src))); }

// gs: each sample's gain times 2^-15.
TVL_X86_INLINE __m128i scaled4(const u8* src, __m256d gs) {
    const __m256d q = _mm256_round_pd(widening_double(load128f(src)), _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    return _mm256_cvttpd_epi32(_mm256_round_pd(_mm256_mul_pd(q, gs), _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC));
}

// Stores the eight Q1.31 results as float32, unless one of them is
// 0x80000000; returns whether it stored.
TVL_X86_INLINE bool store8(u8* dst, __m128i lo, __m128i hi) {
    const __m256i v = _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
    const __m256i flagged = _mm256_cmpeq_epi32(v, _mm256_set1_epi32(INT32_MIN));
    if (!_mm256_testz_si256(flagged, flagged)) return false;
    store256f(dst, _mm256_mul_ps(_mm256_cvtepi32_ps(v), _mm256_set1_ps(0x1p-31f)));
    return true;
}

// Each pass writes its eight results over samples it has read, or below them:
// dst may equal src or lie below it.
bool vector_emission(const float* src, float* dst, size_t samples) {
    return ascending_groups_safe(src, samples * 4, dst, samples * 4);
}

}  // namespace

void emit_float32_at_unity(const float* src, float* dst, uint32_t count) {
    uint32_t done = 0;
    if (vector_emission(src, dst, count)) {
        done = whole_groups_or<8>(
            count, [&](size_t i) { return store8(at(dst, i, 4), at_unity4(at(src, i, 4)), at_unity4(at(src, i + 4, 4))); },
            [&](size_t i) { scalar::emit_float32_at_unity(src + i, dst + i, 8); });
    }
    scalar::emit_float32_at_unity(src + done, dst + done, count - done);
}

void emit_float32_fix_gain(int32_t gain, const float* src, float* dst, uint32_t count) {
    uint32_t done = 0;
    if (vector_emission(src, dst, count)) {
        __m256d gs;
        spread(_mm_set1_epi32(gain), gs);
        done = whole_groups_or<8>(
            count,
            [&](size_t i) { return store8(at(dst, i, 4), scaled4(at(src, i, 4), gs), scaled4(at(src, i + 4, 4), gs)); },
            [&](size_t i) { scalar::emit_float32_fix_gain(gain, src + i, dst + i, 8); });
    }
    scalar::emit_float32_fix_gain(gain, src + done, dst + done, count - done);
}

int32_t emit_float32_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src, float* dst,
                               const int32_t* ramp_table, uint32_t count) {
    const size_t samples = frame_samples(is_stereo, count);
    uint32_t done = 0;  // frames
    if (vector_emission(src, dst, samples) && !overlaps(ramp_table, size_t(count) * 4, dst, samples * 4)) {
        done = walk_frames_or(
            is_stereo, count, RampGains<ForEmission>(is_stereo, ramp_table, start_gain, end_gain),
            [&](size_t i, __m256d ga, __m256d gb) {
                return store8(at(dst, i, 4), scaled4(at(src, i, 4), ga), scaled4(at(src, i + 4, 4), gb));
            },
            [&](size_t i) {
                const size_t frame = is_stereo ? i / 2 : i;
                scalar::emit_float32_targ_gain(is_stereo, start_gain, end_gain, src + i, dst + i, ramp_table + frame,
                                               is_stereo ? 4 : 8);
            });
    }
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::emit_float32_targ_gain(is_stereo, start_gain, end_gain, src + skip, dst + skip, ramp_table + done,
                                          count - done);
}

int32_t emit_float32_step_gain(int32_t is_stereo, int32_t start_gain, int32_t step, const float* src, float* dst,
                               uint32_t count) {
    const size_t samples = frame_samples(is_stereo, count);
    uint32_t done = 0;  // frames
    if (vector_emission(src, dst, samples) && release_step_fits(start_gain, step, count)) {
        done = walk_frames_or(
            is_stereo, count, StepGains<ForEmission>(is_stereo, start_gain, step),
            [&](size_t i, __m256d ga, __m256d gb) {
                return store8(at(dst, i, 4), scaled4(at(src, i, 4), ga), scaled4(at(src, i + 4, 4), gb));
            },
            [&](size_t i) {
                const uint32_t frame = uint32_t(is_stereo ? i / 2 : i);
                scalar::emit_float32_step_gain(is_stereo, release_gain_reached(start_gain, step, frame), step,
                                               src + i, dst + i, is_stereo ? 4 : 8);
            });
    }
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::emit_float32_step_gain(is_stereo, release_gain_reached(start_gain, step, done), step, src + skip,
                                          dst + skip, count - done);
}

}  // namespace tvl::x86

#endif  // __AVX2__
#endif  // __x86_64__
