// The exported kernels: worked values that pin the rules that are easy to get
// wrong (floors of negative products, wrap beyond 32 bits, the two-multiply
// float fade, conversion rounding), the bytes each kernel may touch, and one
// table that compares every kernel with a plain per-sample loop over the
// rules of common/sample_rules.h for every count from 0 to 140.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "common/sample_rules.h"
#include "support/test_buffers.h"
#include "taviklimiter.h"

namespace {

using namespace tvl_test;

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr int64_t kFullScale = INT64_C(1) << 31;

// Independent arithmetic: exact products in 128 bits, floors by hand.
__int128 floor_div(__int128 p, int64_t d) {
    __int128 q = p / d;
    if (p % d != 0 && (p < 0) != (d < 0)) --q;
    return q;
}
int32_t low32(__int128 v) { return static_cast<int32_t>(static_cast<uint32_t>(static_cast<unsigned __int128>(v))); }
// Q15 scaling to Q1.31: bits 15 to 46 of the product, which the exact product shares with the wrapped one.
int32_t q15(int64_t x, int64_t g) { return low32(floor_div(static_cast<__int128>(x) * g, 32768)); }
// Ramp gain of frame i over LMTR_RAMP_TABLE: start + floor(i * (end - start) / 64).
int32_t ramp(int32_t start, int32_t end, int i) {
    return static_cast<int32_t>(start + floor_div(static_cast<__int128>(i) * (int64_t(end) - start), 64));
}

// ---- Gain derivation ----------------------------------------------------------------------------

int32_t gain_of(int64_t x, int32_t ceiling) {
    GuardedBuffer src(8), gains(4);
    put<int64_t>(src.data(), 0, x);
    derive_gain(src.as<int64_t>(), gains.as<int32_t>(), 1, ceiling, 1);
    EXPECT_TRUE(gains.guards_intact());
    return get<int32_t>(gains.data(), 0);
}

TEST(DeriveGain, WorkedValues) {
    const struct { int32_t ceiling; int64_t x; int32_t gain; } rows[] = {
        {32767, 0, 32767},          {32767, 2147418110, 32767},      {32767, -2147418110, 32767},
        {32767, 2147418111, 32730}, {32767, -2147418111, 32730},     {32767, 2147418112, 32728},
        {32767, kFullScale, 32728}, {32767, -kFullScale, 32728},     {32767, INT64_C(1) << 32, 16364},
        {32767, -(INT64_C(1) << 32), 16364}, {32767, INT64_C(1) << 35, 2044},
        {16384, 1073741822, 32767}, {16384, 1073741823, 32730},     {16384, kFullScale, 16364},
        {1, 65534, 32767},          {1, 65535, 65460},               {1, 65536, 32730},
        {1, 98303, 32730},          {1, 98304, 21820},               {0, 0, 32767},
        {0, 1, 0},                  {0, -kFullScale, 0},             {-1, 0, 0},
        {-1, kFullScale, -2},       {-1, 32767, 0},
        {0x10000 + 32767, kFullScale, 32728},  // only the low 16 bits of the ceiling count
        {0xFFFF, kFullScale, -2},              // 0xFFFF is -1
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << "ceiling " << r.ceiling << " sample " << r.x);
        EXPECT_EQ(r.gain, gain_of(r.x, r.ceiling));
    }
}

TEST(DeriveGain, ThresholdIsTwoUnitsBelowTheCeiling) {
    for (int32_t c = 1; c <= 32767; c += (c < 40 || c > 32700) ? 1 : 251) {
        SCOPED_TRACE(c);
        const int64_t t = int64_t(c) * 65536 - 2;
        EXPECT_EQ(32767, gain_of(t, c));
        EXPECT_EQ(32767, gain_of(-t, c));
        for (int64_t above : {t + 1, -t - 1}) {
            const int32_t g = gain_of(above, c);
            EXPECT_NE(32767, g);
            EXPECT_EQ(0, g & 1) << "reduced gains are even";
        }
    }
}

TEST(DeriveGain, StrideTwoLeavesOddPositions) {
    GuardedBuffer src(8 * 8), gains(8 * 4, 0, 0x5A);
    for (size_t i = 0; i < 8; ++i) put<int64_t>(src.data(), i, i % 2 ? INT64_C(1) << 35 : kFullScale);
    derive_gain(src.as<int64_t>(), gains.as<int32_t>(), 4, 32767, 2);
    for (size_t i = 0; i < 8; ++i) EXPECT_EQ(i % 2 ? 0x5A5A5A5A : 32728, get<int32_t>(gains.data(), i)) << i;
    EXPECT_TRUE(gains.guards_intact());
}

TEST(BlockMinGain, Table) {
    std::vector<int32_t> unity(128, 32767), last_zero = unity, right_zero = unity;
    last_zero[127] = 0;
    right_zero[1] = 0;
    const struct { const char* name; int32_t is_stereo; std::vector<int32_t> words; int32_t count, stride, min; }
        rows[] = {
        {"stereo unity", 1, unity, 64, 1, 32767},
        {"stereo, last word 0", 1, last_zero, 64, 1, 0},
        {"stereo ignores the stride", 1, right_zero, 64, 2, 0},
        {"one frame", 1, {40000, 30000}, 1, 1, 30000},
        {"capped at unity", 1, {40000, 50000}, 1, 1, 32767},
        {"signed", 7, {7, -5}, 1, 9, -5},
        {"stereo reads 2 * count", 1, {32767, 32767, 32767, 100, 0}, 2, 1, 100},
        {"mono stride 2", 0, {32767, 0, 100, 5}, 2, 2, 100},
        {"mono stride 1", 0, {32767, 0, 100}, 2, 1, 0},
        {"mono extreme", 0, {INT32_MIN}, 1, 1, INT32_MIN},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        GuardedBuffer words(r.words.size() * 4);
        std::memcpy(words.data(), r.words.data(), words.size());
        EXPECT_EQ(r.min, calculate_block_min_gain(r.is_stereo, words.as<int32_t>(), r.count, r.stride));
    }
}

// For every ceiling of 0 or more the block's largest magnitude decides its
// smallest gain: what derive_gain and calculate_block_min_gain find over the
// whole block, capped at unity.
TEST(BlockPeaks, DecideTheSmallestGain) {
    SampleGen gen(0x5EED);
    for (int32_t c : {32767, 32730, 16384, 432, 431, 2, 1, 0}) {
        SCOPED_TRACE(c);
        const int64_t t = tvl::gain_threshold(c);
        std::vector<int64_t> block(128);
        std::vector<int32_t> gains(128);
        for (uint32_t trial = 0; trial < 3000; ++trial) {
            // Every third block is short and lies at the threshold, by -1 to
            // +2 (t + 1 is the one magnitude that gets a gain above unity,
            // for ceilings up to 431), every third within a few d steps of it.
            const uint32_t n = trial % 3 == 0 ? 1 + trial % 4 : 1 + trial % 128;
            for (uint32_t i = 0; i < n; ++i) {
                const int64_t sign = gen.between(0, 1) ? 1 : -1;
                block[i] = trial % 3 == 0   ? (t + gen.between(-1, 2)) * sign
                           : trial % 3 == 1 ? (t + gen.between(-70000, 70000)) * sign
                                            : gen.q33p31();
            }
            derive_gain(block.data(), gains.data(), n, c, 1);
            const int32_t want = calculate_block_min_gain(0, gains.data(), int32_t(n), 1);
            uint64_t peak = 0;
            for (uint32_t i = 0; i < n; ++i) {
                const uint64_t m = block[i] < 0 ? 0 - uint64_t(block[i]) : uint64_t(block[i]);
                peak = std::max(peak, m);
            }
            ASSERT_EQ(tvl::min_required_gain_of_peak(peak, c, t), want) << "trial " << trial;
        }
    }
}

