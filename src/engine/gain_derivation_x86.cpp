// Gain derivation on x86-64: the block peaks (the engine's way to a block's
// gain), with AVX2 and, for float32, with SSE2; and with AVX2 the exported
// per-sample derivation for ceilings of 0 and more (the engine derives per
// sample only for a negative ceiling) and the block minimum, eight samples
// per step: the unity test, and for groups with a sample above the threshold
// the whole derivation in vector lanes.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

// The peaks: a block's largest and smallest samples, widened, give its
// largest magnitude once widened, every widening being monotonic. The running
// extremes start at 0, whose magnitude changes nothing. maxps and minps
// return their second operand where either is NaN: with the running extreme
// second, a NaN sample (which widens to 0) is passed over, and the extremes
// stay numbers.

namespace {

// The extremes of the whole groups of floats at src in hi and lo; returns
// how many floats they hold.
#if defined(__AVX2__)
TVL_X86_INLINE uint32_t float32_extremes(const float* src, uint32_t count, __m128& hi, __m128& lo) {
    // Four pairs of running extremes, to quarter the chain of dependent steps.
    __m256 h0 = _mm256_setzero_ps(), l0 = h0, h1 = h0, l1 = h0, h2 = h0, l2 = h0, h3 = h0, l3 = h0;
    const uint32_t done = whole_groups<32>(count, [&](size_t i) {
        const __m256 a = load256f(at(src, i, 4)), b = load256f(at(src, i + 8, 4));
        const __m256 c = load256f(at(src, i + 16, 4)), d = load256f(at(src, i + 24, 4));
        h0 = _mm256_max_ps(a, h0), l0 = _mm256_min_ps(a, l0), h1 = _mm256_max_ps(b, h1), l1 = _mm256_min_ps(b, l1);
        h2 = _mm256_max_ps(c, h2), l2 = _mm256_min_ps(c, l2), h3 = _mm256_max_ps(d, h3), l3 = _mm256_min_ps(d, l3);
    });
    const __m256 h = _mm256_max_ps(_mm256_max_ps(h0, h1), _mm256_max_ps(h2, h3));
    const __m256 l = _mm256_min_ps(_mm256_min_ps(l0, l1), _mm256_min_ps(l2, l3));
    hi = _mm_max_ps(_mm256_castps256_ps128(h), _mm256_extractf128_ps(h, 1));
    lo = _mm_min_ps(_mm256_castps256_ps128(l), _mm256_extractf128_ps(l, 1));
    return done;
}
#else
TVL_X86_INLINE uint32_t float32_extremes(const float* src, uint32_t count, __m128& hi, __m128& lo) {
    hi = lo = _mm_setzero_ps();
    return whole_groups<4>(count, [&](size_t i) {
        const __m128 x = load128f(at(src, i, 4));
        hi = _mm_max_ps(x, hi);
        lo = _mm_min_ps(x, lo);
    });
}
#endif

}  // namespace

uint64_t peak_float32(const float* src, uint32_t count) {
    __m128 hi, lo;
    const uint32_t done = float32_extremes(src, count, hi, lo);
    hi = _mm_max_ps(hi, _mm_movehl_ps(hi, hi));
    hi = _mm_max_ss(hi, _mm_shuffle_ps(hi, hi, 1));
    lo = _mm_min_ps(lo, _mm_movehl_ps(lo, lo));
    lo = _mm_min_ss(lo, _mm_shuffle_ps(lo, lo, 1));
    // The two extremes widened together. top >= 0 >= bottom, neither NaN.
    // Below 2^32 in magnitude the rule's double t stays below 2^63, where
    // cvttsd2si truncates it exactly, and the widened words keep their signs
    // (t >= 0.5 for top, t <= 0.5 for bottom); beyond, the scalar rule
    // saturates.
    uint64_t r;
    const float top = _mm_cvtss_f32(hi), bottom = _mm_cvtss_f32(lo);
    if (top < 0x1p32f && bottom > -0x1p32f) {
        const __m128d x = _mm_cvtps_pd(_mm_unpacklo_ps(hi, lo));
        const __m128d t = _mm_add_pd(_mm_mul_pd(x, _mm_set1_pd(0x1p31)), _mm_set1_pd(0.5));
        const int64_t wide_top = _mm_cvttsd_si64(t), wide_bottom = _mm_cvttsd_si64(_mm_unpackhi_pd(t, t));
        r = uint64_t(wide_top > -wide_bottom ? wide_top : -wide_bottom);
    } else {
        const uint64_t a = magnitude(float32_to_q33p31(top)), b = magnitude(float32_to_q33p31(bottom));
        r = a > b ? a : b;
    }
    if (done == count) return r;
    const uint64_t rest = scalar::peak_float32(src + done, count - done);
    return rest > r ? rest : r;
}

