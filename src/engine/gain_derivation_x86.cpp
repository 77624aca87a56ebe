// Gain derivation on x86-64: the unity test for four (eight with AVX2) samples
// at a time, and for groups with a sample above the threshold the whole
// derivation in vector lanes, the 32-bit division done in double precision.
//
// Why the division is exact: for a = 2144993280 and a divisor 1 <= d < 2^31,
// a / d = q + r / d with q = floor(a / d) and the distance to q + 1 is at
// least 1 / d. Double precision rounds a / d by at most (q + 1) * 2^-53, which
// is below 1 / d because d * (q + 1) <= a + d < 2^32. So the rounded quotient
// never reaches q + 1, and truncating it gives q, the truncating 32-bit
// division, exactly.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

namespace {

// Per-call constants, formed once from the ceiling.
struct Derivation {
    int32_t c;           // the ceiling, sign-extended from 16 bits
    int64_t threshold;   // largest magnitude needing no reduction (< 2^31)
    bool unity_possible; // false for a negative ceiling: every sample is reduced
};

Derivation derivation(int32_t ceiling) {
    Derivation k;
    k.c = ceiling_q15(ceiling);
    k.threshold = gain_threshold(k.c);
    k.unity_possible = k.threshold >= 0;
    return k;
}

// Four samples given as their low halves lo and high halves hi (lane i is
// sample i): all ones where -threshold <= x <= threshold. With
// 0 <= threshold < 2^31 that holds exactly when x fits in 32 bits (the high
// half is the sign of the low half) and the low half lies in that range.
inline __m128i unity_lanes(__m128i lo, __m128i hi, __m128i t, __m128i neg_t) {
    const __m128i fits = _mm_cmpeq_epi32(hi, _mm_srai_epi32(lo, 31));
    const __m128i outside = _mm_or_si128(_mm_cmpgt_epi32(lo, t), _mm_cmpgt_epi32(neg_t, lo));
    return _mm_andnot_si128(outside, fits);
}

// Divisor of each lane: d = |x| >> 15, or INT32_MAX (quotient 0, gain 0) where
// d is 0 or |x| >= 2^46 (d >= 2^31). |x| is formed as a 64-bit number from the
// two halves: for negative x, -x = ~x + 1, the carry reaching the high half
// only when the low half is 0; -2^63 gives 2^63.
inline __m128i divisors(__m128i lo, __m128i hi) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i s = _mm_srai_epi32(hi, 31);
    const __m128i m_lo = _mm_sub_epi32(_mm_xor_si128(lo, s), s);
    const __m128i m_hi = _mm_sub_epi32(_mm_xor_si128(hi, s), _mm_and_si128(s, _mm_cmpeq_epi32(lo, zero)));
    const __m128i d = _mm_or_si128(_mm_srli_epi32(m_lo, 15), _mm_slli_epi32(m_hi, 17));
    const __m128i below_2p46 = _mm_cmpeq_epi32(_mm_srli_epi32(m_hi, 14), zero);
    const __m128i usable = _mm_andnot_si128(_mm_cmpgt_epi32(_mm_set1_epi32(1), d), below_2p46);
    return select(usable, d, _mm_set1_epi32(INT32_MAX));
}

// q = 2144993280 / d, truncated, for four positive divisors.
inline __m128i quotients(__m128i d) {
    const __m128d a = _mm_set1_pd(double(kTargetLevel));
    const __m128i q01 = _mm_cvttpd_epi32(_mm_div_pd(a, _mm_cvtepi32_pd(d)));
    const __m128i q23 = _mm_cvttpd_epi32(_mm_div_pd(a, _mm_cvtepi32_pd(_mm_shuffle_epi32(d, _MM_SHUFFLE(3, 2, 3, 2)))));
    return _mm_unpacklo_epi64(q01, q23);
}

// ((c * q) >> 15) with bit 0 cleared, low 32 bits, for 0 <= q < 2^31: bits 15
// to 46 of the unsigned product q * (c mod 2^32), less q << 17 when c is
// negative (the unsigned c exceeds c by 2^32).
inline __m128i reduced_from_quotients(__m128i q, int32_t c) {
    const __m128i cu = _mm_set1_epi32(c);
    const __m128i even = _mm_srli_epi64(_mm_mul_epu32(q, cu), 15);
    const __m128i odd = _mm_slli_epi64(_mm_mul_epu32(_mm_srli_epi64(q, 32), cu), 17);
    const __m128i low_mask = _mm_set_epi32(0, -1, 0, -1);
    __m128i r = _mm_or_si128(_mm_and_si128(even, low_mask), _mm_andnot_si128(low_mask, odd));
    if (c < 0) r = _mm_sub_epi32(r, _mm_slli_epi32(q, 17));
    return _mm_and_si128(r, _mm_set1_epi32(~1));
}

