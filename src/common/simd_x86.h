// Building blocks of the x86-64 kernels, one tier per instruction-set level,
// chosen once at compile time by the build's -march (TAVIKLIMITER_X86_LEVEL):
// AVX2 at levels 3 and 4, SSE2 at levels 1 and 2 (the x86-64 baseline).
// Level 4 adds AVX-512 (F, BW, DQ and VL; TVL_X86_AVX512) only where it
// measured faster than AVX2: the narrowing's low halves (narrow_x86.cpp). A
// kernel runs its tier over whole vectors and hands the rest to the scalar
// kernel of the same name. Every helper computes, lane by lane, exactly what
// a per-sample rule of common/sample_rules.h computes.
//
// Memory: caller buffers may have any alignment, so every access is an
// unaligned load or store through a byte address (at() of common/memory.h);
// no typed pointer to a sample is ever dereferenced.
#pragma once

#if defined(__x86_64__)

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

#include "common/frame_loops.h"
#include "common/memory.h"
#include "common/sample_rules.h"

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

// For the helpers that a loop calls: the loop must get the helper's body, not
// a call that passes vectors through memory.
#define TVL_X86_INLINE inline __attribute__((always_inline))

namespace tvl::x86 {

using u8 = uint8_t;

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

#if defined(__AVX2__)
inline __m256i load256(const u8* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline void store256(u8* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
inline __m256 load256f(const u8* p) { return _mm256_loadu_ps(reinterpret_cast<const float*>(p)); }
inline void store256f(u8* p, __m256 v) { _mm256_storeu_ps(reinterpret_cast<float*>(p), v); }

// Low and high 32-bit halves of the eight 64-bit lanes of a, b, in order.
inline __m256i low_halves(__m256i a, __m256i b) {
    const __m256 s = _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), _MM_SHUFFLE(2, 0, 2, 0));
    return _mm256_permute4x64_epi64(_mm256_castps_si256(s), _MM_SHUFFLE(3, 1, 2, 0));
}
inline __m256i high_halves(__m256i a, __m256i b) {
    const __m256 s = _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), _MM_SHUFFLE(3, 1, 3, 1));
    return _mm256_permute4x64_epi64(_mm256_castps_si256(s), _MM_SHUFFLE(3, 1, 2, 0));
}

// The widening rule's double t = x * 2^31 + 0.5 of four floats: x * 2^31 is
// exact, so the fused form rounds once, as the rule does.
inline __m256d widening_double(__m128 x) {
#if defined(__FMA__)
    return _mm256_fmadd_pd(_mm256_cvtps_pd(x), _mm256_set1_pd(0x1p31), _mm256_set1_pd(0.5));
#else
    return _mm256_add_pd(_mm256_mul_pd(_mm256_cvtps_pd(x), _mm256_set1_pd(0x1p31)), _mm256_set1_pd(0.5));
#endif
}
#endif

// Runs group(i) for i = 0, N, 2N, ... over the whole groups of N in count;
// returns how many elements they hold, the rest being the caller's.
template <uint32_t N, typename Group>
TVL_X86_INLINE uint32_t whole_groups(uint32_t count, Group group) {
    const size_t whole = count - count % N;
    for (size_t i = 0; i < whole; i += N) group(i);
    return uint32_t(whole);
}

// whole_groups() for a group that may find its samples outside the range of
// its vector form: group(i) returns false, having stored nothing, and
// fallback(i) then takes that group by the scalar rule. The groups that pass
// run in a loop of their own with no call in it, so that the loop keeps its
// constants in registers.
template <uint32_t N, typename Group, typename Fallback>
TVL_X86_INLINE uint32_t whole_groups_or(uint32_t count, Group group, Fallback fallback) {
    const size_t whole = count - count % N;
    size_t i = 0;
    while (i < whole) {
#pragma GCC unroll 2
        for (; i < whole; i += N) {
            if (!group(i)) break;
        }
        if (i == whole) break;
        fallback(i);
        i += N;
    }
    return uint32_t(whole);
}

// ---- Q15 scaling rule on eight Q33.31 samples, one tier per level -------------
//
// Gains4: the 32-bit gains of four consecutive samples, sign-extended to 64
// bits by the Q15 rule, in the form the level's scale_eight() takes;
// spread(g, lanes) forms it from four 32-bit lanes, spread_pairs(g, a, b)
// from the gains of four stereo frames g0 g1 g2 g3 those of their eight
// samples, g0 g0 g1 g1 in a and g2 g2 g3 g3 in b; add_lanes() adds the same
// 32-bit amount to every gain. scale_eight(src, dst, first, ga, gb) scales
// samples first .. first + 3 of src by ga and first + 4 .. first + 7 by gb,
// to Q1.31 at dst.

#if defined(__AVX2__)

