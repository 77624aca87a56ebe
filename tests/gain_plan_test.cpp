// The gain trajectory as data: the move planned for a held block and the gain
// state after it, from the state before and the new block's requirement.
#include <gtest/gtest.h>

#include <cstdint>

#include "engine/gain_plan.h"

namespace {

using tvl::BlockPlan;
using tvl::GainMove;

struct PlanRow {
    const char* name;
    int32_t cur_gain, last_min_gain, release_step, block_min_gain;
    BlockPlan want;
};

TEST(GainPlan, MovesAndNextState) {
    const PlanRow rows[] = {
        {"quiet stays at exact unity", 32767, 32767, 4, 32767, {{GainMove::kUnity, 32767, 32767, 0, 0}, 32767, 32767}},
        {"a loud block ahead: attack", 32767, 32767, 4, 20000, {{GainMove::kRamp, 32767, 20000, 0, 0}, 20000, 20000}},
        {"the held block's own need wins", 32767, 18000, 4, 20000, {{GainMove::kRamp, 32767, 18000, 0, 0}, 18000, 20000}},
        {"at the target: hold", 20000, 20000, 4, 25000, {{GainMove::kHold, 20000, 20000, 0, 0}, 20000, 25000}},
        {"a rise of 200: 50 steps, then 20200", 20000, 20200, 4, 32767,
         {{GainMove::kStep, 20000, 20200, 4, 50}, 20200, 32767}},
        {"a rise of 6: one step, then 20006", 20000, 20006, 4, 32767, {{GainMove::kStep, 20000, 20006, 4, 1}, 20006, 32767}},
        {"a rise below one step: hold at the target", 20000, 20003, 4, 32767,
         {{GainMove::kHold, 20003, 20003, 0, 0}, 20003, 32767}},
        {"a rise of 64 steps or more: the whole block", 30000, 32767, 4, 32767,
         {{GainMove::kStep, 30000, 30256, 4, 64}, 30256, 32767}},
        {"16 steps, then exact unity", 32700, 32767, 4, 32767, {{GainMove::kStep, 32700, 32767, 4, 16}, 32767, 32767}},
        {"a rise below one step to unity", 32765, 32767, 4, 32767, {{GainMove::kUnity, 32767, 32767, 0, 0}, 32767, 32767}},
        {"a step of 2^26 wraps its whole-block rise to 0", 0, 100, 1 << 26, 32767,
         {{GainMove::kStep, 0, 0, 1 << 26, 64}, 0, 32767}},
        {"damaged: step 0 with a wrapped rise makes no steps", INT32_MIN, 32767, 0, 32767,
         {{GainMove::kUnity, 32767, 32767, 0, 0}, 32767, 32767}},
        {"damaged: a negative step never passes the block", INT32_MIN, 32767, -4, 32767,
         {{GainMove::kUnity, 32767, 32767, 0, 0}, 32767, 32767}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        const BlockPlan got = tvl::plan_block(r.cur_gain, r.last_min_gain, r.release_step, r.block_min_gain);
        EXPECT_EQ(r.want.move.kind, got.move.kind);
        EXPECT_EQ(r.want, got) << "gain " << got.move.gain << " to " << got.move.to << " step " << got.move.step
                               << " frames " << got.move.frames << " next " << got.cur_gain;
    }
}

}  // namespace