// Gains of the four samples at src.
TVL_X86_INLINE __m128i gains4(const u8* src, const Derivation& k) {
    const __m128i a = load128(src), b = load128(src + 16);
    const __m128i lo = low_halves(a, b), hi = high_halves(a, b);
    const __m128i unity = _mm_set1_epi32(kUnityGain);
    __m128i u = _mm_setzero_si128();
    if (k.unity_possible) {
        u = unity_lanes(lo, hi, _mm_set1_epi32(int32_t(k.threshold)), _mm_set1_epi32(int32_t(-k.threshold)));
        if (_mm_movemask_epi8(u) == 0xFFFF) return unity;
    }
    return select(u, unity, reduced_from_quotients(quotients(divisors(lo, hi)), k.c));
}

#if defined(__AVX2__)

// The AVX2 forms of the helpers above, for eight samples. Lanes stay in the
// in-lane order of the 256-bit shuffles (0, 1, 4, 5, 2, 3, 6, 7) until the
// result is put back in order.
inline __m256i select256(__m256i mask, __m256i yes, __m256i no) { return _mm256_blendv_epi8(no, yes, mask); }

inline __m256i quotients(__m256i d) {
    const __m256d a = _mm256_set1_pd(double(kTargetLevel));
    const __m128i q0 = _mm256_cvttpd_epi32(_mm256_div_pd(a, _mm256_cvtepi32_pd(_mm256_castsi256_si128(d))));
    const __m128i q1 = _mm256_cvttpd_epi32(_mm256_div_pd(a, _mm256_cvtepi32_pd(_mm256_extracti128_si256(d, 1))));
    return _mm256_inserti128_si256(_mm256_castsi128_si256(q0), q1, 1);
}

// The same quotients in single precision, for divisors 2^15 <= d < 2^30 (or
// INT32_MAX, quotient 0). There a / d < 2^16 and float(d) and the division
// each round by at most 2^-24 relative, so the truncated float quotient is q
// or q +- 1; the remainder a - q' * d (exact in 32 bits, inside (-2^30, 2^31))
// says which, and one step puts it right.
inline __m256i quotients_single(__m256i d) {
    const __m256i a = _mm256_set1_epi32(kTargetLevel);
    const __m256i q = _mm256_cvttps_epi32(_mm256_div_ps(_mm256_set1_ps(float(kTargetLevel)), _mm256_cvtepi32_ps(d)));
    const __m256i r = _mm256_sub_epi32(a, _mm256_mullo_epi32(q, d));
    const __m256i too_small = _mm256_cmpgt_epi32(r, _mm256_sub_epi32(d, _mm256_set1_epi32(1)));  // r >= d
    const __m256i too_large = _mm256_cmpgt_epi32(_mm256_setzero_si256(), r);                      // r < 0
    return _mm256_add_epi32(_mm256_sub_epi32(q, too_small), too_large);
}

inline bool single_precision_suffices(__m256i d) {
    const __m256i below = _mm256_cmpgt_epi32(_mm256_set1_epi32(1 << 15), d);
    const __m256i above = _mm256_andnot_si256(_mm256_cmpeq_epi32(d, _mm256_set1_epi32(INT32_MAX)),
                                              _mm256_cmpgt_epi32(d, _mm256_set1_epi32((1 << 30) - 1)));
    const __m256i outside = _mm256_or_si256(below, above);
    return _mm256_testz_si256(outside, outside);
}

