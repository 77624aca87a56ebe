// Attack: the gain falls along LMTR_RAMP_TABLE within one block while a
// Q33.31 block is emitted as Q1.31.
#include "common/frame_loops.h"
#include "common/memory.h"
#include "common/sample_rules.h"
#include "common/scalar_kernels.h"
#include "taviklimiter.h"

// Entry i is 512 * i: the Q15 share of the way covered at frame i. It stops at
// 63/64 (32256); the caller puts the end gain in force from the next block on.
extern const int32_t LMTR_RAMP_TABLE[64] = {
    0,     512,   1024,  1536,  2048,  2560,  3072,  3584,  4096,  4608,  5120,  5632,  6144,
    6656,  7168,  7680,  8192,  8704,  9216,  9728,  10240, 10752, 11264, 11776, 12288, 12800,
    13312, 13824, 14336, 14848, 15360, 15872, 16384, 16896, 17408, 17920, 18432, 18944, 19456,
    19968, 20480, 20992, 21504, 22016, 22528, 23040, 23552, 24064, 24576, 25088, 25600, 26112,
    26624, 27136, 27648, 28160, 28672, 29184, 29696, 30208, 30720, 31232, 31744, 32256,
};

namespace tvl::scalar {

int32_t apply_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src, int32_t* dst,
                        const int32_t* ramp_table, uint32_t count, int32_t stride) {
    for_each_frame_sample(is_stereo, count, stride, [&](uint32_t frame, ptrdiff_t p) {
        const int32_t g = ramp_gain(start_gain, end_gain, load<int32_t>(ramp_table, frame));
        store<int32_t>(dst, p, scale_q33p31_to_q1p31(load<int64_t>(src, p), g));
    });
    return end_gain;
}

}  // namespace tvl::scalar
