// The engine's entry and the limiting path: every block is limited with one
// block of look-ahead and written back in the input's format (Q1.31 for
// Q33.31 input). Per block: the gain the new block needs (found from the input
// block itself), the plan of the gain move (gain_plan.h), its rendering as the
// held block leaves, and the new block taken into the hold.
#include "common/kernels.h"
#include "common/sample_rules.h"
#include "engine/engine.h"
#include "engine/route.h"

namespace tvl {

int32_t run_limiting_path(LimiterHandle& rec, const unsigned char* input, unsigned char* output,
                          int64_t* scratch_block, int32_t* out_block, uint32_t frames) {
    // The format test is made once per call. A code above 2 only reaches here
    // through a direct call with a damaged record: nothing is touched.
    if (!valid_pcm_format(rec.pcm_format)) return LMTR_ERR_PCM_FORMAT;
    if (rec.prev_state == LMTR_STATE_BYPASS) {
        // Back from bypass: the held block, kept in the input's format, enters
        // the limiter as Q33.31 without a fade; the gains are at unity since
        // the switch into bypass (or a reset).
        reencode_delay_line(rec.delay_line, rec.prev_pcm_format, LMTR_PCM_Q33P31, samples_per_block(rec.is_stereo));
        rec.prev_state = LMTR_STATE_LIMITING;
    } else if (rec.prev_state == LMTR_STATE_LIMITING && rec.prev_pcm_format != LMTR_PCM_Q33P31) {
        return LMTR_ERR_PCM_FORMAT;  // limiting never holds another format: a damaged record
    }

    const uint32_t blocks = frames / kBlockFrames;
    const RequiredGain required_gain(rec);
    Route route(rec, input, output, out_block, blocks);
    // The gains that the blocks need are found a batch of blocks ahead of
    // their steps, so that the peaks of successive blocks overlap and each
    // step's move is known before its rendering begins.
    constexpr uint32_t kBatch = 16;
    int32_t block_min_gains[kBatch];
    for (uint32_t k = 0; k < blocks; ++k) {
        if (k % kBatch == 0) {
            const uint32_t batch = blocks - k < kBatch ? blocks - k : kBatch;
            required_gain.of_blocks(route.in(k), batch, block_min_gains, scratch_block, out_block);
        }
        const BlockPlan plan = plan_block(rec.cur_gain, rec.last_min_gain, rec.release_step, block_min_gains[k % kBatch]);
        route.render(k, plan.move);
        route.hold(k);
        rec.cur_gain = plan.cur_gain;
        rec.last_min_gain = plan.last_min_gain;
    }
    rec.prev_state = LMTR_STATE_LIMITING;
    rec.prev_pcm_format = LMTR_PCM_Q33P31;
    return LMTR_OK;
}

}  // namespace tvl

int32_t limiter_all_format(LimiterHandle* handle, const void* input, void* output, int64_t* scratch_block,
                           int32_t* out_block, uint32_t frames) {
    LimiterHandle rec = tvl::read_record(handle);
    if (!tvl::valid_state(rec.state)) return LMTR_ERR_STATE;
    if (frames < tvl::kBlockFrames) return LMTR_OK;  // no whole block: nothing to do

    const int32_t result = tvl::run_paths(rec, input, output, scratch_block, out_block, frames);
    tvl::write_progress(handle, rec);
    return result;
}