// ---- The Q15 rule and the gains that use it ---------------------------------------------------

TEST(Q15Rule, FloorsAndWrapsInEveryKernelThatScales) {
    const struct { int64_t x; int32_t g, out; } rows[] = {
        {kFullScale - 1, 32767, 2147418111}, {-kFullScale, 32767, -2147418112}, {kFullScale, 16384, 1073741824},
        {-1, 1, -1}, {-3, 32767, -3}, {1, 16384, 0}, {-1, 16384, -1}, {-16384, 1, -1},
        {INT64_C(1) << 32, 32767, -131072},  // 4294836224 does not fit and nothing saturates
        {kFullScale, 0, 0}, {INT64_MAX, 32767, q15(INT64_MAX, 32767)}, {INT64_MIN, 32767, q15(INT64_MIN, 32767)},
        {(INT64_C(1) << 40) + 12345, 30000, q15((INT64_C(1) << 40) + 12345, 30000)},
        {-(INT64_C(1) << 40) - 1, 12345, q15(-(INT64_C(1) << 40) - 1, 12345)},
        {kFullScale, 33023, q15(kFullScale, 33023)}, {12345, -7, q15(12345, -7)},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << r.x << " at " << r.g);
        EXPECT_EQ(r.out, q15(r.x, r.g)) << "the reference itself";
        GuardedBuffer src(8), dst(4);
        put<int64_t>(src.data(), 0, r.x);
        auto out = [&] { return get<int32_t>(dst.data(), 0); };
        apply_fix_gain(r.g, src.as<int64_t>(), dst.as<int32_t>(), 1, 1);
        EXPECT_EQ(r.out, out()) << "apply_fix_gain";
        std::memset(dst.data(), 0xCD, 4);
        EXPECT_EQ(r.g, apply_targ_gain(0, r.g, r.g, src.as<int64_t>(), dst.as<int32_t>(), LMTR_RAMP_TABLE, 1, 1));
        EXPECT_EQ(r.out, out()) << "apply_targ_gain, start = end";
        std::memset(dst.data(), 0xCD, 4);
        EXPECT_EQ(r.g, apply_step_gain_without_saturation(0, r.g, 0, src.as<int64_t>(), dst.as<int32_t>(), 1, 1));
        EXPECT_EQ(r.out, out()) << "apply_step_gain_without_saturation, step 0";
    }
}

TEST(MakeupGain, FloorThenClearBitZero) {
    const struct { int32_t x, gain, out; } rows[] = {
        {-3, 32766, -4}, {5, 16384, 2}, {-5, 16384, -4}, {INT32_MAX, 16384, 1073741822},
        {INT32_MIN, 16384, -1073741824}, {INT32_MAX, 32766, 2147352574}, {1, 32766, 0},
        {1000, 65535, -2}, {-1000, 65535, 0},     // 65535 is read as -1
        {5, 0x10000 + 16384, 2}, {5, 32768, -6},  // the low 16 bits, sign-extended
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << r.x << " at " << r.gain);
        const int32_t g16 = static_cast<int16_t>(r.gain & 0xFFFF);
        EXPECT_EQ(r.out, low32(floor_div(static_cast<__int128>(r.x) * g16, 32768)) & ~1) << "the reference";
        GuardedBuffer samples(4);
        put<int32_t>(samples.data(), 0, r.x);
        apply_makeup_gain(samples.as<int32_t>(), 1, r.gain);
        EXPECT_EQ(r.out, get<int32_t>(samples.data(), 0));
        EXPECT_TRUE(samples.guards_intact());
    }
}

TEST(ReleaseStep, GainRisesBeforeUseWithoutBound) {
    const struct { int32_t is_stereo, start, step; uint32_t count; int32_t stride, result;
                   size_t pin; int64_t pin_x; int32_t pin_out; } rows[] = {
        {1, 16384, 4, 64, 1, 16640, 0, kFullScale, 1074003968},
        {1, 16384, 4, 64, 2, 16640, 127, -kFullScale, -1090519040},  // stride unread in stereo
        {0, 32763, 4, 1, 1, 32767, 0, kFullScale - 1, 2147418111},
        {0, 16384, 4, 64, 1, 16640, 63, -kFullScale, -1090519040},
        {0, 16384, 4, 32, 2, 16512, 62, kFullScale, q15(kFullScale, 16512)},
        {0, 32767, 4, 64, 1, 33023, 63, kFullScale - 1, -2130771970},  // beyond unity, wraps
        {0, 100, -3, 5, 3, 85, 4, kFullScale, 85 << 16},
        {0, INT32_MAX, 1, 1, 1, INT32_MIN, 0, 1, q15(1, INT64_C(1) << 31)},  // a 64-bit gain
    };
    SampleGen gen(11);
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << "stereo " << r.is_stereo << " start " << r.start << " step " << r.step
                                        << " count " << r.count << " stride " << r.stride);
        const size_t n = 2 * r.count;
        GuardedBuffer src(8 * n), dst(4 * n, 0, 0x3C);
        for (size_t i = 0; i < n; ++i) put<int64_t>(src.data(), i, gen.between(-kFullScale, kFullScale));
        put<int64_t>(src.data(), r.pin, r.pin_x);
        const std::vector<unsigned char> before = dst.storage();
        EXPECT_EQ(r.result, apply_step_gain_without_saturation(r.is_stereo, r.start, r.step, src.as<int64_t>(),
                                                               dst.as<int32_t>(), r.count, r.stride));
        EXPECT_EQ(r.pin_out, get<int32_t>(dst.data(), r.pin));
        std::vector<unsigned char> expected = before;
        for (uint32_t k = 0; k < r.count; ++k) {
            const int64_t g = int64_t(r.start) + (int64_t(k) + 1) * r.step;
            for (size_t p : r.is_stereo ? std::vector<size_t>{2 * k, 2 * k + 1}
                                        : std::vector<size_t>{r.stride == 2 ? 2 * k : k}) {
                put<int32_t>(expected.data() + GuardedBuffer::kGuard, p, q15(get<int64_t>(src.data(), p), g));
            }
        }
        EXPECT_TRUE(same_bytes(expected.data(), dst.storage().data(), expected.size()));
    }
}

// ---- Ramps: the attack and the three fades ------------------------------------------------------