// Each gain in both halves of its sample's 64-bit lane.
using Gains4 = __m256i;
inline void spread(__m128i g, Gains4& lanes) {
    lanes = _mm256_permutevar8x32_epi32(_mm256_castsi128_si256(g), _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3));
}
inline Gains4 add_lanes(Gains4 a, Gains4 b) { return _mm256_add_epi32(a, b); }
inline void spread_pairs(__m128i g, Gains4& a, Gains4& b) {
    a = _mm256_permutevar8x32_epi32(_mm256_castsi128_si256(g), _mm256_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1));
    b = _mm256_permutevar8x32_epi32(_mm256_castsi128_si256(g), _mm256_setr_epi32(2, 2, 2, 2, 3, 3, 3, 3));
}

// Bits 15 to 46 of x * g in the HIGH half of each 64-bit lane. They are bits
// 32 to 63 of x' * g modulo 2^64 with x' = x << 17. Write x' = h * 2^32 + l
// with l its low half read as signed and h its high half plus 1 where l < 0
// (the high half of x' + 2^31): then x' * g = l * g + h * g * 2^32, l * g
// exact in 64 bits (vpmuldq), and bits 32 to 63 are hi32(l * g) + lo32(h * g)
// modulo 2^32 (vpmulld on the high halves).
TVL_X86_INLINE __m256i scale_q15_high(__m256i x, __m256i gg) {
    const __m256i xs = _mm256_slli_epi64(x, 17);
    const __m256i h = _mm256_add_epi64(xs, _mm256_set1_epi64x(INT64_C(1) << 31));
    return _mm256_add_epi32(_mm256_mul_epi32(xs, gg), _mm256_mullo_epi32(h, gg));
}
TVL_X86_INLINE void scale_eight(const int64_t* src, int32_t* dst, size_t first, Gains4 ga, Gains4 gb) {
    const __m256i a = scale_q15_high(load256(at(src, first, 8)), ga);
    const __m256i b = scale_q15_high(load256(at(src, first + 4, 8)), gb);
    store256(at(dst, first, 4), high_halves(a, b));
}

#else

using Gains4 = __m128i;
inline void spread(__m128i g, Gains4& lanes) { lanes = g; }
inline void spread_pairs(__m128i g, Gains4& a, Gains4& b) {
    a = _mm_unpacklo_epi32(g, g);
    b = _mm_unpackhi_epi32(g, g);
}
inline Gains4 add_lanes(Gains4 a, Gains4 b) { return _mm_add_epi32(a, b); }

// Bits 15 to 46 of the 64-bit product x * g (wrapping), in the low half of
// each 64-bit lane, for two samples and two 64-bit gains. With
// x = xh * 2^32 + xl and g = gh * 2^32 + gl, the product modulo 2^64 is
// xl * gl + (xh * gl + xl * gh) * 2^32, and bits 15 to 46 of that are the
// low 32 bits of (xl * gl) >> 15 plus (xh * gl + xl * gh) << 17.
inline __m128i scale_q15_lanes(__m128i x, __m128i g) {
    const __m128i low = _mm_srli_epi64(_mm_mul_epu32(x, g), 15);
    const __m128i cross = _mm_add_epi64(_mm_mul_epu32(_mm_srli_epi64(x, 32), g),
                                        _mm_mul_epu32(x, _mm_srli_epi64(g, 32)));
    return _mm_add_epi64(low, _mm_slli_epi64(cross, 17));
}
TVL_X86_INLINE void scale_four(const int64_t* src, int32_t* dst, size_t first, __m128i g) {
    const __m128i sign = _mm_srai_epi32(g, 31);
    const __m128i a = scale_q15_lanes(load128(at(src, first, 8)), _mm_unpacklo_epi32(g, sign));
    const __m128i b = scale_q15_lanes(load128(at(src, first + 2, 8)), _mm_unpackhi_epi32(g, sign));
    store128(at(dst, first, 4), low_halves(a, b));
}
TVL_X86_INLINE void scale_eight(const int64_t* src, int32_t* dst, size_t first, Gains4 ga, Gains4 gb) {
    scale_four(src, dst, first, ga);
    scale_four(src, dst, first + 4, gb);
}

#endif

// ---- The frame walk -----------------------------------------------------------

#if defined(__AVX2__)
// Gains for the float32 emission: four doubles, each a 32-bit gain times
// 2^-15 (exact), in the forms above.
inline void spread(__m128i g, __m256d& lanes) { lanes = _mm256_mul_pd(_mm256_cvtepi32_pd(g), _mm256_set1_pd(0x1p-15)); }
inline void spread_pairs(__m128i g, __m256d& a, __m256d& b) {
    __m256d d;
    spread(g, d);
    a = _mm256_permute4x64_pd(d, _MM_SHUFFLE(1, 1, 0, 0));
    b = _mm256_permute4x64_pd(d, _MM_SHUFFLE(3, 3, 2, 2));
}
inline __m256d add_lanes(__m256d a, __m256d b) { return _mm256_add_pd(a, b); }
#endif

// The lanes that a walk's gains fill (a tag, not the vector type itself, which
// as a template argument would lose its attributes): Gains4 for
// scale_eight(), doubles for the float32 emission.
struct ForScale {
    using Lanes = Gains4;
};
#if defined(__AVX2__)
struct ForEmission {
    using Lanes = __m256d;
};
#endif

