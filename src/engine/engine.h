// The block engine's internal pieces, shared by the limiting and bypass paths.
#pragma once

#include <stdint.h>

#include "common/instance.h"
#include "common/kernels.h"
#include "common/memory.h"
#include "engine/gain_plan.h"
#include "taviklimiter.h"

namespace tvl {

// Whether the output gain applies: makeup_gain of 32766 or less (unsigned);
// the default 32767 leaves the output alone.
inline bool makeup_gain_set(const LimiterHandle& rec) { return rec.makeup_gain <= 32766u; }

// Widens one input block of format `format` (0 to 2) to Q33.31 at dst:
// Q33.31 is copied as it is.
inline void widen_block(uint32_t format, const unsigned char* input, int64_t* dst, uint32_t samples) {
    switch (format) {
        case LMTR_PCM_Q33P31: copy_bytes(dst, input, size_t(samples) * 8); break;
        case LMTR_PCM_FLOAT32: active::copy_float32_to_q33p31(reinterpret_cast<const float*>(input), dst, samples); break;
        default: active::copy_q5p27_to_q33p31(reinterpret_cast<const int32_t*>(input), dst, samples); break;
    }
}

// The smallest gain any sample of an input block needs (block_min_gain), as
// derive_gain and calculate_block_min_gain find it, from the block in the
// input's own format. Formed once per call from the record; scratch_block
// and out_block serve only a negative ceiling (see required_gain.cpp).
class RequiredGain {
public:
    explicit RequiredGain(const LimiterHandle& rec)
        : format_(rec.pcm_format),
          is_stereo_(rec.is_stereo),
          ceiling_(rec.ceiling),
          c_(ceiling_q15(rec.ceiling)),
          threshold_(gain_threshold(ceiling_q15(rec.ceiling))) {}
    // Of `blocks` consecutive input blocks from `input`, into gains.
    void of_blocks(const unsigned char* input, uint32_t blocks, int32_t* gains, int64_t* scratch_block,
                   int32_t* out_block) const;

private:
    uint32_t format_;
    uint32_t is_stereo_;
    int32_t ceiling_;    // as the record holds it
    int32_t c_;          // its low 16 bits, sign-extended
    int64_t threshold_;  // largest magnitude needing no reduction
};

// The limiter proper: the held block leaves with its gain moving as planned,
// from the delay line (Q33.31) as Q1.31, or from a float32 or Q5.27 block
// still in the input in its own format (the same bytes as widening, scaling
// and converting back). `out` must not overlap `held`.
void limiter_primary_q33p31_to_q1p31(const GainMove& move, uint32_t is_stereo, const int64_t* held, int32_t* out);
void limiter_primary_float32_to_float32(const GainMove& move, uint32_t is_stereo, const float* held, float* out);
void limiter_primary_q5p27_to_q5p27(const GainMove& move, uint32_t is_stereo, const int32_t* held, int32_t* out);

// The limiting and bypass paths of limiter_all_format() on a local copy of
// the record, whose progress the caller writes back (write_progress). frames
// is at least 64.
int32_t run_limiting_path(LimiterHandle& rec, const unsigned char* input, unsigned char* output,
                          int64_t* scratch_block, int32_t* out_block, uint32_t frames);
int32_t run_bypass_path(LimiterHandle& rec, const unsigned char* input, unsigned char* output,
                        int64_t* scratch_block, uint32_t frames);

// The path the record's state asks for (0 or 1, checked by the caller).
inline int32_t run_paths(LimiterHandle& rec, const void* input, void* output, int64_t* scratch_block,
                         int32_t* out_block, uint32_t frames) {
    const auto* in = static_cast<const unsigned char*>(input);
    auto* out = static_cast<unsigned char*>(output);
    return rec.state == LMTR_STATE_LIMITING ? run_limiting_path(rec, in, out, scratch_block, out_block, frames)
                                            : run_bypass_path(rec, in, out, scratch_block, frames);
}

// Re-encodes the samples_per_block samples held in the delay line from format
// `held` to format `wanted` in place; nothing when they are equal.
inline void reencode_delay_line(unsigned char* delay_line, uint32_t held, uint32_t wanted, uint32_t samples) {
    switch (held * 3 + wanted) {
        case LMTR_PCM_Q33P31 * 3 + LMTR_PCM_FLOAT32: active::convert_from_q33p31_to_float32(delay_line, samples); break;
        case LMTR_PCM_Q33P31 * 3 + LMTR_PCM_Q5P27: active::convert_from_q33p31_to_q5p27(delay_line, samples); break;
        case LMTR_PCM_FLOAT32 * 3 + LMTR_PCM_Q33P31: active::convert_from_float32_to_q33p31(delay_line, samples); break;
        case LMTR_PCM_FLOAT32 * 3 + LMTR_PCM_Q5P27: active::convert_from_float32_to_q5p27(delay_line, samples); break;
        case LMTR_PCM_Q5P27 * 3 + LMTR_PCM_Q33P31: active::convert_from_q5p27_to_q33p31(delay_line, samples); break;
        case LMTR_PCM_Q5P27 * 3 + LMTR_PCM_FLOAT32: active::convert_from_q5p27_to_float32(delay_line, samples); break;
        default: break;  // same format, or a code outside 0..2
    }
}

}  // namespace tvl
