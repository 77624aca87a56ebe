// Limiter_Process: argument checks and the accounting of whole 64-frame blocks.
#include "common/instance.h"
#include "engine/engine.h"
#include "taviklimiter.h"

int32_t Limiter_Process(LimiterHandle* handle, void* scratch, const void* input, uint32_t* in_size, void* output,
                        uint32_t* out_size) {
    // The sizes are read and cleared before any check, so a failing call
    // always reports that nothing was consumed or produced.
    const uint32_t in_available = *in_size;
    const uint32_t out_available = *out_size;
    *in_size = 0;
    *out_size = 0;
    if (!scratch || !handle || !input || !output) return LMTR_ERR_NULL_POINTER;

    LimiterHandle rec = tvl::read_record(handle);
    if (!tvl::valid_pcm_format(rec.pcm_format) || !tvl::valid_pcm_format(rec.prev_pcm_format)) {
        return LMTR_ERR_PCM_FORMAT;
    }
    if (!tvl::valid_state(rec.state) || !tvl::valid_state(rec.prev_state)) return LMTR_ERR_STATE;

    // log2 of the bytes per frame: output 4 (mono) or 8 (stereo); Q33.31
    // input twice that. A shift by 6 more counts 64-frame blocks.
    const uint32_t out_shift = rec.is_stereo ? 3 : 2;
    const uint32_t in_shift = out_shift + (rec.pcm_format == LMTR_PCM_Q33P31 ? 1 : 0);
    const uint32_t in_frames = (in_available >> (in_shift + 6)) << 6;
    const uint32_t out_frames = (out_available >> (out_shift + 6)) << 6;
    const uint32_t frames = in_frames < out_frames ? in_frames : out_frames;
    *in_size = frames << in_shift;
    *out_size = frames << out_shift;
    if (frames == 0) return LMTR_OK;  // a pending switch waits for a whole block

    auto* bytes = static_cast<unsigned char*>(scratch);
    auto* scratch_block = reinterpret_cast<int64_t*>(bytes);
    auto* out_block = reinterpret_cast<int32_t*>(bytes + tvl::kOutBlockOffset);
    const int32_t result = tvl::run_paths(rec, input, output, scratch_block, out_block, frames);
    tvl::write_progress(handle, rec);
    return result;
}
