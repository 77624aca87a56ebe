// The engine's entry and the limiting path: every block is widened to Q33.31,
// limited with one block of look-ahead, and written back in the input's
// format (Q1.31 for Q33.31 input). A quiet 32-bit block after quiet ones is
// recognised from its input samples and widened straight into the delay line.
#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"
#include "engine/engine.h"

namespace tvl {

namespace {

// The test that tells a quiet 32-bit input block (every sample at or below
// the threshold once widened) from its input samples: their peak against a
// bound in the input's own terms. Not possible for Q33.31 input, nor for a
// negative ceiling, where every sample is reduced.
struct QuietTest {
    bool possible = false;
    uint32_t format = LMTR_PCM_Q33P31;
    uint32_t bound = 0;

    bool passes(const unsigned char* block, uint32_t samples) const {
        const uint32_t peak = format == LMTR_PCM_FLOAT32
                                  ? active::peak_float32(reinterpret_cast<const float*>(block), samples)
                                  : active::peak_q5p27(reinterpret_cast<const int32_t*>(block), samples);
        return peak <= bound;
    }
};

QuietTest quiet_test(const LimiterHandle& rec) {
    QuietTest q;
    const int64_t threshold = gain_threshold(ceiling_q15(rec.ceiling));
    if (threshold < 0 || rec.pcm_format == LMTR_PCM_Q33P31) return q;
    q.possible = true;
    q.format = rec.pcm_format;
    q.bound = rec.pcm_format == LMTR_PCM_FLOAT32 ? float32_quiet_bound(threshold) : q5p27_quiet_bound(threshold);
    return q;
}

}  // namespace

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

    const QuietTest quiet = quiet_test(rec);
    const size_t in_block_bytes = samples * (rec.pcm_format == LMTR_PCM_Q33P31 ? 8u : 4u);
    const size_t out_block_bytes = samples * 4u;  // Q1.31, float32 and Q5.27 alike
    for (uint32_t k = 0; k < frames / kBlockFrames; ++k) {
        // Output block k ends where input block k + 1 begins at the latest, and
        // is written after input block k is read: in place is safe.
        const unsigned char* in = input + k * in_block_bytes;
        unsigned char* out = output + k * out_block_bytes;
        if (quiet.possible && rec.cur_gain == kUnityGain && rec.last_min_gain == kUnityGain &&
            !makeup_gain_set(rec) && quiet.passes(in, samples)) {
            quiet_block_step(rec, in, out_block);
        } else {
            widen_block(rec.pcm_format, in, scratch_block, samples);
            // Q1.31 output is emitted where it belongs; the other formats are
            // converted from out_block.
            limiter_primary_q33p31_to_q1p31(
                rec, scratch_block, rec.pcm_format == LMTR_PCM_Q33P31 ? reinterpret_cast<int32_t*>(out) : out_block);
        }
        switch (rec.pcm_format) {
            case LMTR_PCM_Q33P31: break;
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