TEST(Ramps, FrameGainsInEveryKernel) {
    for (int i = 0; i < 64; ++i) ASSERT_EQ(512 * i, LMTR_RAMP_TABLE[i]) << i;
    struct Pin { int frame; int32_t gain; };
    const struct { int32_t start, end; std::vector<Pin> pins; } rows[] = {
        {32767, 16384, {{0, 32767}, {1, 32511}, {2, 32255}, {31, 24831}, {32, 24575}, {62, 16895}, {63, 16639}}},
        {32767, 0, {{0, 32767}, {1, 32255}, {2, 31743}, {32, 16383}, {63, 511}}},
        {0, 32767, {{0, 0}, {1, 511}, {2, 1023}, {63, 32255}}},
        {32767, 32766, {{0, 32767}, {1, 32766}, {63, 32766}}},
        {1000, 1001, {{0, 1000}, {63, 1000}}},
        {16384, 32767, {{0, 16384}, {1, 16639}, {2, 16895}, {32, 24575}, {63, 32511}}},
        {24000, 20000, {{0, 24000}, {1, 23937}, {2, 23875}, {63, 20062}}},
        {20000, 32767, {{0, 20000}, {63, 32567}}},
    };
    for (const auto& r : rows) {
        for (const Pin& pin : r.pins) EXPECT_EQ(pin.gain, ramp(r.start, r.end, pin.frame)) << "the reference";
        for (int32_t is_stereo : {0, 1}) {
            SCOPED_TRACE(testing::Message() << r.start << " to " << r.end << " stereo " << is_stereo);
            const size_t n = is_stereo ? 128 : 64;
            // Probes whose scaled value is the gain itself: 1.0 in each format.
            GuardedBuffer q33(8 * n), q1(4 * n), fade33(8 * n), fade27(4 * n), fade_f(4 * n);
            for (size_t i = 0; i < n; ++i) {
                put<int64_t>(q33.data(), i, kFullScale);
                put<int64_t>(fade33.data(), i, kFullScale);
                put<int32_t>(fade27.data(), i, 1 << 27);
                put<float>(fade_f.data(), i, 1.0f);
            }
            const auto* t = LMTR_RAMP_TABLE;
            EXPECT_EQ(r.end, apply_targ_gain(is_stereo, r.start, r.end, q33.as<int64_t>(), q1.as<int32_t>(), t, 64, 1));
            EXPECT_EQ(r.end, apply_ramp_gain_for_q33p31(is_stereo, r.start, r.end, fade33.as<int64_t>(),
                                                        fade33.as<int64_t>(), t, 64, 1));
            EXPECT_EQ(r.end, apply_ramp_gain_for_q5p27(is_stereo, r.start, r.end, fade27.as<int32_t>(),
                                                       fade27.as<int32_t>(), t, 64, 1));
            EXPECT_EQ(r.end, apply_ramp_gain_for_float32(is_stereo, r.start, r.end, fade_f.as<float>(),
                                                         fade_f.as<float>(), t, 64, 1));
            for (size_t p = 0; p < n; ++p) {
                const int32_t g = ramp(r.start, r.end, static_cast<int>(is_stereo ? p / 2 : p));
                SCOPED_TRACE(testing::Message() << "sample " << p << " gain " << g);
                EXPECT_EQ(g * 65536, get<int32_t>(q1.data(), p));
                EXPECT_EQ(int64_t(g) * 65536, get<int64_t>(fade33.data(), p));
                EXPECT_EQ(g * 4096, get<int32_t>(fade27.data(), p));
                EXPECT_EQ(static_cast<float>(g) / 32768.0f, get<float>(fade_f.data(), p));
            }
        }
    }
}

TEST(Fades, ScalingOfOneSamplePerFormat) {
    const struct { int64_t x; int32_t g; int64_t out; } q33[] = {
        {kFullScale, 32767, 2147418112}, {-1, 1, -1}, {-3, 32767, -3}, {kFullScale, 20000, 1310720000},
        {kFullScale, 32567, 2134310912}, {INT64_C(1) << 40, 16384, INT64_C(1) << 39},
        {3 * kFullScale, 32767, INT64_C(6442254336)},  // kept in 64 bits, no narrowing
        {INT64_MIN, 32767, -(INT64_C(1) << 48)},        // the product wraps in 64 bits first
    };
    for (const auto& r : q33) {
        GuardedBuffer b(8);
        put<int64_t>(b.data(), 0, r.x);
        apply_ramp_gain_for_q33p31(0, r.g, r.g, b.as<int64_t>(), b.as<int64_t>(), LMTR_RAMP_TABLE, 1, 1);
        EXPECT_EQ(r.out, get<int64_t>(b.data(), 0)) << r.x << " at " << r.g;
    }
    const struct { int32_t x, g, out; } q27[] = {
        {1 << 27, 16384, 67108864}, {INT32_MIN, 32767, -2147418112}, {INT32_MAX, 32767, 2147418111},
        {-1, 1, -1}, {1, 1, 0}};
    for (const auto& r : q27) {
        GuardedBuffer b(4);
        put<int32_t>(b.data(), 0, r.x);
        apply_ramp_gain_for_q5p27(0, r.g, r.g, b.as<int32_t>(), b.as<int32_t>(), LMTR_RAMP_TABLE, 1, 1);
        EXPECT_EQ(r.out, get<int32_t>(b.data(), 0)) << r.x << " at " << r.g;
    }
    const struct { float x; int32_t g; float out; } f32[] = {
        {1.0f, 32767, 0.999969482421875f}, {1.0f, 16384, 0.5f},
        {2e34f, 32767, kInf}, {-2e34f, 32767, -kInf},  // x * g overflows before the scaling by 2^-15
        {std::numeric_limits<float>::max(), 1, 0x1p-15f * std::numeric_limits<float>::max()},
        {0x1p-126f, 1, 0x1p-141f}, {-kInf, 16384, -kInf}, {kNaN, 32767, kNaN}, {-0.0f, 32767, -0.0f}};
    for (const auto& r : f32) {
        GuardedBuffer b(4);
        put<float>(b.data(), 0, r.x);
        apply_ramp_gain_for_float32(0, r.g, r.g, b.as<float>(), b.as<float>(), LMTR_RAMP_TABLE, 1, 1);
        const float out = get<float>(b.data(), 0);
        if (std::isnan(r.out)) {
            EXPECT_TRUE(std::isnan(out)) << r.x;
        } else {
            EXPECT_EQ(std::bit_cast<uint32_t>(r.out), std::bit_cast<uint32_t>(out)) << r.x << " at " << r.g;
        }
    }
}

// ---- Conversions: copies, re-encoders, narrowing ------------------------------------------------

enum Rule { kFloatToQ33, kQ1ToFloat, kQ5ToQ33, kQ1ToQ5, kQ33ToFloat, kQ33ToQ5, kQ5ToFloat, kFloatToQ5, kWrap, kClip };

// n samples of the old format at src become n of the new format at dst
// (in place for the re-encoders: src is copied to dst first).
struct Conversion {
    const char* name;
    Rule rule;
    size_t from, to;
    void (*run)(const void* src, void* dst, uint32_t n);
};

