// Block boundary copies on x86-64.
//
// float32 -> Q33.31 (x * 2^31 + 0.5 in double, then toward zero to int64):
// x86 has no double -> int64 conversion before AVX-512, so each group takes
// the cheapest exact route its samples allow:
//   - with AVX2, below 2^20 in magnitude: t truncated by roundpd and moved
//     into the low mantissa bits by adding 1.5 * 2^52 (widened_below_2p20);
//   - with SSE2, below full scale: cvttpd2dq on t, exact for |t| < 2^31.
//     Beyond that range (and for NaN) it gives the 0x80000000 sentinel;
//   - otherwise the double t rounded by a magic number: |t| + 2^52 puts the
//     integer nearest to |t| in the low mantissa bits (round to nearest,
//     exact while |t| < 2^52), less 1 where that rounded up gives floor(|t|),
//     and the sign of t is put back. Lanes with |t| >= 2^52, infinities and
//     NaN go to the scalar rule, which saturates them.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

namespace {

constexpr double kTwo31 = 0x1p31;
constexpr double kTwo52 = 0x1p52;

// toward-zero int64 of t for |t| < 2^52; ok is all ones in those lanes.
inline __m128i truncate_wide(__m128d t, __m128d& ok) {
    const __m128d magnitude = _mm_and_pd(t, _mm_castsi128_pd(_mm_set1_epi64x(INT64_MAX)));
    const __m128d big = _mm_set1_pd(kTwo52);
    ok = _mm_cmplt_pd(magnitude, big);
    const __m128d shifted = _mm_add_pd(magnitude, big);  // 2^52 + round(|t|)
    const __m128d rounded = _mm_sub_pd(shifted, big);
    __m128i n = _mm_sub_epi64(_mm_castpd_si128(shifted), _mm_castpd_si128(big));
    n = _mm_add_epi64(n, _mm_castpd_si128(_mm_cmpgt_pd(rounded, magnitude)));  // -1 where rounded up
    const __m128i negative = _mm_castpd_si128(_mm_cmplt_pd(t, _mm_setzero_pd()));
    return _mm_sub_epi64(_mm_xor_si128(n, negative), negative);
}

inline __m128d scaled(__m128 x_pair_in_low_half) {
    return _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(x_pair_in_low_half), _mm_set1_pd(kTwo31)), _mm_set1_pd(0.5));
}

// Four samples the long way; lanes out of its range by the scalar rule.
inline void float32_to_q33p31_wide4(const u8* src, u8* dst) {
    const __m128 x = load128f(src);
    __m128d ok0, ok1;
    const __m128i r0 = truncate_wide(scaled(x), ok0);
    const __m128i r1 = truncate_wide(scaled(_mm_movehl_ps(x, x)), ok1);
    store128(dst, r0);
    store128(dst + 16, r1);
    if ((_mm_movemask_pd(ok0) & _mm_movemask_pd(ok1)) != 3) {
        for (int j = 0; j < 4; ++j) store<int64_t>(dst, j, float32_to_q33p31(load<float>(src, j)));
    }
}

#if defined(__AVX2__)
// The scalar rule's double t = x * 2^31 + 0.5 for |x| < 2^20 (fused: x * 2^31
// is exact, so one rounding gives the same t), truncated toward zero, as the
// int64 it holds: |trunc(t)| < 2^51, so trunc(t) + 1.5 * 2^52 lies in
// [2^52, 2^53), where a double's bits count units of 1 from 2^52.
inline __m256i widened_below_2p20(__m128 x) {
    const __m256d magic = _mm256_set1_pd(0x1.8p52);
#if defined(__FMA__)
    const __m256d t = _mm256_fmadd_pd(_mm256_cvtps_pd(x), _mm256_set1_pd(kTwo31), _mm256_set1_pd(0.5));
#else
    const __m256d t = _mm256_add_pd(_mm256_mul_pd(_mm256_cvtps_pd(x), _mm256_set1_pd(kTwo31)), _mm256_set1_pd(0.5));
#endif
    const __m256d whole = _mm256_round_pd(t, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    return _mm256_sub_epi64(_mm256_castpd_si256(_mm256_add_pd(whole, magic)), _mm256_castpd_si256(magic));
}

inline __m256i truncate_wide(__m256d t, __m256d& ok) {
    const __m256d magnitude = _mm256_and_pd(t, _mm256_castsi256_pd(_mm256_set1_epi64x(INT64_MAX)));
    const __m256d big = _mm256_set1_pd(kTwo52);
    ok = _mm256_cmp_pd(magnitude, big, _CMP_LT_OQ);
    const __m256d shifted = _mm256_add_pd(magnitude, big);
    const __m256d rounded = _mm256_sub_pd(shifted, big);
    __m256i n = _mm256_sub_epi64(_mm256_castpd_si256(shifted), _mm256_castpd_si256(big));
    n = _mm256_add_epi64(n, _mm256_castpd_si256(_mm256_cmp_pd(rounded, magnitude, _CMP_GT_OQ)));
    const __m256i negative = _mm256_castpd_si256(_mm256_cmp_pd(t, _mm256_setzero_pd(), _CMP_LT_OQ));
    return _mm256_sub_epi64(_mm256_xor_si256(n, negative), negative);
}
#endif

}  // namespace