// The frame walk of the kernels whose gain changes from frame to frame
// (release step, attack ramp, the float32 step and ramp emission), in passes
// of eight samples: four stereo frames or eight mono samples. gains(ga, gb)
// gives the gains of the next pass's samples (RampGains, StepGains), called
// for each pass in order; pass(sample, ga, gb) scales samples sample ..
// sample + 3 by ga and sample + 4 .. sample + 7 by gb. Returns the frames
// done: count rounded down to whole passes; the caller hands the rest to the
// scalar kernel.
template <typename Gains, typename Pass>
TVL_X86_INLINE uint32_t walk_frames(int32_t is_stereo, uint32_t count, Gains gains, Pass pass) {
    const uint32_t frames = is_stereo ? count & ~3u : count & ~7u;
    const size_t samples = is_stereo ? size_t(frames) * 2 : size_t(frames);
    for (size_t first = 0; first < samples; first += 8) {
        typename Gains::Lanes ga, gb;
        gains(ga, gb);
        pass(first, ga, gb);
    }
    return frames;
}

// walk_frames() for a pass that may find its samples outside the range of its
// vector form: pass() returns false, having stored nothing, and
// fallback(sample) then takes the pass's eight samples by the scalar rule. As
// in whole_groups_or(), the passes run in a loop with no call in it.
template <typename Gains, typename Pass, typename Fallback>
TVL_X86_INLINE uint32_t walk_frames_or(int32_t is_stereo, uint32_t count, Gains gains, Pass pass, Fallback fallback) {
    const uint32_t frames = is_stereo ? count & ~3u : count & ~7u;
    const size_t samples = is_stereo ? size_t(frames) * 2 : size_t(frames);
    size_t first = 0;
    while (first < samples) {
        for (; first < samples; first += 8) {
            typename Gains::Lanes ga, gb;
            gains(ga, gb);
            if (!pass(first, ga, gb)) break;
        }
        if (first == samples) break;
        fallback(first);
        first += 8;
    }
    return frames;
}

// The attack ramp's gains: for frame i, start + ((table[i] * (end - start))
// >> 15) in 32-bit lanes (ramp_gain()), four frames at a time.
template <typename For>
struct RampGains {
    using Lanes = typename For::Lanes;
    const int32_t* table;
    __m128i start, diff;
    bool stereo;
    RampGains(int32_t is_stereo, const int32_t* ramp_table, int32_t start_gain, int32_t end_gain)
        : table(ramp_table),
          start(_mm_set1_epi32(start_gain)),
          diff(_mm_set1_epi32(int32_t(uint32_t(end_gain) - uint32_t(start_gain)))),
          stereo(is_stereo != 0) {}
    TVL_X86_INLINE __m128i next4() {
        const __m128i t = load128(at(table, 0, 4));
        table += 4;
#if defined(__SSE4_1__)
        const __m128i product = _mm_mullo_epi32(t, diff);
#else
        const __m128i p02 = _mm_mul_epu32(t, diff), p13 = _mm_mul_epu32(_mm_srli_epi64(t, 32), diff);
        const __m128i product = _mm_unpacklo_epi32(_mm_shuffle_epi32(p02, _MM_SHUFFLE(0, 0, 2, 0)),
                                                   _mm_shuffle_epi32(p13, _MM_SHUFFLE(0, 0, 2, 0)));
#endif
        return _mm_add_epi32(start, _mm_srai_epi32(product, 15));
    }
    TVL_X86_INLINE void operator()(Lanes& ga, Lanes& gb) {
        if (stereo) {
            spread_pairs(next4(), ga, gb);
        } else {
            spread(next4(), ga);
            spread(next4(), gb);
        }
    }
};

// The release step's gains: start + (k + 1) * step for frame k, each lane
// advanced by a pass's frames times step. Exact where every gain of the call
// fits in 32 bits (release_step_fits()): so do then the lanes and the advance
// that a pass which runs takes (the frames of two passes span at most 2^32).
template <typename For>
struct StepGains {
    using Lanes = typename For::Lanes;
    Lanes a, b, advance;
    StepGains(int32_t is_stereo, int32_t start_gain, int32_t step) {
        const uint32_t s = uint32_t(step);
        const __m128i k = _mm_set_epi32(int32_t(4 * s), int32_t(3 * s), int32_t(2 * s), step);  // (k + 1) * step
        const __m128i g = _mm_add_epi32(_mm_set1_epi32(start_gain), k);
        if (is_stereo) {
            spread_pairs(g, a, b);
        } else {
            spread(g, a);
            spread(_mm_add_epi32(g, _mm_set1_epi32(int32_t(4 * s))), b);
        }
        spread(_mm_set1_epi32(int32_t((is_stereo ? 4 : 8) * s)), advance);
    }
    TVL_X86_INLINE void operator()(Lanes& ga, Lanes& gb) {
        ga = a;
        gb = b;
        a = add_lanes(a, advance);
        b = add_lanes(b, advance);
    }
};

}  // namespace tvl::x86

#endif  // __x86_64__
