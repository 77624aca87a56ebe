// A held Q5.27 block leaving straight from the input, on x86-64 with AVX2:
// eight samples per pass, every product exact in 64-bit lanes.
//
// Widened, a Q5.27 word w is the Q33.31 sample 16 * w, and the Q15 rule keeps
// bits 15..46 of 16 * w * g, that is bits 11..42 of the exact product w * g
// (|w * g| < 2^62). vpmuldq forms the products of the even lanes and, after
// a shift, of the odd ones; each is shifted so that those bits fill its own
// 32-bit half, the halves are blended, and an arithmetic shift by 4 brings
// the Q1.31 words back to Q5.27. At unity only the low 28 bits of w survive
// the narrowing, sign-extended: a shift left by 4, then right by 4.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/sample_rules.h"
#include "common/simd_x86.h"

#if defined(__AVX2__)

namespace tvl::x86 {

namespace {

// Eight Q5.27 samples scaled by eight 32-bit gains.
TVL_X86_INLINE __m256i scaled8(__m256i w, __m256i g) {
    const __m256i even = _mm256_srli_epi64(_mm256_mul_epi32(w, g), 11);  // bits 11..42 into the low halves
    const __m256i odd = _mm256_slli_epi64(_mm256_mul_epi32(_mm256_srli_epi64(w, 32), _mm256_srli_epi64(g, 32)), 21);
    return _mm256_srai_epi32(_mm256_blend_epi32(even, odd, 0xAA), 4);  // the odd lanes' bits 11..42 into the high halves
}

// Passes of eight samples (four stereo frames or eight mono samples) over
// `count` frames, in ascending order: pass(frame, sample) with the first
// frame and sample of the pass. Returns the frames done; the caller hands
// the rest to the scalar kernel.
template <typename Pass>
TVL_X86_INLINE uint32_t walk_eight(int32_t is_stereo, uint32_t count, Pass pass) {
    const uint32_t frames = is_stereo ? 4 : 8;
    uint32_t f = 0;
    for (; f + frames <= count; f += frames) pass(f, is_stereo ? size_t(f) * 2 : size_t(f));
    return f;
}

// A stereo pass's gains: each of four frame gains for both samples.
TVL_X86_INLINE __m256i per_sample(int32_t is_stereo, __m256i g) {
    return is_stereo ? _mm256_permutevar8x32_epi32(g, _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3)) : g;
}

size_t frame_samples(int32_t is_stereo, uint32_t frames) { return is_stereo ? size_t(frames) * 2 : size_t(frames); }

}  // namespace

void emit_q5p27_at_unity(const int32_t* src, int32_t* dst, uint32_t count) {
    const uint32_t whole = ascending_groups_safe(src, size_t(count) * 4, dst, size_t(count) * 4) ? count & ~7u : 0;
    for (uint32_t i = 0; i < whole; i += 8) {
        store256(at(dst, i, 4), _mm256_srai_epi32(_mm256_slli_epi32(load256(at(src, i, 4)), 4), 4));
    }
    scalar::emit_q5p27_at_unity(src + whole, dst + whole, count - whole);
}

void emit_q5p27_fix_gain(int32_t gain, const int32_t* src, int32_t* dst, uint32_t count) {
    const uint32_t whole = ascending_groups_safe(src, size_t(count) * 4, dst, size_t(count) * 4) ? count & ~7u : 0;
    const __m256i g = _mm256_set1_epi32(gain);
    for (uint32_t i = 0; i < whole; i += 8) store256(at(dst, i, 4), scaled8(load256(at(src, i, 4)), g));
    scalar::emit_q5p27_fix_gain(gain, src + whole, dst + whole, count - whole);
}

int32_t emit_q5p27_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int32_t* src,
                             int32_t* dst, const int32_t* ramp_table, uint32_t count) {
    const size_t bytes = frame_samples(is_stereo, count) * 4;
    uint32_t done = 0;
    if (ascending_groups_safe(src, bytes, dst, bytes) && !overlaps(ramp_table, size_t(count) * 4, dst, bytes)) {
        const __m256i start = _mm256_set1_epi32(start_gain);
        const __m256i diff = _mm256_set1_epi32(int32_t(uint32_t(end_gain) - uint32_t(start_gain)));
        done = walk_eight(is_stereo, count, [&](uint32_t f, size_t i) {
            // The ramp rule of eight frames (four used in stereo), 32-bit lanes.
            const __m256i entries = is_stereo ? _mm256_castsi128_si256(load128(at(ramp_table, f, 4)))
                                              : load256(at(ramp_table, f, 4));
            const __m256i g = _mm256_add_epi32(start, _mm256_srai_epi32(_mm256_mullo_epi32(entries, diff), 15));
            store256(at(dst, i, 4), scaled8(load256(at(src, i, 4)), per_sample(is_stereo, g)));
        });
    }
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::emit_q5p27_targ_gain(is_stereo, start_gain, end_gain, src + skip, dst + skip, ramp_table + done,
                                        count - done);
}

int32_t emit_q5p27_step_gain(int32_t is_stereo, int32_t start_gain, int32_t step, const int32_t* src, int32_t* dst,
                             uint32_t count) {
    const size_t bytes = frame_samples(is_stereo, count) * 4;
    // Gains in 32-bit lanes, advanced modulo 2^32: exact when the last
    // frame's gain fits in 32 bits, every gain then lying between the start
    // gain and it.
    const int64_t last = release_gain(start_gain, step, count == 0 ? 0 : count - 1);
    uint32_t done = 0;
    if (ascending_groups_safe(src, bytes, dst, bytes) && last >= INT32_MIN && last <= INT32_MAX) {
        const __m256i frames = _mm256_setr_epi32(1, 2, 3, 4, 5, 6, 7, 8);  // frame k has start + (k + 1) * step
        __m256i g = _mm256_add_epi32(_mm256_set1_epi32(start_gain), _mm256_mullo_epi32(frames, _mm256_set1_epi32(step)));
        const __m256i advance = _mm256_set1_epi32(int32_t(uint32_t(step) * (is_stereo ? 4u : 8u)));
        done = walk_eight(is_stereo, count, [&](uint32_t, size_t i) {
            store256(at(dst, i, 4), scaled8(load256(at(src, i, 4)), per_sample(is_stereo, g)));
            g = _mm256_add_epi32(g, advance);
        });
    }
    const size_t skip = frame_samples(is_stereo, done);
    const int32_t reached = int32_t(uint32_t(start_gain) + uint32_t(done) * uint32_t(step));
    return scalar::emit_q5p27_step_gain(is_stereo, reached, step, src + skip, dst + skip, count - done);
}

}  // namespace tvl::x86

#endif  // __AVX2__
#endif  // __x86_64__
