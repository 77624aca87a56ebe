// A held float32 block leaving as float32, on x86-64 with AVX2: four samples
// at a time in double precision, where every step is exact.
//
//   t   = x * 2^31 + 0.5, one fused rounding (x * 2^31 is exact, so this is
//         the double the widening rule forms);
//   q   = trunc(t), the Q33.31 sample;
//   v   = floor(q * (g * 2^-15)), where g * 2^-15 is exact for every gain
//         (below 2^38 in magnitude, even a release gain). Whenever v lies in
//         the int32 range, q * g is below 2^46 in magnitude, an integer that
//         the product holds exactly, and v is the Q15 rule's result (whose
//         64-bit product cannot have wrapped). A product that rounded, or
//         one from a q the rule would have saturated, lies far beyond;
//   out = float(v) * 2^-31, with cvttpd2dq, exact for an integral v.
// At unity, cvttpd2dq truncates t itself. Outside the int32 range (and for
// NaN) cvttpd2dq gives 0x80000000: a group of eight with that value, which
// -1.0 can also be, goes through the per-sample rule, as do the last count
// mod 8 samples.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/sample_rules.h"
#include "common/simd_x86.h"

#if defined(__AVX2__)

namespace tvl::x86 {

namespace {

inline __m256d widening_double(const u8* src) {
    const __m256d x = _mm256_cvtps_pd(load128f(src));
#if defined(__FMA__)
    return _mm256_fmadd_pd(x, _mm256_set1_pd(0x1p31), _mm256_set1_pd(0.5));
#else
    return _mm256_add_pd(_mm256_mul_pd(x, _mm256_set1_pd(0x1p31)), _mm256_set1_pd(0.5));
#endif
}

TVL_X86_INLINE __m128i at_unity4(const u8* src) { return _mm256_cvttpd_epi32(widening_double(src)); }

// gs: each sample's gain times 2^-15.
TVL_X86_INLINE __m128i scaled4(const u8* src, __m256d gs) {
    const __m256d q = _mm256_round_pd(widening_double(src), _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    return _mm256_cvttpd_epi32(_mm256_round_pd(_mm256_mul_pd(q, gs), _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC));
}

// Stores the eight Q1.31 results as float32, unless one of them is
// 0x80000000; returns whether it stored.
TVL_X86_INLINE bool store8(u8* dst, __m128i lo, __m128i hi) {
    const __m256i v = _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
    const __m256i flagged = _mm256_cmpeq_epi32(v, _mm256_set1_epi32(INT32_MIN));
    if (!_mm256_testz_si256(flagged, flagged)) return false;
    _mm256_storeu_ps(reinterpret_cast<float*>(dst), _mm256_mul_ps(_mm256_cvtepi32_ps(v), _mm256_set1_ps(0x1p-31f)));
    return true;
}

}  // namespace

void emit_float32_at_unity(const float* src, float* dst, uint32_t count) {
    uint32_t i = 0;
    if (ascending_groups_safe(src, count * 4, dst, count * 4)) {
        for (; i + 8 <= count; i += 8) {
            if (!store8(at(dst, i, 4), at_unity4(at(src, i, 4)), at_unity4(at(src, i + 4, 4)))) {
                scalar::emit_float32_at_unity(src + i, dst + i, 8);
            }
        }
    }
    scalar::emit_float32_at_unity(src + i, dst + i, count - i);
}

void emit_float32_fix_gain(int32_t gain, const float* src, float* dst, uint32_t count) {
    uint32_t i = 0;
    if (ascending_groups_safe(src, count * 4, dst, count * 4)) {
        const __m256d gs = _mm256_set1_pd(gain * 0x1p-15);
        for (; i + 8 <= count; i += 8) {
            if (!store8(at(dst, i, 4), scaled4(at(src, i, 4), gs), scaled4(at(src, i + 4, 4), gs))) {
                scalar::emit_float32_fix_gain(gain, src + i, dst + i, 8);
            }
        }
    }
    scalar::emit_float32_fix_gain(gain, src + i, dst + i, count - i);
}

int32_t emit_float32_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src, float* dst,
                               const int32_t* ramp_table, uint32_t count) {
    const size_t samples = is_stereo ? size_t(count) * 2 : size_t(count);
    uint32_t f = 0;  // frames done
    if (ascending_groups_safe(src, samples * 4, dst, samples * 4) &&
        !overlaps(ramp_table, size_t(count) * 4, dst, samples * 4)) {
        const __m128i start = _mm_set1_epi32(start_gain);
        const __m128i diff = _mm_set1_epi32(int32_t(uint32_t(end_gain) - uint32_t(start_gain)));
        // The ramp gains of four frames (the ramp rule in 32-bit lanes), times 2^-15.
        const auto gains4 = [&](uint32_t frame) {
            const __m128i product = _mm_mullo_epi32(load128(at(ramp_table, frame, 4)), diff);
            const __m128i g = _mm_add_epi32(start, _mm_srai_epi32(product, 15));
            return _mm256_mul_pd(_mm256_cvtepi32_pd(g), _mm256_set1_pd(0x1p-15));
        };
        const uint32_t frames_per_group = is_stereo ? 4 : 8;
        for (; f + frames_per_group <= count; f += frames_per_group) {
            const size_t i = is_stereo ? size_t(f) * 2 : f;
            __m256d ga, gb;
            if (is_stereo) {
                const __m256d g = gains4(f);
                ga = _mm256_permute4x64_pd(g, _MM_SHUFFLE(1, 1, 0, 0));
                gb = _mm256_permute4x64_pd(g, _MM_SHUFFLE(3, 3, 2, 2));
            } else {
                ga = gains4(f);
                gb = gains4(f + 4);
            }
            if (!store8(at(dst, i, 4), scaled4(at(src, i, 4), ga), scaled4(at(src, i + 4, 4), gb))) {
                scalar::emit_float32_targ_gain(is_stereo, start_gain, end_gain, src + i, dst + i, ramp_table + f,
                                               frames_per_group);
            }
        }
    }
    const size_t done = is_stereo ? size_t(f) * 2 : size_t(f);
    return scalar::emit_float32_targ_gain(is_stereo, start_gain, end_gain, src + done, dst + done, ramp_table + f,
                                          count - f);
}

int32_t emit_float32_step_gain(int32_t is_stereo, int32_t start_gain, int32_t step, const float* src, float* dst,
                               uint32_t count) {
    const size_t samples = is_stereo ? size_t(count) * 2 : size_t(count);
    // Samples [from, to) by the rule (a scalar call could not start from a
    // gain beyond 32 bits).
    const auto by_rule = [&](size_t from, size_t to) {
        for (size_t j = from; j < to; ++j) {
            const int64_t g = release_gain(start_gain, step, uint32_t(is_stereo ? j / 2 : j));
            store<float>(dst, ptrdiff_t(j), float32_scaled_q15(load<float>(src, ptrdiff_t(j)), g));
        }
    };
    size_t i = 0;
    if (ascending_groups_safe(src, samples * 4, dst, samples * 4)) {
        // Times 2^-15 the gains are multiples of 2^-15 below 2^23 in
        // magnitude, which the additions keep exact.
        const auto gs = [&](uint32_t frame) { return double(release_gain(start_gain, step, frame)) * 0x1p-15; };
        __m256d ga = is_stereo ? _mm256_setr_pd(gs(0), gs(0), gs(1), gs(1)) : _mm256_setr_pd(gs(0), gs(1), gs(2), gs(3));
        __m256d gb = is_stereo ? _mm256_setr_pd(gs(2), gs(2), gs(3), gs(3)) : _mm256_setr_pd(gs(4), gs(5), gs(6), gs(7));
        const __m256d g_step = _mm256_set1_pd(double(step) * (is_stereo ? 4 : 8) * 0x1p-15);
        for (; i + 8 <= samples; i += 8) {
            if (!store8(at(dst, i, 4), scaled4(at(src, i, 4), ga), scaled4(at(src, i + 4, 4), gb))) by_rule(i, i + 8);
            ga = _mm256_add_pd(ga, g_step);
            gb = _mm256_add_pd(gb, g_step);
        }
    }
    by_rule(i, samples);
    return count == 0 ? start_gain : int32_t(uint32_t(uint64_t(release_gain(start_gain, step, count - 1))));
}

}  // namespace tvl::x86

#endif  // __AVX2__
#endif  // __x86_64__