#if defined(__AVX2__)

namespace {

// Lane-wise signed 64-bit extremes, which AVX2 lacks.
inline __m256i max_epi64(__m256i a, __m256i b) { return _mm256_blendv_epi8(a, b, _mm256_cmpgt_epi64(b, a)); }
inline __m256i min_epi64(__m256i a, __m256i b) { return _mm256_blendv_epi8(a, b, _mm256_cmpgt_epi64(a, b)); }

// The largest of eight unsigned lanes, and the smallest of eight signed ones.
inline uint32_t horizontal_max_u32(__m256i m) {
    __m128i h = _mm_max_epu32(_mm256_castsi256_si128(m), _mm256_extracti128_si256(m, 1));
    h = _mm_max_epu32(h, _mm_shuffle_epi32(h, _MM_SHUFFLE(1, 0, 3, 2)));
    h = _mm_max_epu32(h, _mm_shuffle_epi32(h, _MM_SHUFFLE(2, 3, 0, 1)));
    return uint32_t(_mm_cvtsi128_si32(h));
}
inline int32_t horizontal_min(__m256i m) {
    __m128i h = _mm_min_epi32(_mm256_castsi256_si128(m), _mm256_extracti128_si256(m, 1));
    h = _mm_min_epi32(h, _mm_shuffle_epi32(h, _MM_SHUFFLE(1, 0, 3, 2)));
    h = _mm_min_epi32(h, _mm_shuffle_epi32(h, _MM_SHUFFLE(2, 3, 0, 1)));
    return _mm_cvtsi128_si32(h);
}

// q = 2144993280 / d, truncated, for eight positive divisors, in double
// precision. Why the division is exact: for a = 2144993280 and a divisor
// 1 <= d < 2^31, a / d = q + r / d with q = floor(a / d) and the distance to
// q + 1 is at least 1 / d. Double precision rounds a / d by at most
// (q + 1) * 2^-53, which is below 1 / d because d * (q + 1) <= a + d < 2^32.
// So the rounded quotient never reaches q + 1, and truncating it gives q, the
// truncating 32-bit division, exactly.
inline __m256i quotients(__m256i d) {
    const __m256d a = _mm256_set1_pd(double(kTargetLevel));
    const __m128i q0 = _mm256_cvttpd_epi32(_mm256_div_pd(a, _mm256_cvtepi32_pd(_mm256_castsi256_si128(d))));
    const __m128i q1 = _mm256_cvttpd_epi32(_mm256_div_pd(a, _mm256_cvtepi32_pd(_mm256_extracti128_si256(d, 1))));
    return _mm256_inserti128_si256(_mm256_castsi128_si256(q0), q1, 1);
}

// Gains of the eight samples at src, in order, for a ceiling 0 <= c <= 32767
// and its threshold (0 <= threshold < 2^31). Lanes stay in the in-lane order
// of the 256-bit shuffles (0, 1, 4, 5, 2, 3, 6, 7) until the result is put
// back in order.
TVL_X86_INLINE __m256i gains8(const u8* src, int32_t c, int32_t threshold) {
    const __m256 a = load256f(src), b = load256f(src + 32);
    const __m256i lo = _mm256_castps_si256(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
    const __m256i hi = _mm256_castps_si256(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
    const __m256i unity = _mm256_set1_epi32(kUnityGain);
    // -threshold <= x <= threshold holds exactly when x fits in 32 bits (the
    // high half is the sign of the low half) and the low half lies in that
    // range.
    const __m256i fits = _mm256_cmpeq_epi32(hi, _mm256_srai_epi32(lo, 31));
    const __m256i outside = _mm256_or_si256(_mm256_cmpgt_epi32(lo, _mm256_set1_epi32(threshold)),
                                            _mm256_cmpgt_epi32(_mm256_set1_epi32(-threshold), lo));
    const __m256i u = _mm256_andnot_si256(outside, fits);
    if (_mm256_movemask_epi8(u) == -1) return unity;
    // Divisor of each lane: d = |x| >> 15, or INT32_MAX (quotient 0, gain 0)
    // where d is 0 or |x| >= 2^46 (d >= 2^31). |x| is formed as a 64-bit
    // number from the two halves: for negative x, -x = ~x + 1, the carry
    // reaching the high half only when the low half is 0; -2^63 gives 2^63.
    const __m256i zero = _mm256_setzero_si256();
    const __m256i s = _mm256_srai_epi32(hi, 31);
    const __m256i m_lo = _mm256_sub_epi32(_mm256_xor_si256(lo, s), s);
    const __m256i m_hi = _mm256_sub_epi32(_mm256_xor_si256(hi, s), _mm256_and_si256(s, _mm256_cmpeq_epi32(lo, zero)));
    const __m256i d = _mm256_or_si256(_mm256_srli_epi32(m_lo, 15), _mm256_slli_epi32(m_hi, 17));
    const __m256i below_2p46 = _mm256_cmpeq_epi32(_mm256_srli_epi32(m_hi, 14), zero);
    const __m256i usable = _mm256_andnot_si256(_mm256_cmpgt_epi32(_mm256_set1_epi32(1), d), below_2p46);
    const __m256i q = quotients(_mm256_blendv_epi8(_mm256_set1_epi32(INT32_MAX), d, usable));
    // (c * q) >> 15, low 32 bits: bits 15 to 46 of the products of the even
    // lanes and of the odd lanes, put together; then bit 0 cleared.
    const __m256i cu = _mm256_set1_epi32(c);
    const __m256i even = _mm256_srli_epi64(_mm256_mul_epu32(q, cu), 15);
    const __m256i odd = _mm256_slli_epi64(_mm256_mul_epu32(_mm256_srli_epi64(q, 32), cu), 17);
    const __m256i r = _mm256_and_si256(_mm256_blend_epi32(even, odd, 0xAA), _mm256_set1_epi32(~1));
    return _mm256_permute4x64_epi64(_mm256_blendv_epi8(r, unity, u), _MM_SHUFFLE(3, 1, 2, 0));
}

}  // namespace

void derive_gain(const int64_t* src, int32_t* gains, uint32_t count, int32_t ceiling, int32_t stride) {
    // A negative ceiling (which no entry point sets) takes the scalar kernel.
    const int32_t c = ceiling_q15(ceiling);
    if (stride != 1 || c < 0 || overlaps(src, size_t(count) * 8, gains, size_t(count) * 4)) {
        scalar::derive_gain(src, gains, count, ceiling, stride);
        return;
    }
    const int32_t threshold = int32_t(gain_threshold(c));
    const uint32_t done =
        whole_groups<8>(count, [&](size_t i) { store256(at(gains, i, 4), gains8(at(src, i, 8), c, threshold)); });
    scalar::derive_gain(src + done, gains + done, count - done, ceiling, 1);
}

uint64_t peak_q33p31(const int64_t* src, uint32_t count) {
    __m256i hi = _mm256_setzero_si256(), lo = _mm256_setzero_si256();
    const uint32_t done = whole_groups<8>(count, [&](size_t i) {
        const __m256i a = load256(at(src, i, 8)), b = load256(at(src, i + 4, 8));
        hi = max_epi64(hi, max_epi64(a, b));
        lo = min_epi64(lo, min_epi64(a, b));
    });
    u8 lanes[64];
    store256(lanes, hi);
    store256(lanes + 32, lo);
    // The eight extremes by the scalar loop, with the samples left over.
    const uint64_t rest = scalar::peak_q33p31(src + done, count - done);
    const uint64_t extremes = scalar::peak_q33p31(reinterpret_cast<const int64_t*>(lanes), 8);
    return extremes > rest ? extremes : rest;
}

uint64_t peak_q5p27(const int32_t* src, uint32_t count) {
    // vpabsd leaves -2^31 as 0x80000000, which read unsigned is its magnitude;
    // the widening multiplies every magnitude by 16.
    __m256i m = _mm256_setzero_si256();
    const uint32_t done =
        whole_groups<8>(count, [&](size_t i) { m = _mm256_max_epu32(m, _mm256_abs_epi32(load256(at(src, i, 4)))); });
    const uint64_t vector_peak = uint64_t(horizontal_max_u32(m)) << 4;
    if (done == count) return vector_peak;
    const uint64_t rest = scalar::peak_q5p27(src + done, count - done);
    return rest > vector_peak ? rest : vector_peak;
}

int32_t calculate_block_min_gain(int32_t is_stereo, const int32_t* gains, int32_t count, int32_t stride) {
    // The minimum does not depend on the order of the words, so a stereo block
    // (two consecutive words a frame) and a mono one with stride 1 are both a
    // plain run of words.
    if (count < 1 || (!is_stereo && stride != 1)) return scalar::calculate_block_min_gain(is_stereo, gains, count, stride);
    const uint32_t words = is_stereo ? uint32_t(count) * 2 : uint32_t(count);
    __m256i m = _mm256_set1_epi32(kUnityGain);
    const uint32_t done = whole_groups<8>(words, [&](size_t i) { m = _mm256_min_epi32(m, load256(at(gains, i, 4))); });
    // done is even, so the words left over are whole frames in stereo.
    const int32_t rest_words = int32_t(words - done);
    const int32_t rest =
        scalar::calculate_block_min_gain(is_stereo, gains + done, is_stereo ? rest_words / 2 : rest_words, 1);
    const int32_t vector_min = horizontal_min(m);
    return rest < vector_min ? rest : vector_min;
}

#endif  // __AVX2__

}  // namespace tvl::x86

#endif  // __x86_64__
