// The engine's entry and the limiting path: every block is limited with one
// block of look-ahead and written back in the input's format (Q1.31 for
// Q33.31 input). The gain a new block needs is found from the input block
// itself; the block is then widened to Q33.31 straight into the delay line,
// once the held block has left it, or, for float32 where the next step can
// take it from the input, not at all.
#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"
#include "engine/engine.h"

namespace tvl {

int32_t run_limiting_path(LimiterHandle& rec, const unsigned char* input, unsigned char* output,
                          int64_t* scratch_block, int32_t* out_block, uint32_t frames) {
    // The format test is made once per call. A code above 2 only reaches here
    // through a direct call with a damaged record: nothing is touched.
    if (rec.pcm_format > LMTR_PCM_Q5P27) return LMTR_ERR_PCM_FORMAT;

    const uint32_t samples = samples_per_block(rec.is_stereo);
    if (rec.prev_state == LMTR_STATE_BYPASS) {
        // Back from bypass: the held block, kept in the input's format, enters
        // the limiter as Q33.31 without a fade; the gains are at unity since
        // the switch into bypass (or a reset).
        reencode_delay_line(rec.delay_line, rec.prev_pcm_format, LMTR_PCM_Q33P31, samples);
        rec.prev_state = LMTR_STATE_LIMITING;
    } else if (rec.prev_state == LMTR_STATE_LIMITING && rec.prev_pcm_format != LMTR_PCM_Q33P31) {
        return LMTR_ERR_PCM_FORMAT;  // limiting never holds another format: a damaged record
    }

    const RequiredGain required_gain(rec);
    const uint32_t format = rec.pcm_format;
    const size_t in_block_bytes = samples * (format == LMTR_PCM_Q33P31 ? 8u : 4u);
    const size_t out_block_bytes = samples * 4u;  // Q1.31, float32 and Q5.27 alike
    const uint32_t blocks = frames / kBlockFrames;
    // With float32 in and out, no output gain and the output apart from the
    // input, a block other than the call's last need not rest in the delay
    // line: the next step takes it from the input, where it stays unchanged,
    // and emits it straight to float32. Only the last block is widened into
    // the delay line for the next call.
    const bool from_input = vector::kEmitsFloat32FromInput && format == LMTR_PCM_FLOAT32 && !makeup_gain_set(rec) &&
                            !overlaps(input, blocks * in_block_bytes, output, blocks * out_block_bytes);
    // The gains that the blocks need are found a batch of blocks ahead of
    // their steps, so that the peaks of successive blocks overlap and each
    // step's choice of gain move is known before the step begins.
    constexpr uint32_t kBatch = 16;
    int32_t block_min_gains[kBatch];
    for (uint32_t k = 0; k < blocks; ++k) {
        // Input block k is read whole (the gain, then the widening into the
        // delay line) before output block k is written, and output block k
        // ends where input block k + 1 begins at the latest: in place is safe.
        const unsigned char* in = input + k * in_block_bytes;
        unsigned char* out = output + k * out_block_bytes;
        if (k % kBatch == 0) {
            const uint32_t batch = blocks - k < kBatch ? blocks - k : kBatch;
            for (uint32_t j = 0; j < batch; ++j) {
                block_min_gains[j] = required_gain.of_block(in + j * in_block_bytes, scratch_block, out_block);
            }
        }
        const int32_t block_min_gain = block_min_gains[k % kBatch];
        const bool next_takes_it_from_input = from_input && k + 1 < blocks;
        if (from_input && k > 0) {
            limiter_step_float32_from_input(rec, reinterpret_cast<const float*>(in - in_block_bytes), block_min_gain,
                                            reinterpret_cast<float*>(out));
            if (!next_takes_it_from_input) widen_block(format, in, reinterpret_cast<int64_t*>(rec.delay_line), samples);
            continue;
        }
        // Q1.31 output is emitted where it belongs unless that would overwrite
        // the input block before it is widened; the other formats are
        // converted from out_block.
        const bool direct = format == LMTR_PCM_Q33P31 && !overlaps(in, in_block_bytes, out, out_block_bytes);
        int32_t* emitted = direct ? reinterpret_cast<int32_t*>(out) : out_block;
        // A float32 block at unity may leave straight as float32, where that
        // does not overwrite the input block before it is widened.
        float* unity_out = format == LMTR_PCM_FLOAT32 && !makeup_gain_set(rec) &&
                                   !overlaps(in, in_block_bytes, out, out_block_bytes)
                               ? reinterpret_cast<float*>(out)
                               : nullptr;
        const unsigned char* to_hold = next_takes_it_from_input ? nullptr : in;
        if (limiter_primary_q33p31_to_q1p31(rec, to_hold, format, block_min_gain, emitted, unity_out)) continue;
        switch (format) {
            case LMTR_PCM_Q33P31:
                if (!direct) copy_bytes(out, out_block, out_block_bytes);
                break;
            case LMTR_PCM_FLOAT32: active::copy_q1p31_to_float32(out_block, reinterpret_cast<float*>(out), samples); break;
            default: active::copy_q1p31_to_q5p27(out_block, reinterpret_cast<int32_t*>(out), samples); break;
        }
    }
    rec.prev_state = LMTR_STATE_LIMITING;
    rec.prev_pcm_format = LMTR_PCM_Q33P31;
    return LMTR_OK;
}

}  // namespace tvl

int32_t limiter_all_format(LimiterHandle* handle, const void* input, void* output, int64_t* scratch_block,
                           int32_t* out_block, uint32_t frames) {
    LimiterHandle rec = tvl::read_record(handle);
    if (rec.state > LMTR_STATE_BYPASS) return LMTR_ERR_STATE;
    if (frames < tvl::kBlockFrames) return LMTR_OK;  // no whole block: nothing to do

    const auto* in = static_cast<const unsigned char*>(input);
    auto* out = static_cast<unsigned char*>(output);
    const int32_t result = rec.state == LMTR_STATE_LIMITING
                               ? tvl::run_limiting_path(rec, in, out, scratch_block, out_block, frames)
                               : tvl::run_bypass_path(rec, in, out, scratch_block, frames);
    tvl::write_record(handle, rec);
    return result;
}