void copy_float32_to_q33p31(const float* src, int64_t* dst, uint32_t count) {
    if (overlaps(src, size_t(count) * 4, dst, size_t(count) * 8)) {
        scalar::copy_float32_to_q33p31(src, dst, count);
        return;
    }
    const __m128i sentinel = _mm_set1_epi32(INT32_MIN);
    uint32_t i = 0;
#if TVL_X86_AVX512
    // vcvttpd2qq truncates the scalar rule's double to int64 directly; NaN
    // and values beyond the range give INT64_MIN, and a group with one goes
    // to the scalar rule (which gives INT64_MIN too for the lowest values).
    for (; i + 8 <= count; i += 8) {
        const __m512d t = _mm512_add_pd(
            _mm512_mul_pd(_mm512_maskz_cvtps_pd(0xFF, _mm256_loadu_ps(reinterpret_cast<const float*>(at(src, i, 4)))),
                          _mm512_set1_pd(kTwo31)),
            _mm512_set1_pd(0.5));
        const __m512i r = _mm512_maskz_cvttpd_epi64(0xFF, t);
        _mm512_storeu_si512(at(dst, i, 8), r);
        if (_mm512_cmpeq_epi64_mask(r, _mm512_set1_epi64(INT64_MIN)) != 0) {
            for (int j = 0; j < 8; ++j) store<int64_t>(at(dst, i, 8), j, float32_to_q33p31(load<float>(at(src, i, 4), j)));
        }
    }
#endif
#if defined(__AVX2__)
    const __m256 magnitude_bits = _mm256_castsi256_ps(_mm256_set1_epi32(INT32_MAX));
    for (; i + 8 <= count; i += 8) {
        const __m256 x = _mm256_loadu_ps(reinterpret_cast<const float*>(at(src, i, 4)));
        const __m256 in_range = _mm256_cmp_ps(_mm256_and_ps(x, magnitude_bits), _mm256_set1_ps(0x1p20f), _CMP_LT_OQ);
        if (_mm256_movemask_ps(in_range) == 0xFF) {  // NaN fails the test
            store256(at(dst, i, 8), widened_below_2p20(_mm256_castps256_ps128(x)));
            store256(at(dst, i + 4, 8), widened_below_2p20(_mm256_extractf128_ps(x, 1)));
            continue;
        }
        // Anything else in double precision, as the scalar rule computes it.
        const __m256d two31 = _mm256_set1_pd(kTwo31), half = _mm256_set1_pd(0.5);
        const __m256d t0 = _mm256_add_pd(_mm256_mul_pd(_mm256_cvtps_pd(_mm256_castps256_ps128(x)), two31), half);
        const __m256d t1 = _mm256_add_pd(_mm256_mul_pd(_mm256_cvtps_pd(_mm256_extractf128_ps(x, 1)), two31), half);
        __m256d ok0, ok1;
        store256(at(dst, i, 8), truncate_wide(t0, ok0));
        store256(at(dst, i + 4, 8), truncate_wide(t1, ok1));
        if (_mm256_movemask_pd(_mm256_and_pd(ok0, ok1)) != 0xF) {
            for (int j = 0; j < 8; ++j) store<int64_t>(at(dst, i, 8), j, float32_to_q33p31(load<float>(at(src, i, 4), j)));
        }
    }
#endif
    for (; i + 4 <= count; i += 4) {
        const __m128 x = load128f(at(src, i, 4));
        const __m128i r = _mm_unpacklo_epi64(_mm_cvttpd_epi32(scaled(x)), _mm_cvttpd_epi32(scaled(_mm_movehl_ps(x, x))));
        if (_mm_movemask_epi8(_mm_cmpeq_epi32(r, sentinel)) != 0) {
            float32_to_q33p31_wide4(at(src, i, 4), at(dst, i, 8));
            continue;
        }
        __m128i lo, hi;
        widen_epi32(r, lo, hi);
        store128(at(dst, i, 8), lo);
        store128(at(dst, i + 2, 8), hi);
    }
    scalar::copy_float32_to_q33p31(src + i, dst + i, count - i);
}

