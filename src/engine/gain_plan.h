// The gain trajectory of the limiting path as plain data.
//
// One block of look-ahead: while the held block leaves, the gain must already
// move to what the new block needs, so the target for the end of the emitted
// block is the smaller of the new block's and the held block's required
// gains. The gain falls to a lower target along the attack ramp within one
// block and climbs to a higher one by release_step per frame. plan_block()
// decides the move from the gain state alone; the routes of the limiting path
// render it into the output (engine.h).
#pragma once

#include <stdint.h>

#include "common/sample_rules.h"

namespace tvl {

// How the gain moves over the 64 frames of one emitted block.
struct GainMove {
    enum Kind : uint32_t {
        kUnity,  // every frame at exact unity: narrowed, not scaled by 32767/32768
        kHold,   // every frame at `gain`
        kRamp,   // the attack ramp from `gain` down to `to` over the 64 frames
        kStep,   // `frames` frames climbing from `gain` by `step` per frame, then
                 // the rest of the block at `to`: exact unity when `to` is 32767
    };
    Kind kind;
    int32_t gain;
    int32_t to;
    int32_t step;
    uint32_t frames;

    constexpr bool operator==(const GainMove&) const = default;
};

// A block's move and the gain state after it.
struct BlockPlan {
    GainMove move;
    int32_t cur_gain;       // the gain the emitted block ends at
    int32_t last_min_gain;  // the new block's own requirement, now held

    constexpr bool operator==(const BlockPlan&) const = default;
};

// The move for the held block, from the gain it starts at (cur_gain), the
// held block's requirement (last_min_gain), the release step and the new
// block's requirement (block_min_gain, never above 32767). All comparisons
// are signed 32-bit.
constexpr BlockPlan plan_block(int32_t cur_gain, int32_t last_min_gain, int32_t release_step,
                               int32_t block_min_gain) {
    const int32_t target = block_min_gain < last_min_gain ? block_min_gain : last_min_gain;
    const auto plan = [&](GainMove::Kind kind, int32_t gain, int32_t to, uint32_t frames, int32_t next) {
        return BlockPlan{{kind, gain, to, kind == GainMove::kStep ? release_step : 0, frames}, next, block_min_gain};
    };
    if (target >= kUnityGain && cur_gain >= kUnityGain) return plan(GainMove::kUnity, kUnityGain, kUnityGain, 0, target);
    if (target == cur_gain) return plan(GainMove::kHold, cur_gain, cur_gain, 0, cur_gain);
    if (target < cur_gain) return plan(GainMove::kRamp, cur_gain, target, 0, target);

    // Release. A rise of 64 steps or more takes the whole block, ending where
    // the 64th step lands (low 32 bits).
    const int32_t rise = int32_t(uint32_t(target) - uint32_t(cur_gain));
    const int32_t whole_block_rise = int32_t(uint32_t(release_step) << 6);
    if (rise >= whole_block_rise) {
        const int32_t reached = int32_t(uint32_t(uint64_t(release_gain(cur_gain, release_step, kBlockFrames - 1))));
        return plan(GainMove::kStep, cur_gain, reached, kBlockFrames, reached);
    }
    // Less: as many whole steps as fit below the target (0 < rise < 64 steps,
    // so at most 63), then a jump to it. A step of 0 or less comes only from
    // a damaged record: no steps, and no division by it.
    const int32_t steps = release_step > 0 ? rise / release_step : 0;
    if (steps <= 0) return plan(target == kUnityGain ? GainMove::kUnity : GainMove::kHold, target, target, 0, target);
    return plan(GainMove::kStep, cur_gain, target, uint32_t(steps), target);
}

}  // namespace tvl
