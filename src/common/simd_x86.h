// Building blocks of the x86-64 kernels (SSE2, the x86-64 baseline; AVX2 where
// the build enables it). Every helper computes, lane by lane, exactly what a
// per-sample rule of common/sample_rules.h computes: the kernels combine them
// and finish their remainders with the scalar reference.
//
// Memory: caller buffers may have any alignment, so every access is an
// unaligned load or store through a byte address; no typed pointer to a
// sample is ever dereferenced.
#pragma once

#if defined(__x86_64__)

#include <emmintrin.h>
#include <stddef.h>
#include <stdint.h>
#if defined(__AVX2__)
#include <immintrin.h>
#endif

// Level 4 (x86-64-v4): AVX-512 F, BW, DQ and VL. Its conversions are written
// in their zero-masking forms with every lane selected (the same results).
// gcc 12's AVX-512 headers pass an undefined vector through their masked
// builtins, which -Wmaybe-uninitialized reports wrongly at every use, also of
// 128- and 256-bit intrinsics: the warning is off in the x86 kernels there.
#if defined(__AVX512F__) && defined(__AVX512BW__) && defined(__AVX512DQ__) && defined(__AVX512VL__)
#define TVL_X86_AVX512 1
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#else
#define TVL_X86_AVX512 0
#endif

#include "common/memory.h"
#include "common/sample_rules.h"

// For the group helpers that several loops share: each loop must get the
// helper's body, not a call that passes vectors through memory.
#define TVL_X86_INLINE inline __attribute__((always_inline))

namespace tvl::x86 {

using u8 = unsigned char;


// ---- 128-bit ----------------------------------------------------------------

inline __m128i load128(const u8* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void store128(u8* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
inline __m128 load128f(const u8* p) { return _mm_loadu_ps(reinterpret_cast<const float*>(p)); }
inline void store128f(u8* p, __m128 v) { _mm_storeu_ps(reinterpret_cast<float*>(p), v); }

// Low (even) and high (odd) 32-bit halves of the four 64-bit lanes of a, b:
// {a0, a1, b0, b1} in that order.
inline __m128i low_halves(__m128i a, __m128i b) {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), _MM_SHUFFLE(2, 0, 2, 0)));
}
inline __m128i high_halves(__m128i a, __m128i b) {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), _MM_SHUFFLE(3, 1, 3, 1)));
}

// Signed 32-bit minimum (SSE2 has none).
inline __m128i min_epi32(__m128i a, __m128i b) {
    const __m128i a_greater = _mm_cmpgt_epi32(a, b);
    return _mm_or_si128(_mm_and_si128(a_greater, b), _mm_andnot_si128(a_greater, a));
}

// Lanes of `yes` where mask is all ones, of `no` where it is zero.
inline __m128i select(__m128i mask, __m128i yes, __m128i no) {
    return _mm_or_si128(_mm_and_si128(mask, yes), _mm_andnot_si128(mask, no));
}

// Four int32 lanes sign-extended to int64: lanes 0, 1 in lo, lanes 2, 3 in hi.
inline void widen_epi32(__m128i v, __m128i& lo, __m128i& hi) {
    const __m128i sign = _mm_srai_epi32(v, 31);
    lo = _mm_unpacklo_epi32(v, sign);
    hi = _mm_unpackhi_epi32(v, sign);
}

// Bits 15 to 46 of the 64-bit product x * g (wrapping), in the low half of
// each 64-bit lane: the Q15 scaling rule. g holds 64-bit gains. With
// x = xh * 2^32 + xl and g = gh * 2^32 + gl, the product modulo 2^64 is
// xl * gl + (xh * gl + xl * gh) * 2^32, and bits 15 to 46 of that are the
// low 32 bits of (xl * gl) >> 15 plus (xh * gl + xl * gh) << 17.
inline __m128i scale_q15_lanes(__m128i x, __m128i g) {
    const __m128i low = _mm_srli_epi64(_mm_mul_epu32(x, g), 15);
    const __m128i cross = _mm_add_epi64(_mm_mul_epu32(_mm_srli_epi64(x, 32), g),
                                        _mm_mul_epu32(x, _mm_srli_epi64(g, 32)));
    return _mm_add_epi64(low, _mm_slli_epi64(cross, 17));
}

// The same for a gain whose high half gh is 0 (gain_is_negative false) or
// all ones (true): xl * gh is then 0 or -xl.
inline __m128i scale_q15_lanes_by(__m128i x, __m128i g, bool gain_is_negative) {
    const __m128i low = _mm_srli_epi64(_mm_mul_epu32(x, g), 15);
    __m128i cross = _mm_mul_epu32(_mm_srli_epi64(x, 32), g);
    if (gain_is_negative) cross = _mm_sub_epi64(cross, x);
    return _mm_add_epi64(low, _mm_slli_epi64(cross, 17));
}

// ---- 256-bit ----------------------------------------------------------------
#if defined(__AVX2__)