template <void (*Convert)(void*, uint32_t), size_t From>
void in_place(const void* src, void* dst, uint32_t n) {
    if (dst != src) std::memcpy(dst, src, n * From);
    Convert(dst, n);
}

#define TVL_COPY(f, S, D) [](const void* s, void* d, uint32_t n) { f(static_cast<const S*>(s), static_cast<D*>(d), n); }
#define TVL_STRIDE_1(f) \
    [](const void* s, void* d, uint32_t n) { f(static_cast<const int64_t*>(s), static_cast<int32_t*>(d), n, 1); }
const Conversion kConversions[] = {
    {"copy_float32_to_q33p31", kFloatToQ33, 4, 8, TVL_COPY(copy_float32_to_q33p31, float, int64_t)},
    {"copy_q1p31_to_float32", kQ1ToFloat, 4, 4, TVL_COPY(copy_q1p31_to_float32, int32_t, float)},
    {"copy_q5p27_to_q33p31", kQ5ToQ33, 4, 8, TVL_COPY(copy_q5p27_to_q33p31, int32_t, int64_t)},
    {"copy_q1p31_to_q5p27", kQ1ToQ5, 4, 4, TVL_COPY(copy_q1p31_to_q5p27, int32_t, int32_t)},
    {"convert_from_float32_to_q33p31", kFloatToQ33, 4, 8, in_place<convert_from_float32_to_q33p31, 4>},
    {"convert_from_q5p27_to_q33p31", kQ5ToQ33, 4, 8, in_place<convert_from_q5p27_to_q33p31, 4>},
    {"convert_from_q33p31_to_float32", kQ33ToFloat, 8, 4, in_place<convert_from_q33p31_to_float32, 8>},
    {"convert_from_q33p31_to_q5p27", kQ33ToQ5, 8, 4, in_place<convert_from_q33p31_to_q5p27, 8>},
    {"convert_from_q5p27_to_float32", kQ5ToFloat, 4, 4, in_place<convert_from_q5p27_to_float32, 4>},
    {"convert_from_float32_to_q5p27", kFloatToQ5, 4, 4, in_place<convert_from_float32_to_q5p27, 4>},
    {"move_from_q33p31_to_q1p31", kWrap, 8, 4, TVL_COPY(move_from_q33p31_to_q1p31, int64_t, int32_t)},
    {"clip_from_q33p31_to_q1p31", kClip, 8, 4, TVL_COPY(clip_from_q33p31_to_q1p31, int64_t, int32_t)},
    {"no_limiter", kWrap, 8, 4, TVL_STRIDE_1(no_limiter)},
    {"clipping_limiter", kClip, 8, 4, TVL_STRIDE_1(clipping_limiter)},
};
#undef TVL_COPY
#undef TVL_STRIDE_1

uint64_t fb(float f) { return std::bit_cast<uint32_t>(f); }
uint64_t wb(int32_t w) { return static_cast<uint32_t>(w); }
uint64_t qb(int64_t q) { return static_cast<uint64_t>(q); }

TEST(Conversions, WorkedValues) {
    const struct { Rule rule; uint64_t in, out; } rows[] = {
        {kFloatToQ33, fb(0.0f), 0}, {kFloatToQ33, fb(-0.0f), 0}, {kFloatToQ33, fb(1.0f), 2147483648},
        {kFloatToQ33, fb(-1.0f), qb(-2147483647)}, {kFloatToQ33, fb(0.5f), 1073741824},
        {kFloatToQ33, fb(-0.5f), qb(-1073741823)}, {kFloatToQ33, fb(0x1p-32f), 1}, {kFloatToQ33, fb(-0x1p-32f), 0},
        {kFloatToQ33, fb(-0x1p-31f), 0}, {kFloatToQ33, fb(0x1.8p-31f), 2}, {kFloatToQ33, fb(-0x1.8p-31f), qb(-1)},
        {kFloatToQ33, fb(16.0f), qb(16 * kFullScale)}, {kFloatToQ33, fb(kNaN), 0},
        {kFloatToQ33, fb(kInf), qb(INT64_MAX)}, {kFloatToQ33, fb(0x1p32f), qb(INT64_MAX)},
        {kFloatToQ33, fb(-kInf), qb(INT64_MIN)}, {kFloatToQ33, fb(-0x1p32f), qb(INT64_MIN)},
        {kQ1ToFloat, wb(INT32_MAX), fb(1.0f)}, {kQ1ToFloat, wb(0x7FFFFFC0), fb(1.0f)},
        {kQ1ToFloat, wb(0x7FFFFFBF), fb(0x1.fffffep-1f)}, {kQ1ToFloat, wb(0x40000001), fb(0.5f)},
        {kQ1ToFloat, wb(-1), fb(-0x1p-31f)}, {kQ1ToFloat, wb(INT32_MIN), fb(-1.0f)},
        {kQ1ToFloat, wb(0x01000001), fb(0.0078125f)},
        {kQ5ToQ33, wb(INT32_MAX), 0x7FFFFFFF0}, {kQ5ToQ33, wb(INT32_MIN), qb(-0x800000000)},
        {kQ5ToQ33, wb(0x08000000), 0x80000000}, {kQ5ToQ33, wb(-1), qb(-16)},
        {kQ1ToQ5, wb(-16), wb(-1)}, {kQ1ToQ5, wb(16), 1}, {kQ1ToQ5, wb(-17), wb(-2)}, {kQ1ToQ5, wb(-1), wb(-1)},
        {kQ1ToQ5, wb(15), 0}, {kQ1ToQ5, wb(INT32_MAX), 0x07FFFFFF}, {kQ1ToQ5, wb(INT32_MIN), 0xF8000000},
        {kQ33ToFloat, qb(kFullScale), fb(1.0f)}, {kQ33ToFloat, qb(kFullScale - 1), fb(1.0f)},
        {kQ33ToFloat, 1, fb(0x1p-31f)}, {kQ33ToFloat, qb(3 * kFullScale), fb(3.0f)},
        {kQ33ToFloat, qb(INT64_MAX), fb(4294967296.0f)}, {kQ33ToFloat, qb(INT64_MIN), fb(-4294967296.0f)},
        {kQ33ToFloat, (1 << 24) + 1, fb(0.0078125f)},
        {kQ33ToQ5, qb(kFullScale), 0xF8000000}, {kQ33ToQ5, 0x7FFFFFFF0, wb(-1)},
        {kQ33ToQ5, qb(kFullScale - 1), 0x07FFFFFF}, {kQ33ToQ5, qb(-kFullScale), 0xF8000000},
        {kQ5ToFloat, wb(INT32_MAX), fb(16.0f)}, {kQ5ToFloat, wb(INT32_MIN), fb(-16.0f)},
        {kQ5ToFloat, wb(0x08000000), fb(1.0f)}, {kQ5ToFloat, 1, fb(0x1p-27f)}, {kQ5ToFloat, (1 << 24) + 1, fb(0.125f)},
        {kFloatToQ5, fb(1.0f), 0x08000000}, {kFloatToQ5, fb(-1.0f), wb(-134217727)},
        {kFloatToQ5, fb(0.5f), 0x04000000}, {kFloatToQ5, fb(-0.5f), wb(-67108863)}, {kFloatToQ5, fb(0x1p-28f), 1},
        {kFloatToQ5, fb(-0x1p-27f), 0}, {kFloatToQ5, fb(-16.0f), wb(-2147483647)},
        {kFloatToQ5, fb(0x1.fffffep3f), 2147483520}, {kFloatToQ5, fb(kNaN), 0},
        // Beyond [-16, 16) the library saturates, whatever the count.
        {kFloatToQ5, fb(16.0f), wb(INT32_MAX)}, {kFloatToQ5, fb(17.0f), wb(INT32_MAX)},
        {kFloatToQ5, fb(kInf), wb(INT32_MAX)}, {kFloatToQ5, fb(-kInf), wb(INT32_MIN)},
        {kFloatToQ5, fb(-17.0f), wb(INT32_MIN)},
        {kWrap, 12345, 12345}, {kWrap, qb(kFullScale - 1), wb(INT32_MAX)}, {kWrap, qb(-kFullScale), wb(INT32_MIN)},
        {kWrap, qb(-1), wb(-1)}, {kWrap, qb(kFullScale), wb(INT32_MIN)}, {kWrap, qb(-kFullScale - 1), wb(INT32_MAX)},
        {kWrap, (INT64_C(1) << 32) + 5, 5}, {kWrap, INT64_C(1) << 40, 0}, {kWrap, qb(INT64_MAX), wb(-1)},
        {kWrap, qb(INT64_MIN), 0},
        {kClip, 12345, 12345}, {kClip, qb(kFullScale - 1), wb(INT32_MAX)}, {kClip, qb(-kFullScale), wb(INT32_MIN)},
        {kClip, qb(-1), wb(-1)}, {kClip, qb(kFullScale), wb(INT32_MAX)}, {kClip, qb(-kFullScale - 1), wb(INT32_MIN)},
        {kClip, (INT64_C(1) << 32) + 5, wb(INT32_MAX)}, {kClip, INT64_C(1) << 40, wb(INT32_MAX)},
        {kClip, qb(INT64_MAX), wb(INT32_MAX)}, {kClip, qb(INT64_MIN), wb(INT32_MIN)},
    };
    for (const Conversion& c : kConversions) {
        SCOPED_TRACE(c.name);
        std::vector<uint64_t> in, out;
        for (const auto& r : rows) {
            if (r.rule == c.rule) in.push_back(r.in), out.push_back(r.out);
        }
        ASSERT_FALSE(in.empty());
        // All rows in one call, then each alone: the results may not depend on the count.
        for (const size_t n : {in.size(), size_t(1)}) {
            for (size_t first = 0; first < in.size(); first += n) {
                GuardedBuffer src(n * c.from), dst(n * std::max(c.from, c.to));
                for (size_t i = 0; i < n; ++i) std::memcpy(src.data() + i * c.from, &in[first + i], c.from);
                c.run(src.data(), dst.data(), static_cast<uint32_t>(n));
                for (size_t i = 0; i < n; ++i) {
                    uint64_t got = 0;
                    std::memcpy(&got, dst.data() + i * c.to, c.to);
                    EXPECT_EQ(out[first + i], got) << "input 0x" << std::hex << in[first + i] << ", count " << n;
                }
                EXPECT_TRUE(dst.guards_intact());
            }
        }
    }
}

