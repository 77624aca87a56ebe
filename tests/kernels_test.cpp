// The kernels. Worked values pin the documented rules that are easy to get
// wrong (floors of negative products, the threshold, the 2^46 cut, NaN and
// saturation in the conversions, the order of the float fade's multiplies);
// the differential then holds every vector path to the scalar reference on
// fresh random data with every format's special values mixed in: each
// kernel at every count from 0 to 140 (past two widths of the widest
// vector loop) and a few long ones, then random cases until the time box
// (TVL_TEST_SECONDS, default 2) ends. TVL_SEED repeats a run.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <limits>
#include <vector>

#include "support/kernel_check.h"

namespace {

using namespace tvl_test;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN(), kInf = std::numeric_limits<float>::infinity();
constexpr int64_t k2p31 = INT64_C(1) << 31, kT = kThreshold;

// The rows run the exported kernels (the build's vector paths), then the
// scalar reference: each must keep the documented rules on its own.
bool g_scalar = false;
#define K(fn) (g_scalar ? tvl::scalar::fn : ::fn)

// One row: a kernel call on fixed input x, leaving y; the values y must start with.
struct Worked {
    const char* what;
    std::vector<unsigned char> (*run)();
    std::vector<unsigned char> want;
};
template <typename T>
std::vector<unsigned char> bytes(const std::vector<T>& x) {
    std::vector<unsigned char> b(x.size() * sizeof(T));
    std::memcpy(b.data(), x.data(), b.size());
    return b;
}
#define TVL_WORKED(what, in_type, in, out_type, body, ...)                                          \
    Worked{what,                                                                                    \
           [] {                                                                                     \
               std::vector<in_type> x in;                                                           \
               std::vector<out_type> y(16);                                                         \
               body;                                                                                \
               return bytes(y);                                                                     \
           },                                                                                       \
           bytes(std::vector<out_type>{__VA_ARGS__})}
#define TVL_SAME(n) std::memcpy(y.data(), x.data(), n)

const Worked kWorked[] = {
    TVL_WORKED("derive_gain: the threshold, odd gains, the 2^46 cut, -2^63", int64_t,
               ({kT, -kT, kT + 1, -kT - 1, kT + 2, 3 * k2p31, (INT64_C(1) << 47) - 1, INT64_MIN}), int32_t,
               K(derive_gain)(x.data(), y.data(), 8, 32767, 1), 32767, 32767, 32730, 32730, 32728, 10908, 0, 0),
    TVL_WORKED("calculate_block_min_gain: stereo pairs, mono stride 2, counts 0 and 1", int32_t, ({40000, 5, -7, 100}),
               int32_t,
               y = std::vector<int32_t>({K(calculate_block_min_gain)(1, x.data(), 2, 9), K(calculate_block_min_gain)(0, x.data(), 2, 2),
                                         K(calculate_block_min_gain)(0, x.data(), 0, 1), K(calculate_block_min_gain)(0, x.data(), 1, 1)}),
               -7, -7, 32767, 32767),
    TVL_WORKED("apply_fix_gain: floors of negative products, low 32 bits", int64_t, ({-1, -3, k2p31, INT64_C(1) << 46}),
               int32_t, K(apply_fix_gain)(16384, x.data(), y.data(), 4, 1), -1, -2, 1 << 30, 0),
    TVL_WORKED("apply_makeup_gain: the low 16 bits of the gain, floor, bit 0 cleared", int32_t, ({3, 5, -5, 7}), int32_t,
               K(apply_makeup_gain)(x.data(), 1, 0x18000); K(apply_makeup_gain)(x.data() + 1, 3, 16384); TVL_SAME(16),
               -4, 2, -4, 2),
    TVL_WORKED("apply_targ_gain: a ramp down from unity (arithmetic shift)", int64_t, ({k2p31, k2p31, k2p31}), int32_t,
               y[3] = K(apply_targ_gain)(0, 32767, 0, x.data(), y.data(), LMTR_RAMP_TABLE, 3, 1),
               2147418112, 2113863680, 2080309248, 0),
    TVL_WORKED("apply_step_gain_without_saturation: the gain rises before use", int64_t, ({k2p31, k2p31}), int32_t,
               y[2] = K(apply_step_gain_without_saturation)(0, 16384, 4, x.data(), y.data(), 2, 1),
               1074003968, 1074266112, 16392),
    TVL_WORKED("apply_ramp_gain_for_float32: (x * g) * 2^-15, overflow included", float, ({1.0f, 3e38f, 1.0f}), float,
               K(apply_ramp_gain_for_float32)(0, 32767, 0, x.data(), x.data(), LMTR_RAMP_TABLE, 2, 1); TVL_SAME(12),
               0.999969482421875f, kInf, 1.0f),
    TVL_WORKED("apply_ramp_gain_for_q33p31 and _q5p27: floors", int64_t, ({-3, -5}), int32_t,
               K(apply_ramp_gain_for_q33p31)(0, 16384, 16384, x.data(), x.data(), LMTR_RAMP_TABLE, 1, 1);
               y[0] = int32_t(x[0]); int32_t q5 = -5;
               K(apply_ramp_gain_for_q5p27)(0, 16384, 16384, &q5, &q5, LMTR_RAMP_TABLE, 1, 1); y[1] = q5, -2, -3),
    TVL_WORKED("copy_float32_to_q33p31: half up, NaN 0, saturation", float,
               ({kNaN, -1.0f, 0x1p-32f, -0x1p-32f, kInf, -kInf, 0x1p32f, -0x1.8p-31f, -0x1p32f}), int64_t,
               K(copy_float32_to_q33p31)(x.data(), y.data(), 9), 0, -2147483647, 1, 0, INT64_MAX, INT64_MIN, INT64_MAX, -1,
               INT64_MIN),
    TVL_WORKED("convert_from_float32_to_q5p27: half up, NaN 0, saturation outside [-16, 16)", float,
               ({16.0f, -16.0f, kNaN, -kInf, kInf, 1.0f, -0x1p-28f, 0x1p-28f, -17.0f}), int32_t,
               K(convert_from_float32_to_q5p27)(x.data(), 9); TVL_SAME(36),
               INT32_MAX, -2147483647, 0, INT32_MIN, INT32_MAX, 0x08000000, 0, 1, INT32_MIN),
    TVL_WORKED("copy_q1p31_to_q5p27 (floor) and copy_q1p31_to_float32", int32_t, ({-1, -17, 17, INT32_MIN, INT32_MAX}),
               int32_t,
               K(copy_q1p31_to_q5p27)(x.data(), x.data(), 3);
               K(copy_q1p31_to_float32)(x.data() + 3, reinterpret_cast<float*>(x.data() + 3), 2); TVL_SAME(20),
               -1, -2, 1, std::bit_cast<int32_t>(-1.0f), std::bit_cast<int32_t>(1.0f)),
    TVL_WORKED("narrowing: clip, wrap, +1.0 wraps into Q5.27, Q33.31 to float", int64_t,
               ({INT64_C(1) << 40, INT64_MIN, (INT64_C(1) << 32) + 5, k2p31, INT64_MIN}), int32_t,
               K(clip_from_q33p31_to_q1p31)(x.data(), y.data(), 2); K(move_from_q33p31_to_q1p31)(x.data() + 2, y.data() + 2, 1);
               K(convert_from_q33p31_to_q5p27)(x.data() + 3, 1); y[3] = get<int32_t>(x.data() + 3, 0);
               K(convert_from_q33p31_to_float32)(x.data() + 4, 1); y[4] = get<int32_t>(x.data() + 4, 0),
               INT32_MAX, INT32_MIN, 5, -0x08000000, std::bit_cast<int32_t>(-0x1p32f)),
};
#undef TVL_WORKED
#undef TVL_SAME
#undef K

TEST(Kernels, WorkedValues) {
    for (bool scalar : {false, true}) {
        g_scalar = scalar;
        for (const Worked& w : kWorked) {
            const auto got = w.run();
            EXPECT_TRUE(std::equal(w.want.begin(), w.want.end(), got.begin())) << w.what << (scalar ? ", scalar" : "");
        }
    }
}

TEST(Kernels, VectorPathsMatchTheScalarReference) {
    Gen g(run_seed("kernel differential"));
    const auto start = std::chrono::steady_clock::now();
    const double seconds = test_seconds(2.0);
    int failures = 0;
    uint64_t cases = 0;
    auto one = [&](size_t k, int64_t count) {
        const std::string e = check_kernel(k, count, g.next());
        ++cases;
        if (!e.empty() && ++failures <= 10) ADD_FAILURE() << e;
    };
    for (size_t k = 0; k < std::size(kKernelRows); ++k) {
        for (int64_t count = 0; count <= 140; ++count) one(k, count);
        for (int64_t count : {int64_t(-1), int64_t(INT32_MIN), int64_t(255), int64_t(1000), int64_t(4099)}) one(k, count);
    }
    while (std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() < seconds) {
        one(g.below(std::size(kKernelRows)), int64_t(g.below(g.one_in(8) ? 2000 : 200)));
    }
    std::printf("kernel differential: %llu cases\n", (unsigned long long)cases);
}

}  // namespace