void copy_q1p31_to_float32(const int32_t* src, float* dst, uint32_t count) {
    uint32_t i = 0;
    if (ascending_groups_safe(src, size_t(count) * 4, dst, size_t(count) * 4)) {
#if TVL_X86_AVX512
        for (; i + 16 <= count; i += 16) {
            const __m512 f = _mm512_mul_ps(_mm512_maskz_cvtepi32_ps(0xFFFF, _mm512_loadu_si512(at(src, i, 4))), _mm512_set1_ps(0x1p-31f));
            _mm512_storeu_ps(at(dst, i, 4), f);
        }
#endif
#if defined(__AVX2__)
        const __m256 scale8 = _mm256_set1_ps(0x1p-31f);
        for (; i + 8 <= count; i += 8) {
            const __m256 f = _mm256_mul_ps(_mm256_cvtepi32_ps(load256(at(src, i, 4))), scale8);
            _mm256_storeu_ps(reinterpret_cast<float*>(at(dst, i, 4)), f);
        }
#endif
        const __m128 scale = _mm_set1_ps(0x1p-31f);
        for (; i + 4 <= count; i += 4) store128f(at(dst, i, 4), _mm_mul_ps(_mm_cvtepi32_ps(load128(at(src, i, 4))), scale));
    }
    scalar::copy_q1p31_to_float32(src + i, dst + i, count - i);
}

void copy_q5p27_to_q33p31(const int32_t* src, int64_t* dst, uint32_t count) {
    uint32_t i = 0;
    if (!overlaps(src, size_t(count) * 4, dst, size_t(count) * 8)) {
#if TVL_X86_AVX512
        for (; i + 8 <= count; i += 8) {
            const __m512i w = _mm512_maskz_cvtepi32_epi64(0xFF, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at(src, i, 4))));
            _mm512_storeu_si512(at(dst, i, 8), _mm512_slli_epi64(w, 4));
        }
#endif
#if defined(__AVX2__)
        for (; i + 8 <= count; i += 8) {
            const __m256i a = _mm256_cvtepi32_epi64(load128(at(src, i, 4)));
            const __m256i b = _mm256_cvtepi32_epi64(load128(at(src, i + 4, 4)));
            store256(at(dst, i, 8), _mm256_slli_epi64(a, 4));
            store256(at(dst, i + 4, 8), _mm256_slli_epi64(b, 4));
        }
#endif
        for (; i + 4 <= count; i += 4) {
            __m128i lo, hi;
            widen_epi32(load128(at(src, i, 4)), lo, hi);
            store128(at(dst, i, 8), _mm_slli_epi64(lo, 4));
            store128(at(dst, i + 2, 8), _mm_slli_epi64(hi, 4));
        }
    }
    scalar::copy_q5p27_to_q33p31(src + i, dst + i, count - i);
}

void copy_q1p31_to_q5p27(const int32_t* src, int32_t* dst, uint32_t count) {
    uint32_t i = 0;
    if (ascending_groups_safe(src, size_t(count) * 4, dst, size_t(count) * 4)) {
#if defined(__AVX2__)
        for (; i + 8 <= count; i += 8) store256(at(dst, i, 4), _mm256_srai_epi32(load256(at(src, i, 4)), 4));
#endif
        for (; i + 4 <= count; i += 4) store128(at(dst, i, 4), _mm_srai_epi32(load128(at(src, i, 4)), 4));
    }
    scalar::copy_q1p31_to_q5p27(src + i, dst + i, count - i);
}

}  // namespace tvl::x86

#endif  // __x86_64__