TEST(Reencode, TouchesOnlyTheNewData) {
    SampleGen gen(5);
    for (const Conversion& c : kConversions) {
        if (std::strncmp(c.name, "convert_from", 12) != 0) continue;
        for (uint32_t count : {64u, 128u}) {
            SCOPED_TRACE(testing::Message() << c.name << " count " << count);
            GuardedBuffer line(1024);
            if (c.from == 8) gen.fill<int64_t>(line.data(), 128);
            else if (c.rule == kFloatToQ33 || c.rule == kFloatToQ5) gen.fill<float>(line.data(), 256);
            else gen.fill<int32_t>(line.data(), 256);
            const std::vector<unsigned char> before(line.data(), line.data() + 1024);
            c.run(line.data(), line.data(), count);
            const size_t end = count * c.to;  // 256 or 512 for 32-bit results, 512 or 1024 for Q33.31
            EXPECT_TRUE(same_bytes(before.data() + end, line.data() + end, 1024 - end));
            EXPECT_TRUE(line.guards_intact());
            GuardedBuffer zeros(1024, 0, 0);  // silence stays silence in every format
            c.run(zeros.data(), zeros.data(), count);
            const std::vector<unsigned char> silent(1024, 0);
            EXPECT_TRUE(same_bytes(silent.data(), zeros.data(), 1024));
        }
    }
}

TEST(Reencode, WideningInPlaceEqualsASeparateCopy) {
    SampleGen gen(6);
    GuardedBuffer floats(512), words(512), line(1024), copy(1024);
    gen.fill<float>(floats.data(), 128);
    gen.fill<int32_t>(words.data(), 128);
    std::memcpy(line.data(), floats.data(), 512);
    convert_from_float32_to_q33p31(line.data(), 128);
    copy_float32_to_q33p31(floats.as<float>(), copy.as<int64_t>(), 128);
    EXPECT_TRUE(same_bytes(copy.data(), line.data(), 1024)) << "float32";
    std::memcpy(line.data(), words.data(), 512);
    convert_from_q5p27_to_q33p31(line.data(), 128);
    copy_q5p27_to_q33p31(words.as<int32_t>(), copy.as<int64_t>(), 128);
    EXPECT_TRUE(same_bytes(copy.data(), line.data(), 1024)) << "Q5.27";
}

// Q5.27 words through Q33.31 or float32 and back, 128 at a time in one delay line.
template <void (*There)(void*, uint32_t), void (*Back)(void*, uint32_t)>
void round_trip(const std::vector<int32_t>& words, int32_t (*expected)(int32_t)) {
    for (size_t first = 0; first < words.size(); first += 128) {
        const size_t n = std::min<size_t>(128, words.size() - first);
        GuardedBuffer line(1024);
        std::memcpy(line.data(), &words[first], n * 4);
        There(line.data(), static_cast<uint32_t>(n));
        Back(line.data(), static_cast<uint32_t>(n));
        for (size_t i = 0; i < n; ++i) {
            ASSERT_EQ(expected(words[first + i]), get<int32_t>(line.data(), i)) << "word " << words[first + i];
        }
    }
}

