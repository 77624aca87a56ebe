// The limiting block step: one block of look-ahead.
//
// The gain with which the held block leaves must already be down to what the
// new block needs when the new block's turn comes, so the target for the end
// of the emitted block is the smaller of the new block's and the held block's
// required gains. The gain falls to a lower target along the attack ramp
// within one block, and climbs to a higher one by release_step per frame.
#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"
#include "engine/engine.h"

namespace tvl {

namespace {

// Emits the held block while the gain climbs from cur towards a higher target;
// returns the new cur_gain.
int32_t release(const LimiterHandle& rec, int32_t cur, int32_t target, const int64_t* held, int32_t* out) {
    const int32_t stereo = int32_t(rec.is_stereo);
    const uint32_t samples = samples_per_block(rec.is_stereo);
    const int32_t rise = int32_t(uint32_t(target) - uint32_t(cur));
    const int32_t whole_block_rise = int32_t(uint32_t(rec.release_step) << 6);
    if (rise >= whole_block_rise) {
        return active::apply_step_gain_without_saturation(stereo, cur, rec.release_step, held, out, kBlockFrames, 1);
    }
    // Here 0 < rise < 64 * release_step, so the step is positive and the
    // truncating division climbs at most 63 frames without passing the target.
    const int32_t steps = rise / rec.release_step;
    const uint32_t stepped = uint32_t(steps) * (stereo ? 2u : 1u);
    if (steps >= 1) active::apply_step_gain_without_saturation(stereo, cur, rec.release_step, held, out, uint32_t(steps), 1);
    const int64_t* rest_in = held + stepped;
    int32_t* rest_out = out + stepped;
    if (target == kUnityGain) {
        active::no_limiter(rest_in, rest_out, samples - stepped, 1);
    } else {
        active::apply_fix_gain(target, rest_in, rest_out, int32_t(samples - stepped), 1);
    }
    return target;
}

}  // namespace

bool limiter_primary_q33p31_to_q1p31(LimiterHandle& rec, const unsigned char* input, uint32_t format,
                                     int32_t block_min_gain, int32_t* emitted, float* unity_out) {
    const int32_t stereo = int32_t(rec.is_stereo);
    const uint32_t samples = samples_per_block(rec.is_stereo);
    auto* delay_line = reinterpret_cast<int64_t*>(rec.delay_line);
    const int32_t target = block_min_gain < rec.last_min_gain ? block_min_gain : rec.last_min_gain;

    int32_t cur = rec.cur_gain;
    bool as_float32 = false;
    if (target >= kUnityGain && cur >= kUnityGain) {
        // Exact unity; the Q15 rule at 32767 would scale by 32767/32768.
        as_float32 = unity_out != nullptr;
        if (as_float32) {
            active::narrow_q33p31_to_float32(delay_line, unity_out, samples);
        } else {
            active::no_limiter(delay_line, emitted, samples, 1);
        }
        cur = target;
    } else if (target == cur) {
        active::apply_fix_gain(cur, delay_line, emitted, int32_t(samples), 1);
    } else if (target < cur) {
        active::apply_targ_gain(stereo, cur, target, delay_line, emitted, LMTR_RAMP_TABLE, kBlockFrames, 1);
        cur = target;
    } else {
        cur = release(rec, cur, target, delay_line, emitted);
    }

    // The held block has left: the new one takes its place.
    widen_block(format, input, delay_line, samples);
    if (makeup_gain_set(rec) && !as_float32) active::apply_makeup_gain(emitted, samples, int32_t(rec.makeup_gain));
    rec.cur_gain = cur;
    rec.last_min_gain = block_min_gain;
    return as_float32;
}

}  // namespace tvl