// Gains of the eight samples at src, in order.
TVL_X86_INLINE __m256i gains8(const u8* src, const Derivation& k) {
    const __m256 a = _mm256_castsi256_ps(load256(src)), b = _mm256_castsi256_ps(load256(src + 32));
    const __m256i lo = _mm256_castps_si256(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
    const __m256i hi = _mm256_castps_si256(_mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
    const __m256i unity = _mm256_set1_epi32(kUnityGain);
    __m256i u = _mm256_setzero_si256();
    if (k.unity_possible) {
        const __m256i fits = _mm256_cmpeq_epi32(hi, _mm256_srai_epi32(lo, 31));
        const __m256i outside = _mm256_or_si256(_mm256_cmpgt_epi32(lo, _mm256_set1_epi32(int32_t(k.threshold))),
                                                _mm256_cmpgt_epi32(_mm256_set1_epi32(int32_t(-k.threshold)), lo));
        u = _mm256_andnot_si256(outside, fits);
        if (_mm256_movemask_epi8(u) == -1) return unity;
    }
    const __m256i zero = _mm256_setzero_si256();
    const __m256i s = _mm256_srai_epi32(hi, 31);
    const __m256i m_lo = _mm256_sub_epi32(_mm256_xor_si256(lo, s), s);
    const __m256i m_hi =
        _mm256_sub_epi32(_mm256_xor_si256(hi, s), _mm256_and_si256(s, _mm256_cmpeq_epi32(lo, zero)));
    const __m256i d = _mm256_or_si256(_mm256_srli_epi32(m_lo, 15), _mm256_slli_epi32(m_hi, 17));
    const __m256i below_2p46 = _mm256_cmpeq_epi32(_mm256_srli_epi32(m_hi, 14), zero);
    const __m256i usable = _mm256_andnot_si256(_mm256_cmpgt_epi32(_mm256_set1_epi32(1), d), below_2p46);
    // Lanes that keep unity need no quotient: give them the divisor of
    // quotient 0 too, so that they do not keep the group from the single-
    // precision division.
    const __m256i divisor = select256(_mm256_andnot_si256(u, usable), d, _mm256_set1_epi32(INT32_MAX));
    const __m256i cu = _mm256_set1_epi32(k.c);
    __m256i r;
    if (single_precision_suffices(divisor)) {
        // q < 2^16 and |c| <= 2^15, so c * q fits in 32 bits: one multiply
        // and an arithmetic shift give (c * q) >> 15.
        r = _mm256_srai_epi32(_mm256_mullo_epi32(quotients_single(divisor), cu), 15);
    } else {
        const __m256i q = quotients(divisor);
        const __m256i even = _mm256_srli_epi64(_mm256_mul_epu32(q, cu), 15);
        const __m256i odd = _mm256_slli_epi64(_mm256_mul_epu32(_mm256_srli_epi64(q, 32), cu), 17);
        r = _mm256_blend_epi32(even, odd, 0xAA);
        if (k.c < 0) r = _mm256_sub_epi32(r, _mm256_slli_epi32(q, 17));
    }
    r = _mm256_and_si256(r, _mm256_set1_epi32(~1));
    r = select256(u, unity, r);
    return _mm256_permute4x64_epi64(r, _MM_SHUFFLE(3, 1, 2, 0));
}

#endif  // __AVX2__

#if TVL_X86_AVX512

// Gains of the sixteen samples at src, in order, the threshold test already
// made (`outside`: bit i set where sample i exceeds it). The steps of gains8
// in 512-bit registers and mask registers.
TVL_X86_INLINE __m512i gains16(const u8* src, const Derivation& k, __mmask16 outside) {
    const __m512i x0 = _mm512_loadu_si512(src), x1 = _mm512_loadu_si512(src + 64);
    const __m512i d0 = _mm512_srli_epi64(_mm512_abs_epi64(x0), 15), d1 = _mm512_srli_epi64(_mm512_abs_epi64(x1), 15);
    // Divisor 0, or |x| >= 2^46 (d >= 2^31): quotient 0, like unity lanes.
    const __m512i two31 = _mm512_set1_epi64(INT64_C(1) << 31);
    const __mmask16 no_quotient =
        __mmask16(_mm512_cmpeq_epi64_mask(d0, _mm512_setzero_si512()) | _mm512_cmpge_epu64_mask(d0, two31)) |
        __mmask16((_mm512_cmpeq_epi64_mask(d1, _mm512_setzero_si512()) | _mm512_cmpge_epu64_mask(d1, two31)) << 8);
    const __mmask16 unity = k.unity_possible ? __mmask16(~outside) : __mmask16(0);
    const __m512i d = _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_maskz_cvtepi64_epi32(0xFF, d0)),
                                         _mm512_maskz_cvtepi64_epi32(0xFF, d1), 1);
    const __m512i divisor = _mm512_mask_blend_epi32(__mmask16(unity | no_quotient), d, _mm512_set1_epi32(INT32_MAX));

    const __m512i cu = _mm512_set1_epi32(k.c);
    const __m512i a = _mm512_set1_epi32(kTargetLevel);
    const __mmask16 single =
        _mm512_cmpge_epi32_mask(divisor, _mm512_set1_epi32(1 << 15)) &
        (_mm512_cmplt_epi32_mask(divisor, _mm512_set1_epi32(1 << 30)) |
         _mm512_cmpeq_epi32_mask(divisor, _mm512_set1_epi32(INT32_MAX)));
    __m512i r;
    if (single == 0xFFFF) {
        // As quotients_single: the float quotient is q or q +- 1, the
        // remainder says which; then c * q fits in 32 bits.
        __m512i q = _mm512_maskz_cvttps_epi32(
            0xFFFF, _mm512_div_ps(_mm512_set1_ps(float(kTargetLevel)), _mm512_maskz_cvtepi32_ps(0xFFFF, divisor)));
        const __m512i rem = _mm512_sub_epi32(a, _mm512_mullo_epi32(q, divisor));
        q = _mm512_mask_add_epi32(q, _mm512_cmpge_epi32_mask(rem, divisor), q, _mm512_set1_epi32(1));
        q = _mm512_mask_sub_epi32(q, _mm512_cmplt_epi32_mask(rem, _mm512_setzero_si512()), q, _mm512_set1_epi32(1));
        r = _mm512_srai_epi32(_mm512_mullo_epi32(q, cu), 15);
    } else {
        // Exact double-precision quotients, then (c * q) >> 15 in 64 bits.
        const __m512d ad = _mm512_set1_pd(double(kTargetLevel));
        const __m256i q0 = _mm512_maskz_cvttpd_epi32(
            0xFF, _mm512_div_pd(ad, _mm512_maskz_cvtepi32_pd(0xFF, _mm512_castsi512_si256(divisor))));
        const __m256i q1 = _mm512_maskz_cvttpd_epi32(
            0xFF, _mm512_div_pd(ad, _mm512_maskz_cvtepi32_pd(0xFF, _mm512_maskz_extracti64x4_epi64(0xF, divisor, 1))));
        const __m512i c64 = _mm512_set1_epi64(k.c);
        const __m256i r0 = _mm512_maskz_cvtepi64_epi32(
            0xFF, _mm512_srai_epi64(_mm512_mullo_epi64(_mm512_maskz_cvtepi32_epi64(0xFF, q0), c64), 15));
        const __m256i r1 = _mm512_maskz_cvtepi64_epi32(
            0xFF, _mm512_srai_epi64(_mm512_mullo_epi64(_mm512_maskz_cvtepi32_epi64(0xFF, q1), c64), 15));
        r = _mm512_inserti64x4(_mm512_castsi256_si512(r0), r1, 1);
    }
    r = _mm512_and_si512(r, _mm512_set1_epi32(~1));
    return _mm512_mask_blend_epi32(unity, r, _mm512_set1_epi32(kUnityGain));
}