TEST(Reencode, RoundTrips) {
    // Through Q33.31: every word of [-1.0, 1.0) comes back; +1.0 wraps to -1.0.
    std::vector<int32_t> words = {-(1 << 27), (1 << 27) - 1, -1, 0, 1};
    for (int32_t w = -(1 << 27); w < (1 << 27); w += 4099) words.push_back(w);
    round_trip<convert_from_q5p27_to_q33p31, convert_from_q33p31_to_q5p27>(words, [](int32_t w) { return w; });
    round_trip<convert_from_q5p27_to_q33p31, convert_from_q33p31_to_q5p27>({1 << 27},
                                                                           [](int32_t) { return -(1 << 27); });
    // Through float32: the words single precision holds come back; a negative one comes back one higher.
    std::vector<int32_t> exact = {0, 1, 1 << 24, 0x7FFFFF80, 1 << 30, 1 << 27};
    for (int32_t w = 0; w <= (1 << 24); w += 257) exact.push_back(w);
    round_trip<convert_from_q5p27_to_float32, convert_from_float32_to_q5p27>(exact, [](int32_t w) { return w; });
    const std::vector<int32_t> negative = {-1, -(1 << 27), -(1 << 24), INT32_MIN, -12345, -(1 << 30)};
    round_trip<convert_from_q5p27_to_float32, convert_from_float32_to_q5p27>(negative, [](int32_t w) { return w + 1; });
}

TEST(Narrowing, InPlaceAndIntoTheSameBufferBelowTheSource) {
    SampleGen gen(7);
    for (auto narrow : {move_from_q33p31_to_q1p31, clip_from_q33p31_to_q1p31}) {
        for (uint32_t n = 1; n <= 130; n += n < 20 ? 1 : 54) {  // 1..20, 74, 128
            for (size_t dst_at : {0u, 4u, 8u, 16u}) {            // the source starts at byte 16
                SCOPED_TRACE(testing::Message() << "count " << n << " dst at byte " << dst_at);
                GuardedBuffer buffer(16 + 8 * n, 4);
                gen.fill<int64_t>(buffer.data() + 16, n);
                std::vector<unsigned char> expected(buffer.data(), buffer.data() + buffer.size());
                GuardedBuffer separate(4 * n);
                narrow(reinterpret_cast<const int64_t*>(buffer.data() + 16), separate.as<int32_t>(), n);
                std::memcpy(expected.data() + dst_at, separate.data(), 4 * n);
                narrow(reinterpret_cast<const int64_t*>(buffer.data() + 16),
                       reinterpret_cast<int32_t*>(buffer.data() + dst_at), n);
                EXPECT_TRUE(same_bytes(expected.data(), buffer.data(), expected.size()));
                EXPECT_TRUE(buffer.guards_intact());
            }
        }
    }
}

// ---- Every kernel against a plain loop over the per-sample rules ------------------------------

struct Params {
    int32_t is_stereo, stride;
    int32_t a, b;     // start and end gains; the gain of apply_fix_gain and apply_makeup_gain
    int32_t step;     // release step
    int32_t ceiling;  // derive_gain
    const int32_t* table;
};

enum class Data { kQ33, kWord, kFloat, kGain };
enum class Aliasing { kSeparate, kEither, kInPlace };
enum class Returns { kNothing, kStartGain, kEndGain, kUnity };

using Call = int32_t (*)(const void* src, void* dst, uint32_t count, const Params& p);

struct KernelCase {
    const char* name;
    Data src_data, dst_data;
    size_t src_size, dst_size;
    Aliasing aliasing;
    Returns returns;
    bool signed_count;
    std::vector<std::pair<int32_t, int32_t>> modes;  // (is_stereo, stride)
    Call run, ref;
};

// The test's own walks: frame i of a ramp or release, and every-second-sample mode.
template <typename Visit>
void walk_frames(const Params& p, uint32_t count, Visit visit) {
    for (uint32_t i = 0; i < count; ++i) {
        if (p.is_stereo) {
            visit(i, 2 * size_t(i));
            visit(i, 2 * size_t(i) + 1);
        } else {
            visit(i, p.stride == 2 ? 2 * size_t(i) : size_t(i));
        }
    }
}
size_t every_second(const Params& p, uint32_t i) { return p.stride == 2 ? 2 * size_t(i) : size_t(i); }

// The references: plain loops over the rules, on the same bytes.
template <typename From, typename To, To (*Rule)(From)>
int32_t ref_plain(const void* s, void* d, uint32_t n, const Params&) {
    for (uint32_t i = 0; i < n; ++i) put<To>(d, i, Rule(get<From>(s, i)));
    return 0;
}
template <typename From, typename To, To (*Rule)(From)>  // widening in place: last sample first
int32_t ref_walk_down(const void*, void* d, uint32_t n, const Params&) {
    for (uint32_t i = n; i-- > 0;) put<To>(d, i, Rule(get<From>(d, i)));
    return 0;
}
template <typename From, typename To, To (*Rule)(From)>
int32_t ref_walk_up(const void*, void* d, uint32_t n, const Params& p) { return ref_plain<From, To, Rule>(d, d, n, p); }
template <int32_t (*Rule)(int64_t)>  // no_limiter, clipping_limiter
int32_t ref_every_second(const void* s, void* d, uint32_t n, const Params& p) {
    for (uint32_t i = 0; i < n; ++i) put<int32_t>(d, every_second(p, i), Rule(get<int64_t>(s, every_second(p, i))));
    return 0;
}
int32_t ref_derive(const void* s, void* d, uint32_t n, const Params& p) {
    const int32_t c = tvl::ceiling_q15(p.ceiling);
    const int64_t t = tvl::gain_threshold(c);
    for (size_t i = 0; i < n; ++i) {
        put<int32_t>(d, i * p.stride, tvl::required_gain(get<int64_t>(s, i * p.stride), c, t));
    }
    return 0;
}
int32_t ref_min(const void* s, void*, uint32_t n, const Params& p) {
    int32_t r = 32767;
    const int64_t words = p.is_stereo ? 2 * int64_t(int32_t(n)) : int32_t(n);
    for (int64_t i = 0; i < words; ++i) r = std::min(r, get<int32_t>(s, p.is_stereo ? i : i * p.stride));
    return r;
}
int32_t ref_fix(const void* s, void* d, uint32_t n, const Params& p) {
    for (int32_t i = 0; i < int32_t(n); ++i) {
        put<int32_t>(d, i * p.stride, tvl::scale_q33p31_to_q1p31(get<int64_t>(s, i * p.stride), p.a));
    }
    return 0;
}
int32_t ref_makeup(const void*, void* d, uint32_t n, const Params& p) {
    for (uint32_t i = 0; i < n; ++i) put<int32_t>(d, i, tvl::makeup_q1p31(get<int32_t>(d, i), p.a));
    return 0;
}
int32_t ref_step(const void* s, void* d, uint32_t n, const Params& p) {
    walk_frames(p, n, [&](uint32_t f, size_t at) {
        put<int32_t>(d, at, tvl::scale_q33p31_to_q1p31(get<int64_t>(s, at), tvl::release_gain(p.a, p.step, f)));
    });
    return n == 0 ? p.a : low32(tvl::release_gain(p.a, p.step, n - 1));
}
template <typename From, typename To, To (*Scale)(From, int32_t)>  // the attack ramp and the fades
int32_t ref_ramp(const void* s, void* d, uint32_t n, const Params& p) {
    walk_frames(p, n, [&](uint32_t f, size_t at) {
        put<To>(d, at, Scale(get<From>(s, at), tvl::ramp_gain(p.a, p.b, p.table[f])));
    });
    return p.b;
}
int32_t attack(int64_t x, int32_t g) { return tvl::scale_q33p31_to_q1p31(x, g); }
int64_t fade_q33(int64_t x, int32_t g) { return tvl::scale_q33p31(x, g); }

