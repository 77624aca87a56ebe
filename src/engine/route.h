// The routes of the limiting path: where a held block leaves from and where
// it goes, chosen once per call (see Route).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "common/instance.h"
#include "common/kernels.h"
#include "common/memory.h"
#include "engine/engine.h"
#include "engine/gain_plan.h"

namespace tvl {

// Where the held block leaves from and where it goes, chosen once per call
// from the call's facts: the format, the output gain, and whether input and
// output overlap.
//   - from the input: buffers apart, and no output gain unless the output is
//     Q1.31 (which takes it in place). A block other than the call's last
//     need not rest in the delay line: the next block's step renders it
//     straight from the input, where it stays unchanged, to the output
//     format (Q33.31 to Q1.31; float32 and Q5.27 to their own format). Only
//     the last block is widened into the delay line for the next call.
//   - through the delay line: the call's first block, and every block of
//     other calls. The held block leaves as Q1.31, into the output itself
//     for Q33.31 input with the buffers apart, else into out_block,
//     converted to the output once the input block in its place has been
//     read (in place is safe); float32 at unity, the buffers apart and no
//     output gain, is narrowed straight to float32.
class Route {
public:
    Route(const LimiterHandle& rec, const unsigned char* input, unsigned char* output, int32_t* out_block,
          uint32_t blocks)
        : format_(rec.pcm_format),
          is_stereo_(rec.is_stereo),
          samples_(samples_per_block(rec.is_stereo)),
          in_bytes_(samples_ * input_sample_bytes(format_)),
          out_bytes_(samples_ * 4u),  // Q1.31, float32 and Q5.27 alike
          blocks_(blocks),
          makeup_(makeup_gain_set(rec)),
          makeup_gain_(int32_t(rec.makeup_gain)),
          input_(input),
          output_(output),
          delay_line_(reinterpret_cast<int64_t*>(rec.delay_line)),
          out_block_(out_block) {
        const bool apart = !overlaps(input, blocks * size_t(in_bytes_), output, blocks * size_t(out_bytes_));
        direct_ = apart && format_ == LMTR_PCM_Q33P31;
        held_in_input_ = direct_ || (apart && !makeup_);
        unity_to_float32_ = apart && !makeup_ && format_ == LMTR_PCM_FLOAT32;
    }

    // The held block leaves as output block k.
    void render(uint32_t k, const GainMove& move) {
        pending_ = false;
        if (held_in_input_ && k > 0) {
            render_from_input(move, in(k - 1), out(k));
        } else if (unity_to_float32_ && move.kind == GainMove::kUnity) {
            active::narrow_q33p31_to_float32(delay_line_, reinterpret_cast<float*>(out(k)), samples_);
        } else {
            to_q1p31(move, delay_line_, direct_ ? reinterpret_cast<int32_t*>(out(k)) : out_block_);
            pending_ = !direct_;
        }
    }

    // Input block k takes the held block's place; a block left in out_block
    // goes out now.
    void hold(uint32_t k) {
        if (!held_in_input_ || k + 1 == blocks_) widen_block(format_, in(k), delay_line_, samples_);
        if (!pending_) return;
        switch (format_) {
            case LMTR_PCM_Q33P31: copy_bytes(out(k), out_block_, out_bytes_); break;
            case LMTR_PCM_FLOAT32: active::copy_q1p31_to_float32(out_block_, reinterpret_cast<float*>(out(k)), samples_); break;
            default: active::copy_q1p31_to_q5p27(out_block_, reinterpret_cast<int32_t*>(out(k)), samples_); break;
        }
    }

    const unsigned char* in(uint32_t k) const { return input_ + size_t(k) * in_bytes_; }
    unsigned char* out(uint32_t k) const { return output_ + size_t(k) * out_bytes_; }

private:
    // A Q33.31 block to Q1.31, the output gain applied where set.
    void to_q1p31(const GainMove& move, const int64_t* held, int32_t* q1p31) const {
        limiter_primary_q33p31_to_q1p31(move, is_stereo_, held, q1p31);
        if (makeup_) active::apply_makeup_gain(q1p31, samples_, makeup_gain_);
    }

    void render_from_input(const GainMove& move, const unsigned char* held, unsigned char* out) const {
        switch (format_) {
            case LMTR_PCM_Q33P31:
                to_q1p31(move, reinterpret_cast<const int64_t*>(held), reinterpret_cast<int32_t*>(out));
                break;
            case LMTR_PCM_FLOAT32:
                limiter_primary_float32_to_float32(move, is_stereo_, reinterpret_cast<const float*>(held),
                                                   reinterpret_cast<float*>(out));
                break;
            default:
                limiter_primary_q5p27_to_q5p27(move, is_stereo_, reinterpret_cast<const int32_t*>(held),
                                               reinterpret_cast<int32_t*>(out));
                break;
        }
    }

    uint32_t format_, is_stereo_, samples_, in_bytes_, out_bytes_, blocks_;
    bool makeup_;  // the output gain applies (makeup_gain_set)
    int32_t makeup_gain_;
    const unsigned char* input_;
    unsigned char* output_;
    int64_t* delay_line_;
    int32_t* out_block_;
    bool direct_ = false, held_in_input_ = false, unity_to_float32_ = false;
    bool pending_ = false;  // the block rendered last waits in out_block
};

}  // namespace tvl