// Bit i set where sample i of the sixteen at src lies outside
// [-threshold, threshold].
inline __mmask16 outside16(const u8* src, const Derivation& k) {
    const __m512i t = _mm512_set1_epi64(k.threshold), neg_t = _mm512_set1_epi64(-k.threshold);
    const __m512i a = _mm512_loadu_si512(src), b = _mm512_loadu_si512(src + 64);
    return __mmask16(_mm512_cmpgt_epi64_mask(a, t) | _mm512_cmpgt_epi64_mask(neg_t, a)) |
           __mmask16((_mm512_cmpgt_epi64_mask(b, t) | _mm512_cmpgt_epi64_mask(neg_t, b)) << 8);
}

#endif  // TVL_X86_AVX512

// The smallest of four signed lanes.
inline int32_t horizontal_min(__m128i m) {
    m = min_epi32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
    m = min_epi32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
    return _mm_cvtsi128_si32(m);
}

#if defined(__AVX2__)
inline int32_t horizontal_min(__m256i m) {
    return horizontal_min(_mm_min_epi32(_mm256_castsi256_si128(m), _mm256_extracti128_si256(m, 1)));
}

// The largest of eight unsigned lanes.
inline uint32_t horizontal_max_u32(__m256i m) {
    __m128i h = _mm_max_epu32(_mm256_castsi256_si128(m), _mm256_extracti128_si256(m, 1));
    h = _mm_max_epu32(h, _mm_shuffle_epi32(h, _MM_SHUFFLE(1, 0, 3, 2)));
    h = _mm_max_epu32(h, _mm_shuffle_epi32(h, _MM_SHUFFLE(2, 3, 0, 1)));
    return uint32_t(_mm_cvtsi128_si32(h));
}
#endif

}  // namespace

