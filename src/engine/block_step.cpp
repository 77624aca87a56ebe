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

// The gain moves the same way whatever holds the block and whatever it leaves
// as. An emission offers the four moves over the held block, each from frame
// `frame` to the block's end: unity(frame), fix(gain, frame), ramp(from, to)
// (the whole block) and step(from, step, frames) (from frame 0; returns the
// gain reached).

// The held block in the delay line, leaving as Q1.31 at out; at unity as a
// whole it may leave straight as float32 at unity_out instead.
struct Q1p31Emission {
    int32_t stereo;
    uint32_t samples;
    const int64_t* held;
    int32_t* out;
    float* unity_out;
    bool left_as_float32 = false;

    uint32_t sample(uint32_t frame) const { return stereo ? frame * 2 : frame; }
    void unity(uint32_t frame) {
        if (frame == 0 && unity_out != nullptr) {
            active::narrow_q33p31_to_float32(held, unity_out, samples);
            left_as_float32 = true;
            return;
        }
        active::no_limiter(held + sample(frame), out + sample(frame), samples - sample(frame), 1);
    }
    void fix(int32_t gain, uint32_t frame) {
        active::apply_fix_gain(gain, held + sample(frame), out + sample(frame), int32_t(samples - sample(frame)), 1);
    }
    void ramp(int32_t from, int32_t to) {
        active::apply_targ_gain(stereo, from, to, held, out, LMTR_RAMP_TABLE, kBlockFrames, 1);
    }
    int32_t step(int32_t from, int32_t step, uint32_t frames) {
        return active::apply_step_gain_without_saturation(stereo, from, step, held, out, frames, 1);
    }
};

// A float32 held block still in the input, leaving as float32 at out.
struct Float32Emission {
    int32_t stereo;
    uint32_t samples;
    const float* held;
    float* out;

    uint32_t sample(uint32_t frame) const { return stereo ? frame * 2 : frame; }
    void unity(uint32_t frame) {
        active::emit_float32_at_unity(held + sample(frame), out + sample(frame), samples - sample(frame));
    }
    void fix(int32_t gain, uint32_t frame) {
        active::emit_float32_fix_gain(gain, held + sample(frame), out + sample(frame), samples - sample(frame));
    }
    void ramp(int32_t from, int32_t to) {
        active::emit_float32_targ_gain(stereo, from, to, held, out, LMTR_RAMP_TABLE, kBlockFrames);
    }
    int32_t step(int32_t from, int32_t step, uint32_t frames) {
        return active::emit_float32_step_gain(stereo, from, step, held, out, frames);
    }
};

// Emits the held block with the gain moving from cur_gain towards the smaller
// of the new block's requirement and the held block's own; returns the new
// cur_gain.
template <typename Emission>
int32_t emit_held_block(const LimiterHandle& rec, int32_t block_min_gain, Emission& emit) {
    const int32_t target = block_min_gain < rec.last_min_gain ? block_min_gain : rec.last_min_gain;
    const int32_t cur = rec.cur_gain;
    if (target >= kUnityGain && cur >= kUnityGain) {
        emit.unity(0);  // exact unity; the Q15 rule at 32767 would scale by 32767/32768
        return target;
    }
    if (target == cur) {
        emit.fix(cur, 0);
        return cur;
    }
    if (target < cur) {
        emit.ramp(cur, target);
        return target;
    }
    // Release: the gain climbs by release_step per frame.
    const int32_t rise = int32_t(uint32_t(target) - uint32_t(cur));
    const int32_t whole_block_rise = int32_t(uint32_t(rec.release_step) << 6);
    if (rise >= whole_block_rise) return emit.step(cur, rec.release_step, kBlockFrames);
    // Here 0 < rise < 64 * release_step, so the step is positive and the
    // truncating division climbs at most 63 frames without passing the target.
    const int32_t steps = rise / rec.release_step;
    if (steps >= 1) emit.step(cur, rec.release_step, uint32_t(steps));
    if (target == kUnityGain) {
        emit.unity(uint32_t(steps));
    } else {
        emit.fix(target, uint32_t(steps));
    }
    return target;
}

}  // namespace

bool limiter_primary_q33p31_to_q1p31(LimiterHandle& rec, const unsigned char* input, uint32_t format,
                                     int32_t block_min_gain, int32_t* emitted, float* unity_out) {
    const uint32_t samples = samples_per_block(rec.is_stereo);
    auto* delay_line = reinterpret_cast<int64_t*>(rec.delay_line);
    Q1p31Emission emit{int32_t(rec.is_stereo), samples, delay_line, emitted, unity_out};
    const int32_t cur = emit_held_block(rec, block_min_gain, emit);

    // The held block has left: the new one takes its place.
    if (input != nullptr) widen_block(format, input, delay_line, samples);
    if (makeup_gain_set(rec) && !emit.left_as_float32) active::apply_makeup_gain(emitted, samples, int32_t(rec.makeup_gain));
    rec.cur_gain = cur;
    rec.last_min_gain = block_min_gain;
    return emit.left_as_float32;
}

void limiter_step_float32_from_input(LimiterHandle& rec, const float* held, int32_t block_min_gain, float* out) {
    Float32Emission emit{int32_t(rec.is_stereo), samples_per_block(rec.is_stereo), held, out};
    rec.cur_gain = emit_held_block(rec, block_min_gain, emit);
    rec.last_min_gain = block_min_gain;
}

}  // namespace tvl