#define TVL_RUN(call) \
    [](const void* s, void* d, uint32_t n, const Params& p) -> int32_t { (void)s, (void)d, (void)p; call; }
#define TVL_S(T) static_cast<const T*>(s)
#define TVL_D(T) static_cast<T*>(d)

const std::vector<std::pair<int32_t, int32_t>> kStrides = {{0, 1}, {0, 2}, {0, 3}};
const std::vector<std::pair<int32_t, int32_t>> kFrames = {{0, 1}, {0, 2}, {0, 3}, {1, 1}, {-1, 2}};
const std::vector<std::pair<int32_t, int32_t>> kPlain = {{0, 1}};
constexpr auto kSep = Aliasing::kSeparate, kBoth = Aliasing::kEither, kOwn = Aliasing::kInPlace;
constexpr auto kVoid = Returns::kNothing, kEnd = Returns::kEndGain;
constexpr auto kQ33 = Data::kQ33, kWord = Data::kWord, kFloat = Data::kFloat;

const KernelCase kKernels[] = {
    {"derive_gain", kQ33, kWord, 8, 4, kSep, kVoid, false, kStrides,
     TVL_RUN(derive_gain(TVL_S(int64_t), TVL_D(int32_t), n, p.ceiling, p.stride); return 0), ref_derive},
    {"calculate_block_min_gain", Data::kGain, kWord, 4, 4, kSep, Returns::kUnity, true,
     {{0, 1}, {0, 2}, {0, 3}, {1, 1}, {3, 2}},
     TVL_RUN(return calculate_block_min_gain(p.is_stereo, TVL_S(int32_t), int32_t(n), p.stride)), ref_min},
    {"no_limiter", kQ33, kWord, 8, 4, kBoth, kVoid, false, kStrides,
     TVL_RUN(no_limiter(TVL_S(int64_t), TVL_D(int32_t), n, p.stride); return 0),
     ref_every_second<tvl::narrow_q33p31_to_q1p31>},
    {"apply_fix_gain", kQ33, kWord, 8, 4, kBoth, kVoid, true, kStrides,
     TVL_RUN(apply_fix_gain(p.a, TVL_S(int64_t), TVL_D(int32_t), int32_t(n), p.stride); return 0), ref_fix},
    {"apply_makeup_gain", kWord, kWord, 4, 4, kOwn, kVoid, false, kPlain,
     TVL_RUN(apply_makeup_gain(TVL_D(int32_t), n, p.a); return 0), ref_makeup},
    {"apply_step_gain_without_saturation", kQ33, kWord, 8, 4, kSep, Returns::kStartGain, false, kFrames,
     TVL_RUN(return apply_step_gain_without_saturation(p.is_stereo, p.a, p.step, TVL_S(int64_t), TVL_D(int32_t), n,
                                                       p.stride)),
     ref_step},
    {"apply_targ_gain", kQ33, kWord, 8, 4, kSep, kEnd, false, kFrames,
     TVL_RUN(return apply_targ_gain(p.is_stereo, p.a, p.b, TVL_S(int64_t), TVL_D(int32_t), p.table, n, p.stride)),
     ref_ramp<int64_t, int32_t, attack>},
    {"apply_ramp_gain_for_q33p31", kQ33, kQ33, 8, 8, kBoth, kEnd, false, kFrames,
     TVL_RUN(return apply_ramp_gain_for_q33p31(p.is_stereo, p.a, p.b, TVL_S(int64_t), TVL_D(int64_t), p.table, n,
                                               p.stride)),
     ref_ramp<int64_t, int64_t, fade_q33>},
    {"apply_ramp_gain_for_float32", kFloat, kFloat, 4, 4, kBoth, kEnd, false, kFrames,
     TVL_RUN(return apply_ramp_gain_for_float32(p.is_stereo, p.a, p.b, TVL_S(float), TVL_D(float), p.table, n,
                                                p.stride)),
     ref_ramp<float, float, tvl::scale_float32>},
    {"apply_ramp_gain_for_q5p27", kWord, kWord, 4, 4, kBoth, kEnd, false, kFrames,
     TVL_RUN(return apply_ramp_gain_for_q5p27(p.is_stereo, p.a, p.b, TVL_S(int32_t), TVL_D(int32_t), p.table, n,
                                              p.stride)),
     ref_ramp<int32_t, int32_t, tvl::scale_q5p27>},
    {"clipping_limiter", kQ33, kWord, 8, 4, kBoth, kVoid, false, kStrides,
     TVL_RUN(clipping_limiter(TVL_S(int64_t), TVL_D(int32_t), n, p.stride); return 0),
     ref_every_second<tvl::clip_q33p31_to_q1p31>},
    {"copy_float32_to_q33p31", kFloat, kQ33, 4, 8, kSep, kVoid, false, kPlain,
     TVL_RUN(copy_float32_to_q33p31(TVL_S(float), TVL_D(int64_t), n); return 0),
     ref_plain<float, int64_t, tvl::float32_to_q33p31>},
    {"copy_q1p31_to_float32", kWord, kFloat, 4, 4, kBoth, kVoid, false, kPlain,
     TVL_RUN(copy_q1p31_to_float32(TVL_S(int32_t), TVL_D(float), n); return 0),
     ref_plain<int32_t, float, tvl::q1p31_to_float32>},
    {"copy_q5p27_to_q33p31", kWord, kQ33, 4, 8, kSep, kVoid, false, kPlain,
     TVL_RUN(copy_q5p27_to_q33p31(TVL_S(int32_t), TVL_D(int64_t), n); return 0),
     ref_plain<int32_t, int64_t, tvl::q5p27_to_q33p31>},
    {"copy_q1p31_to_q5p27", kWord, kWord, 4, 4, kBoth, kVoid, false, kPlain,
     TVL_RUN(copy_q1p31_to_q5p27(TVL_S(int32_t), TVL_D(int32_t), n); return 0),
     ref_plain<int32_t, int32_t, tvl::q1p31_to_q5p27>},
    {"convert_from_float32_to_q33p31", kFloat, kFloat, 4, 8, kOwn, kVoid, false, kPlain,
     TVL_RUN(convert_from_float32_to_q33p31(d, n); return 0), ref_walk_down<float, int64_t, tvl::float32_to_q33p31>},
    {"convert_from_q5p27_to_q33p31", kWord, kWord, 4, 8, kOwn, kVoid, false, kPlain,
     TVL_RUN(convert_from_q5p27_to_q33p31(d, n); return 0), ref_walk_down<int32_t, int64_t, tvl::q5p27_to_q33p31>},
    {"convert_from_q33p31_to_float32", kQ33, kQ33, 8, 4, kOwn, kVoid, false, kPlain,
     TVL_RUN(convert_from_q33p31_to_float32(d, n); return 0), ref_walk_up<int64_t, float, tvl::q33p31_to_float32>},
    {"convert_from_q33p31_to_q5p27", kQ33, kQ33, 8, 4, kOwn, kVoid, false, kPlain,
     TVL_RUN(convert_from_q33p31_to_q5p27(d, n); return 0), ref_walk_up<int64_t, int32_t, tvl::q33p31_to_q5p27>},
    {"convert_from_q5p27_to_float32", kWord, kWord, 4, 4, kOwn, kVoid, false, kPlain,
     TVL_RUN(convert_from_q5p27_to_float32(d, n); return 0), ref_walk_up<int32_t, float, tvl::q5p27_to_float32>},
    {"convert_from_float32_to_q5p27", kFloat, kFloat, 4, 4, kOwn, kVoid, false, kPlain,
     TVL_RUN(convert_from_float32_to_q5p27(d, n); return 0), ref_walk_down<float, int32_t, tvl::float32_to_q5p27>},
    {"move_from_q33p31_to_q1p31", kQ33, kWord, 8, 4, kBoth, kVoid, false, kPlain,
     TVL_RUN(move_from_q33p31_to_q1p31(TVL_S(int64_t), TVL_D(int32_t), n); return 0),
     ref_plain<int64_t, int32_t, tvl::narrow_q33p31_to_q1p31>},
    {"clip_from_q33p31_to_q1p31", kQ33, kWord, 8, 4, kBoth, kVoid, false, kPlain,
     TVL_RUN(clip_from_q33p31_to_q1p31(TVL_S(int64_t), TVL_D(int32_t), n); return 0),
     ref_plain<int64_t, int32_t, tvl::clip_q33p31_to_q1p31>},
};
#undef TVL_RUN
#undef TVL_S
#undef TVL_D

