// The --bypass ranges placed on the limiter's 64-frame block grid.
#pragma once

#include <cstdint>
#include <vector>

#include "options.h"

namespace taviklimit {

struct FrameRange {
    uint64_t start;  // first frame in bypass, a multiple of 64
    uint64_t end;    // first frame limited again, a multiple of 64, above start
};

// Rounds each time to the nearest multiple of 64 frames at rate, widens a
// range that comes out empty to one block and merges ranges that meet.
std::vector<FrameRange> align_bypass(const std::vector<TimeRange>& ranges, int rate);

}  // namespace taviklimit