void derive_gain(const int64_t* src, int32_t* gains, uint32_t count, int32_t ceiling, int32_t stride) {
    if (stride != 1 || overlaps(src, size_t(count) * 8, gains, size_t(count) * 4)) {
        scalar::derive_gain(src, gains, count, ceiling, stride);
        return;
    }
    const Derivation k = derivation(ceiling);
    uint32_t i = 0;
#if TVL_X86_AVX512
    // Sixteen samples tested against the threshold in mask registers (with a
    // negative threshold every sample is reduced).
    for (; i + 16 <= count; i += 16) {
        const __mmask16 outside = outside16(at(src, i, 8), k);
        if (k.unity_possible && outside == 0) {
            _mm512_storeu_si512(at(gains, i, 4), _mm512_set1_epi32(kUnityGain));
        } else {
            _mm512_storeu_si512(at(gains, i, 4), gains16(at(src, i, 8), k, outside));
        }
    }
#endif
#if defined(__AVX2__)
    for (; i + 8 <= count; i += 8) store256(at(gains, i, 4), gains8(at(src, i, 8), k));
#endif
    for (; i + 4 <= count; i += 4) store128(at(gains, i, 4), gains4(at(src, i, 8), k));
    scalar::derive_gain(src + i, gains + i, count - i, ceiling, 1);
}

// The peaks: a block's largest and smallest samples, widened, give its
// largest magnitude once widened, every widening being monotonic. The running
// extremes start at 0, whose magnitude changes nothing.

uint64_t peak_float32(const float* src, uint32_t count) {
    // maxps and minps return their second operand where either is NaN: with
    // the running extreme second, a NaN sample (which widens to 0) is passed
    // over, and the extremes stay numbers.
    __m128 hi = _mm_setzero_ps(), lo = _mm_setzero_ps();
    uint32_t i = 0;
#if defined(__AVX2__)
    // Four pairs of running extremes, to quarter the chain of dependent steps.
    __m256 hi8 = _mm256_setzero_ps(), lo8 = hi8, hi8b = hi8, lo8b = hi8, hi8c = hi8, lo8c = hi8, hi8d = hi8, lo8d = hi8;
    for (; i + 32 <= count; i += 32) {
        const __m256 x = _mm256_loadu_ps(reinterpret_cast<const float*>(at(src, i, 4)));
        const __m256 y = _mm256_loadu_ps(reinterpret_cast<const float*>(at(src, i + 8, 4)));
        const __m256 z = _mm256_loadu_ps(reinterpret_cast<const float*>(at(src, i + 16, 4)));
        const __m256 w = _mm256_loadu_ps(reinterpret_cast<const float*>(at(src, i + 24, 4)));
        hi8 = _mm256_max_ps(x, hi8);
        lo8 = _mm256_min_ps(x, lo8);
        hi8b = _mm256_max_ps(y, hi8b);
        lo8b = _mm256_min_ps(y, lo8b);
        hi8c = _mm256_max_ps(z, hi8c);
        lo8c = _mm256_min_ps(z, lo8c);
        hi8d = _mm256_max_ps(w, hi8d);
        lo8d = _mm256_min_ps(w, lo8d);
    }
    hi8 = _mm256_max_ps(_mm256_max_ps(hi8, hi8b), _mm256_max_ps(hi8c, hi8d));
    lo8 = _mm256_min_ps(_mm256_min_ps(lo8, lo8b), _mm256_min_ps(lo8c, lo8d));
    for (; i + 8 <= count; i += 8) {
        const __m256 x = _mm256_loadu_ps(reinterpret_cast<const float*>(at(src, i, 4)));
        hi8 = _mm256_max_ps(x, hi8);
        lo8 = _mm256_min_ps(x, lo8);
    }
    hi = _mm_max_ps(_mm256_castps256_ps128(hi8), _mm256_extractf128_ps(hi8, 1));
    lo = _mm_min_ps(_mm256_castps256_ps128(lo8), _mm256_extractf128_ps(lo8, 1));
#endif
    for (; i + 4 <= count; i += 4) {
        const __m128 x = load128f(at(src, i, 4));
        hi = _mm_max_ps(x, hi);
        lo = _mm_min_ps(x, lo);
    }
    hi = _mm_max_ps(hi, _mm_movehl_ps(hi, hi));
    hi = _mm_max_ss(hi, _mm_shuffle_ps(hi, hi, 1));
    lo = _mm_min_ps(lo, _mm_movehl_ps(lo, lo));
    lo = _mm_min_ss(lo, _mm_shuffle_ps(lo, lo, 1));
    const uint64_t top = magnitude(float32_to_q33p31(_mm_cvtss_f32(hi)));
    const uint64_t bottom = magnitude(float32_to_q33p31(_mm_cvtss_f32(lo)));
    const uint64_t rest = scalar::peak_float32(src + i, count - i);
    const uint64_t r = top > bottom ? top : bottom;
    return rest > r ? rest : r;
}

