#include "bypass_schedule.h"

#include <taviklimiter.h>

#include <algorithm>
#include <cmath>

namespace taviklimit {
namespace {

constexpr uint64_t kBlock = LMTR_BLOCK_FRAMES;

uint64_t nearest_block_boundary(double seconds, int rate) {
    const double blocks = std::nearbyint(seconds * rate / static_cast<double>(kBlock));
    return static_cast<uint64_t>(blocks) * kBlock;
}

}  // namespace

std::vector<FrameRange> align_bypass(const std::vector<TimeRange>& ranges, int rate) {
    std::vector<FrameRange> aligned;
    for (const TimeRange& r : ranges) {
        FrameRange f{nearest_block_boundary(r.start_s, rate), nearest_block_boundary(r.end_s, rate)};
        f.end = std::max(f.end, f.start + kBlock);
        if (!aligned.empty() && f.start <= aligned.back().end) {
            aligned.back().end = std::max(aligned.back().end, f.end);
        } else {
            aligned.push_back(f);
        }
    }
    return aligned;
}

}  // namespace taviklimit