void fill(SampleGen& gen, Data data, GuardedBuffer& b) {
    switch (data) {
        case Data::kQ33: gen.fill<int64_t>(b.data(), b.size() / 8); break;
        case Data::kFloat: gen.fill<float>(b.data(), b.size() / 4); break;
        case Data::kWord: gen.fill<int32_t>(b.data(), b.size() / 4); break;
        case Data::kGain:
            for (size_t i = 0; i < b.size() / 4; ++i) put<int32_t>(b.data(), i, gen.gain());
            break;
    }
}

class EveryKernel : public testing::TestWithParam<size_t> {};

TEST_P(EveryKernel, CountZeroTouchesNothing) {
    const KernelCase& k = kKernels[GetParam()];
    for (const auto& [is_stereo, stride] : k.modes) {
        for (uint32_t count : {0u, 0xFFFFFFFFu, 0x80000000u}) {
            if (count != 0 && !k.signed_count) continue;
            SCOPED_TRACE(testing::Message() << "stereo " << is_stereo << " stride " << stride << ", count " << count);
            GuardedBuffer src(64), dst(64, 0, 0xEE);  // 0xCDCDCDCD would be the smallest gain if read
            const std::vector<unsigned char> src_before = src.storage(), dst_before = dst.storage();
            const Params p{is_stereo, stride, 1234, 4321, 4, 32767, LMTR_RAMP_TABLE};
            void* d = k.aliasing == Aliasing::kInPlace ? src.data() : dst.data();
            const int32_t result = k.run(src.data(), d, count, p);
            const int32_t expected[] = {0, 1234, 4321, 32767};
            if (k.returns != Returns::kNothing) {
                EXPECT_EQ(expected[static_cast<int>(k.returns)], result);
            }
            EXPECT_TRUE(same_bytes(src_before.data(), src.storage().data(), src_before.size()));
            EXPECT_TRUE(same_bytes(dst_before.data(), dst.storage().data(), dst_before.size()));
        }
    }
}

// One call of kernel k and of its reference on copies of the same guarded
// buffers, misaligned by `offset`; every byte, guards included, must agree.
testing::AssertionResult agrees(const KernelCase& k, const Params& p, uint32_t count, size_t offset, bool in_place,
                                SampleGen& gen) {
    const size_t n = 3 * size_t(count) + 3;  // room for every mode; the rest must stay untouched
    GuardedBuffer src(n * (in_place ? std::max(k.src_size, k.dst_size) : k.src_size), offset);
    GuardedBuffer dst(in_place ? 0 : n * k.dst_size, offset);
    fill(gen, k.src_data, src);
    fill(gen, k.dst_data, dst);
    GuardedBuffer ref_src = src, ref_dst = dst;
    const int32_t got = k.run(src.data(), in_place ? src.data() : dst.data(), count, p);
    const int32_t want = k.ref(ref_src.data(), in_place ? ref_src.data() : ref_dst.data(), count, p);
    const auto src_same = same_bytes(ref_src.storage().data(), src.storage().data(), src.storage().size());
    const auto dst_same = same_bytes(ref_dst.storage().data(), dst.storage().data(), dst.storage().size());
    if (got == want && src_same && dst_same) return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << "stereo " << p.is_stereo << " stride " << p.stride << " count " << count << " offset " << offset
           << (in_place ? " in place" : " separate") << ", gains " << p.a << " " << p.b << " step " << p.step
           << " ceiling " << p.ceiling << "\n  result " << got << ", expected " << want << "\n  src: "
           << src_same.message() << "\n  dst: " << dst_same.message() << "\n  (byte indices count "
           << GuardedBuffer::kGuard + offset << " guard bytes first)";
}

// Counts 0..140 cover every remainder of any loop of up to 16 lanes, several
// whole passes and the engine's 64 and 128; offsets 4 and 8 misalign the data.
TEST_P(EveryKernel, MatchesThePerSampleRules) {
    const KernelCase& k = kKernels[GetParam()];
    SampleGen gen(1000 + GetParam());
    std::vector<int32_t> table(LMTR_RAMP_TABLE, LMTR_RAMP_TABLE + 64);  // longer, for counts beyond 64
    while (table.size() < 141) table.push_back(table.size() % 7 ? int32_t(gen.between(0, 32768)) : gen.word32());
    const bool wide = k.src_size == 8 || k.dst_size == 8;
    for (const auto& [is_stereo, stride] : k.modes) {
        for (uint32_t count = 0; count <= 140; ++count) {
            for (size_t offset : {0u, 4u, 8u}) {
                for (bool in_place : {false, true}) {
                    if ((offset == 8 && !wide) || (in_place ? k.aliasing == kSep : k.aliasing == kOwn)) continue;
                    const int32_t ceilings[] = {32767, 16384, 1, 0, -1, gen.word32()};
                    const Params p{is_stereo, stride, gen.gain(), gen.gain(), int32_t(gen.between(-8, 64)),
                                   ceilings[gen.between(0, 5)], table.data()};
                    const auto result = agrees(k, p, count, offset, in_place, gen);
                    ASSERT_TRUE(result) << k.name;
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kernels, EveryKernel, testing::Range(size_t(0), std::size(kKernels)),
                         [](const testing::TestParamInfo<size_t>& info) {
                             return std::string(kKernels[info.param].name);
                         });

}  // namespace
