// The two output levels the library works with, as fractions of full scale.
#pragma once

namespace taviklimit {

// The no-reduction threshold: 2147418110 / 2^31 (about -0.0003 dBFS). A
// sample at or below it needs no reduction, and in limiting every output
// sample stays at or below it.
inline constexpr double kThreshold = 2147418110.0 / 2147483648.0;

// The target: 32730 / 32768 (about -0.0101 dBFS). A sample above the
// threshold gets the gain that brings it to about the target, never above.
inline constexpr double kTarget = 32730.0 / 32768.0;

// The largest stored value at or below the threshold in float and in 16 and
// 24-bit PCM: the threshold rounds to 1 - 2^-15 in all three.
inline constexpr double kThresholdStored = 1.0 - 1.0 / 32768.0;

}  // namespace taviklimit