inline __m256i load256(const u8* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline void store256(u8* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }

// Low and high 32-bit halves of the eight 64-bit lanes of a, b, in order.
inline __m256i low_halves(__m256i a, __m256i b) {
    const __m256 s = _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), _MM_SHUFFLE(2, 0, 2, 0));
    return _mm256_permute4x64_epi64(_mm256_castps_si256(s), _MM_SHUFFLE(3, 1, 2, 0));
}
inline __m256i high_halves(__m256i a, __m256i b) {
    const __m256 s = _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), _MM_SHUFFLE(3, 1, 3, 1));
    return _mm256_permute4x64_epi64(_mm256_castps_si256(s), _MM_SHUFFLE(3, 1, 2, 0));
}

inline __m256i scale_q15_lanes(__m256i x, __m256i g) {
    const __m256i low = _mm256_srli_epi64(_mm256_mul_epu32(x, g), 15);
    const __m256i cross = _mm256_add_epi64(_mm256_mul_epu32(_mm256_srli_epi64(x, 32), g),
                                           _mm256_mul_epu32(x, _mm256_srli_epi64(g, 32)));
    return _mm256_add_epi64(low, _mm256_slli_epi64(cross, 17));
}

// The Q15 rule for 32-bit gains (sign-extended to 64 bits, or zero-extended
// where negative is false and no lane's gain reaches 2^32): gg holds each
// lane's 32 gain bits in both halves, and the result lands in the HIGH half of
// each 64-bit lane. Bits 15 to 46 of x * g are the high half of x' * g modulo
// 2^64 with x' = x << 17, that is hi32(xl' * gl) + lo32(xh' * gl), less xl'
// where g is negative (its high half all ones); one 32 x 32 -> 64 product and
// one 32-bit product per lane.
inline __m256i scale_q15_high(__m256i x, __m256i gg, bool negative) {
    const __m256i xs = _mm256_slli_epi64(x, 17);
    const __m256i r = _mm256_add_epi32(_mm256_mul_epu32(xs, gg), _mm256_mullo_epi32(xs, gg));
    if (!negative) return r;
    return _mm256_sub_epi32(r, _mm256_and_si256(_mm256_slli_epi64(xs, 32), _mm256_srai_epi32(gg, 31)));
}

#endif  // __AVX2__

#if TVL_X86_AVX512
// The Q15 rule for eight samples and eight 64-bit gains: vpmullq forms the
// low 64 bits of each product, exactly the reference's wrapped product.
inline __m256i scale_q15_lanes(__m512i x, __m512i g) {
    return _mm512_maskz_cvtepi64_epi32(0xFF, _mm512_srli_epi64(_mm512_mullo_epi64(x, g), 15));
}
#endif

// ---- Narrowing runs (Q33.31 to Q1.31, consecutive samples) -------------------

// Keeps the low half of every sample of src[0..count) in dst; returns how
// many samples it did (a multiple of 4), the rest being the caller's.
inline uint32_t narrow_run(const void* src, void* dst, uint32_t count) {
    uint32_t i = 0;
#if TVL_X86_AVX512
    for (; i + 8 <= count; i += 8) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(at(dst, i, 4)),
                            _mm512_maskz_cvtepi64_epi32(0xFF, _mm512_loadu_si512(at(src, i, 8))));
    }
#endif
#if defined(__AVX2__)
    for (; i + 8 <= count; i += 8) {
        const __m256i lo = low_halves(load256(at(src, i, 8)), load256(at(src, i + 4, 8)));
        store256(at(dst, i, 4), lo);
    }
#endif
    for (; i + 4 <= count; i += 4) store128(at(dst, i, 4), low_halves(load128(at(src, i, 8)), load128(at(src, i + 2, 8))));
    return i;
}

// Four samples saturated to [-2^31, 2^31 - 1]: a sample that fits in 32 bits
// (high half = sign of low half) keeps its low half; any other is beyond the
// range on the side of its sign and becomes the bound of that side.
inline __m128i clip4(__m128i a, __m128i b) {
    const __m128i lo = low_halves(a, b), hi = high_halves(a, b);
    const __m128i fits = _mm_cmpeq_epi32(hi, _mm_srai_epi32(lo, 31));
    const __m128i bound = _mm_xor_si128(_mm_set1_epi32(INT32_MAX), _mm_srai_epi32(hi, 31));
    return select(fits, lo, bound);
}

inline uint32_t clip_run(const void* src, void* dst, uint32_t count) {
    uint32_t i = 0;
#if defined(__AVX2__)
    for (; i + 8 <= count; i += 8) {
        const __m256i a = load256(at(src, i, 8)), b = load256(at(src, i + 4, 8));
        const __m256i lo = low_halves(a, b), hi = high_halves(a, b);
        const __m256i fits = _mm256_cmpeq_epi32(hi, _mm256_srai_epi32(lo, 31));
        const __m256i bound = _mm256_xor_si256(_mm256_set1_epi32(INT32_MAX), _mm256_srai_epi32(hi, 31));
        store256(at(dst, i, 4), _mm256_blendv_epi8(bound, lo, fits));
    }
#endif
    for (; i + 4 <= count; i += 4) store128(at(dst, i, 4), clip4(load128(at(src, i, 8)), load128(at(src, i + 2, 8))));
    return i;
}

}  // namespace tvl::x86

#endif  // __x86_64__
