// A held Q5.27 block leaving straight from the input, on x86-64 with AVX2:
// eight samples per pass, every product exact in 64-bit lanes.
//
// Widened, a Q5.27 word w is the Q33.31 sample 16 * w, and the Q15 rule keeps
// bits 15..46 of 16 * w * g, that is bits 11..42 of the exact product w * g
// (|w * g| < 2^62): each sample sign-extended into a 64-bit lane, vpmuldq,
// a shift right by 11, the low halves gathered, and an arithmetic shift by 4
// back to Q5.27. At unity only the low 28 bits of w survive the narrowing,
// sign-extended: a shift left by 4, then right by 4. The frame walk and its
// gains are those of the Q33.31 gain kernels (common/simd_x86.h).
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/sample_rules.h"
#include "common/simd_x86.h"

#if defined(__AVX2__)

namespace tvl::x86 {

namespace {

// Eight Q5.27 samples from `first`: four by the gains of ga, four by those of
// gb (Gains4, each gain in both halves of its sample's 64-bit lane).
TVL_X86_INLINE void scale_eight_q5p27(const int32_t* src, int32_t* dst, size_t first, Gains4 ga, Gains4 gb) {
    const __m256i wa = _mm256_cvtepi32_epi64(load128(at(src, first, 4)));
    const __m256i wb = _mm256_cvtepi32_epi64(load128(at(src, first + 4, 4)));
    const __m256i a = _mm256_srli_epi64(_mm256_mul_epi32(wa, ga), 11);  // bits 11..42 in the low halves
    const __m256i b = _mm256_srli_epi64(_mm256_mul_epi32(wb, gb), 11);
    store256(at(dst, first, 4), _mm256_srai_epi32(low_halves(a, b), 4));
}


}  // namespace

void emit_q5p27_at_unity(const int32_t* src, int32_t* dst, uint32_t count) {
    uint32_t done = 0;
    if (ascending_groups_safe(src, size_t(count) * 4, dst, size_t(count) * 4)) {
        done = whole_groups<8>(count, [&](size_t i) {
            store256(at(dst, i, 4), _mm256_srai_epi32(_mm256_slli_epi32(load256(at(src, i, 4)), 4), 4));
        });
    }
    scalar::emit_q5p27_at_unity(src + done, dst + done, count - done);
}

void emit_q5p27_fix_gain(int32_t gain, const int32_t* src, int32_t* dst, uint32_t count) {
    uint32_t done = 0;
    if (ascending_groups_safe(src, size_t(count) * 4, dst, size_t(count) * 4)) {
        Gains4 g;
        spread(_mm_set1_epi32(gain), g);
        done = whole_groups<8>(count, [&](size_t i) { scale_eight_q5p27(src, dst, i, g, g); });
    }
    scalar::emit_q5p27_fix_gain(gain, src + done, dst + done, count - done);
}

int32_t emit_q5p27_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int32_t* src,
                             int32_t* dst, const int32_t* ramp_table, uint32_t count) {
    const size_t bytes = frame_samples(is_stereo, count) * 4;
    uint32_t done = 0;
    if (ascending_groups_safe(src, bytes, dst, bytes) && !overlaps(ramp_table, size_t(count) * 4, dst, bytes)) {
        done = walk_frames(is_stereo, count, RampGains<ForScale>(is_stereo, ramp_table, start_gain, end_gain),
                           [&](size_t first, Gains4 ga, Gains4 gb) { scale_eight_q5p27(src, dst, first, ga, gb); });
    }
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::emit_q5p27_targ_gain(is_stereo, start_gain, end_gain, src + skip, dst + skip, ramp_table + done,
                                        count - done);
}

int32_t emit_q5p27_step_gain(int32_t is_stereo, int32_t start_gain, int32_t step, const int32_t* src, int32_t* dst,
                             uint32_t count) {
    const size_t bytes = frame_samples(is_stereo, count) * 4;
    uint32_t done = 0;
    if (ascending_groups_safe(src, bytes, dst, bytes) && release_step_fits(start_gain, step, count)) {
        done = walk_frames(is_stereo, count, StepGains<ForScale>(is_stereo, start_gain, step),
                           [&](size_t first, Gains4 ga, Gains4 gb) { scale_eight_q5p27(src, dst, first, ga, gb); });
    }
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::emit_q5p27_step_gain(is_stereo, release_gain_reached(start_gain, step, done), step, src + skip,
                                        dst + skip, count - done);
}

}  // namespace tvl::x86

#endif  // __AVX2__
#endif  // __x86_64__