#if defined(__AVX2__)
namespace {
// Lane-wise signed 64-bit extremes, which AVX2 lacks.
inline __m256i max_epi64(__m256i a, __m256i b) { return _mm256_blendv_epi8(a, b, _mm256_cmpgt_epi64(b, a)); }
inline __m256i min_epi64(__m256i a, __m256i b) { return _mm256_blendv_epi8(a, b, _mm256_cmpgt_epi64(a, b)); }
}  // namespace

uint64_t peak_q33p31(const int64_t* src, uint32_t count) {
    __m256i hi = _mm256_setzero_si256(), lo = _mm256_setzero_si256();
    uint32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256i a = load256(at(src, i, 8)), b = load256(at(src, i + 4, 8));
        hi = max_epi64(hi, max_epi64(a, b));
        lo = min_epi64(lo, min_epi64(a, b));
    }
    u8 lanes[64];
    store256(lanes, hi);
    store256(lanes + 32, lo);
    // The eight extremes by the scalar loop, with the samples left over.
    const uint64_t rest = scalar::peak_q33p31(src + i, count - i);
    const uint64_t extremes = scalar::peak_q33p31(reinterpret_cast<const int64_t*>(lanes), 8);
    return extremes > rest ? extremes : rest;
}

uint64_t peak_q5p27(const int32_t* src, uint32_t count) {
    // vpabsd leaves -2^31 as 0x80000000, which read unsigned is its magnitude;
    // the widening multiplies every magnitude by 16.
    __m256i m = _mm256_setzero_si256();
    uint32_t i = 0;
    for (; i + 8 <= count; i += 8) m = _mm256_max_epu32(m, _mm256_abs_epi32(load256(at(src, i, 4))));
    const uint64_t rest = scalar::peak_q5p27(src + i, count - i), vector_peak = uint64_t(horizontal_max_u32(m)) << 4;
    return rest > vector_peak ? rest : vector_peak;
}
#endif  // __AVX2__

int32_t calculate_block_min_gain(int32_t is_stereo, const int32_t* gains, int32_t count, int32_t stride) {
    if (count < 1 || (!is_stereo && stride != 1)) return scalar::calculate_block_min_gain(is_stereo, gains, count, stride);
    // Stereo frames are two consecutive words: the minimum over all words.
    const uint32_t words = is_stereo ? uint32_t(count) * 2 : uint32_t(count);
    uint32_t i = 0;
    int32_t r = kUnityGain;
#if defined(__AVX2__)
    __m256i m8 = _mm256_set1_epi32(kUnityGain);
#if TVL_X86_AVX512
    if (words >= 16) {
        __m512i m = _mm512_set1_epi32(kUnityGain);
        for (; i + 16 <= words; i += 16) m = _mm512_maskz_min_epi32(0xFFFF, m, _mm512_loadu_si512(at(gains, i, 4)));
        m8 = _mm256_min_epi32(_mm512_castsi512_si256(m), _mm512_maskz_extracti64x4_epi64(0xF, m, 1));
    }
#endif
    for (; i + 8 <= words; i += 8) m8 = _mm256_min_epi32(m8, load256(at(gains, i, 4)));
    r = horizontal_min(m8);
#endif
    if (words - i >= 4) {
        __m128i m = _mm_set1_epi32(r);
        for (; i + 4 <= words; i += 4) m = min_epi32(m, load128(at(gains, i, 4)));
        r = horizontal_min(m);
    }
    // The words left over, taken as mono words; the minimum does not depend
    // on the order.
    const int32_t rest = scalar::calculate_block_min_gain(0, gains + i, int32_t(words - i), 1);
    return rest < r ? rest : r;
}

}  // namespace tvl::x86

#endif  // __x86_64__
