// The block engine: the cases of the limiting block step, latency and
// look-ahead end to end, the state table, the switches between limiting and
// bypass while audio runs, and the peak bound over many signals.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <tuple>

#include "common/sample_rules.h"

#include "support/stream_model.h"

using namespace tvl_test;

namespace {

constexpr uint32_t kFormats[] = {LMTR_PCM_Q33P31, LMTR_PCM_FLOAT32, LMTR_PCM_Q5P27};
constexpr int64_t kFullScale = int64_t(1) << 31;

// The stream encoded in format fmt, as the caller offers it.
std::vector<unsigned char> encoded(uint32_t fmt, const std::vector<int64_t>& v) {
    std::vector<unsigned char> b(v.size() * in_sample_bytes(fmt));
    for (size_t i = 0; i < v.size(); ++i) encode_nominal(fmt, v[i], b.data(), i);
    return b;
}
// Block k of an encoded stream: a 1024-byte delay line image.
std::vector<unsigned char> block_of(uint32_t fmt, const std::vector<unsigned char>& stream, size_t k, bool stereo) {
    const size_t bytes = samples_per_block(stereo) * in_sample_bytes(fmt);
    std::vector<unsigned char> b(1024);
    std::memcpy(b.data(), stream.data() + k * bytes, bytes);
    return b;
}
// The same block widened to Q33.31, as the limiting path holds it.
std::vector<unsigned char> widened(uint32_t fmt, std::vector<unsigned char> b, bool stereo) {
    ref::reencode(b.data(), fmt, LMTR_PCM_Q33P31, samples_per_block(stereo));
    return b;
}
// Output block k of a driver's output.
const unsigned char* out_block(const Driver& d, size_t k) {
    return d.output.data() + k * samples_per_block(d.inst.stereo) * 4;
}
// Output block k must be the block image, held in format fmt, as bypass emits it.
::testing::AssertionResult bypassed(const Driver& d, size_t k, uint32_t fmt, const std::vector<unsigned char>& image) {
    const uint32_t n = samples_per_block(d.inst.stereo);
    return same_bytes(out_block(d, k), ref::bypass_out(fmt, image.data(), n).data(), n * 4);
}

// ---- The block step's cases ----------------------------------------------------

struct StepCase {
    const char* name;
    int32_t cur, last_min;  // record before the step
    bool loud;              // the new block holds 2.0 (2^32), whose required gain is 16364
    int32_t (*gain)(int k); // gain of emitted frame k; kExact for the exact unity path
    int32_t new_cur, new_min;
};

const StepCase kStepCases[] = {
    // Both at 32767: exact, not scaled by 32767/32768.
    {"unity", 32767, 32767, false, [](int) { return kExact; }, 32767, 32767},
    {"hold", 20000, 20000, false, [](int) { return 20000; }, 20000, 32767},
    {"hold_just_below_unity", 32766, 32766, false, [](int) { return 32766; }, 32766, 32767},
    {"attack_to_new_block", 32767, 32767, true, [](int k) { return 32767 + ((k * (16364 - 32767)) >> 6); }, 16364,
     16364},
    {"attack_to_held_block", 30000, 24000, false, [](int k) { return 30000 + ((k * (24000 - 30000)) >> 6); }, 24000,
     32767},
    {"partial_release", 20000, 20100, false, [](int k) { return k < 25 ? 20000 + 4 * (k + 1) : 20100; }, 20100, 32767},
    {"release_under_one_step", 20000, 20003, false, [](int) { return 20003; }, 20003, 32767},
    {"whole_release", 30000, 32767, false, [](int k) { return 30000 + 4 * (k + 1); }, 30256, 32767},
    {"whole_release_towards_new_block", 16000, 32767, true, [](int k) { return 16000 + 4 * (k + 1); }, 16256, 16364},
    {"partial_release_to_unity", 32700, 32767, false, [](int k) { return k < 16 ? 32700 + 4 * (k + 1) : kExact; },
     32767, 32767},
};

class BlockStep : public ::testing::TestWithParam<bool> {};

TEST_P(BlockStep, EmitsTheHeldBlockWithTheGainsOfItsCase) {
    const bool stereo = GetParam();
    const uint32_t n = samples_per_block(stereo);
    for (const StepCase& c : kStepCases) {
        SCOPED_TRACE(c.name);
        Instance inst(LMTR_PCM_Q33P31, stereo);
        std::mt19937_64 rng(7);
        std::vector<int64_t> held(n), fresh(n);
        for (auto& x : held) x = int64_t(rng() % uint64_t(2 * ref::kThreshold + 1)) - ref::kThreshold;
        held[0] = ref::kThreshold, held[n - 1] = -ref::kThreshold;  // where 32767/32768 differs from exact
        for (auto& x : fresh) x = int64_t(rng() % uint64_t(kFullScale)) - kFullScale / 2;
        if (c.loud) fresh[n / 2 + 1] = int64_t(1) << 32;
        std::memcpy(inst.delay(), held.data(), n * 8);
        inst.edit([&](LimiterHandle& r) { r.cur_gain = c.cur, r.last_min_gain = c.last_min; });

        std::vector<int32_t> out(n), want(n);
        ASSERT_EQ(inst.engine(fresh.data(), out.data(), 64), LMTR_OK);
        for (uint32_t i = 0; i < n; ++i) want[i] = ref::q15(held[i], c.gain(int(stereo ? i / 2 : i)));
        EXPECT_TRUE(same_bytes(out.data(), want.data(), n * 4));
        EXPECT_EQ(inst.rec().cur_gain, c.new_cur);
        EXPECT_EQ(inst.rec().last_min_gain, c.new_min);
        EXPECT_TRUE(same_bytes(inst.delay(), fresh.data(), n * 8)) << "the new block is held";
    }
}

INSTANTIATE_TEST_SUITE_P(Channels, BlockStep, ::testing::Bool());

// The gain a new block needs, under ceilings that only a changed record
// holds: what derive_gain and calculate_block_min_gain find over the block
// widened, in every input format. The block holds noise with samples at its
// ceiling's threshold and one above.
TEST(BlockGain, FollowsAnyCeiling) {
    for (int32_t ceiling : {16384, 431, 1, 0, -1, -32768, 0x12345, 0x18000}) {
        for (uint32_t fmt : kFormats) {
            SCOPED_TRACE(::testing::Message() << "ceiling " << ceiling << ", format " << fmt);
            const bool stereo = true;
            const uint32_t n = samples_per_block(stereo);
            const int64_t t = std::max<int64_t>(0, tvl::gain_threshold(tvl::ceiling_q15(ceiling)));
            std::mt19937_64 rng(uint64_t(ceiling) * 3 + fmt);
            std::vector<int64_t> nominal(n);
            for (auto& x : nominal) x = int64_t(rng() % uint64_t(2 * t + 2)) - t;  // within the threshold
            nominal[5] = t + 1, nominal[9] = -t, nominal[n - 1] = t;
            const auto fresh = encoded(fmt, nominal);
            std::vector<int64_t> wide(n);
            std::vector<int32_t> gains(n);
            for (uint32_t i = 0; i < n; ++i) wide[i] = ref::widen(fmt, fresh.data(), i);
            derive_gain(wide.data(), gains.data(), n, ceiling, 1);
            const int32_t want = calculate_block_min_gain(1, gains.data(), 64, 1);

            Instance inst(fmt, stereo);
            inst.edit([&](LimiterHandle& r) { r.ceiling = ceiling; });
            std::vector<int32_t> out(n);
            ASSERT_EQ(inst.engine(fresh.data(), out.data(), 64), LMTR_OK);
            EXPECT_EQ(inst.rec().last_min_gain, want);
            EXPECT_TRUE(same_bytes(inst.delay(), wide.data(), n * 8)) << "the new block is held, widened";
        }
    }
}

// ---- End to end through Limiter_Process ------------------------------------------

class EndToEnd : public ::testing::TestWithParam<std::tuple<uint32_t, bool>> {};

TEST_P(EndToEnd, QuietAudioLeavesExactlyOneBlockLateInAnyPeriods) {
    const auto [fmt, stereo] = GetParam();
    const uint32_t n = samples_per_block(stereo);
    const auto v = make_signal(Signal::QuietNoise, 11, 640, stereo);
    const auto in = encoded(fmt, v);
    std::vector<unsigned char> want(640 * n / 64 * 4, 0);  // the first block is the silent delay line
    for (size_t i = n; i < want.size() / 4; ++i) {
        ref::emit(fmt, want.data(), i, ref::narrow(ref::widen(fmt, in.data(), i - n)));
    }

    for (const char* schedule : {"p640", "p100,p37,p64,p1,p200,p300,p640", "p63,p65,p127,p129,p640"}) {
        for (bool in_place : {false, true}) {
            SCOPED_TRACE(std::string(schedule) + (in_place ? " in place" : " apart"));
            Driver d(fmt, stereo, nominal_encoder(v, stereo), 640);
            d.run(schedule, in_place);
            ASSERT_EQ(d.output.size(), want.size());
            EXPECT_TRUE(same_bytes(d.output.data(), want.data(), want.size()));
        }
    }
}

TEST_P(EndToEnd, GainFallsWhileTheBlockBeforeALoudOneLeaves) {
    const auto [fmt, stereo] = GetParam();
    const uint32_t n = samples_per_block(stereo);
    // Two blocks at 0.5, two alternating +-2.0 (required gain 16364), one of silence.
    std::vector<int64_t> v(5 * n, 0);
    for (uint32_t i = 0; i < 4 * n; ++i) v[i] = i < 2 * n ? kFullScale / 2 : (i % 2 ? -4 : 4) * (kFullScale / 2);
    Driver d(fmt, stereo, nominal_encoder(v, stereo), 5 * 64);
    d.period(5 * 64, true);
    std::vector<unsigned char> want(4 * n * 4);
    for (uint32_t i = 0; i < 4 * n; ++i) {
        const int k = int(i % n / (n / 64));  // frame within its block
        const int32_t g = i < n ? kExact : i < 2 * n ? 32767 + ((k * (16364 - 32767)) >> 6) : 16364;
        ref::emit(fmt, want.data(), i, ref::q15(v[i], g));
    }
    EXPECT_TRUE(same_bytes(out_block(d, 1), want.data(), want.size()));
    EXPECT_EQ(d.inst.rec().cur_gain, 16364);
    EXPECT_EQ(d.inst.rec().last_min_gain, 32767);
}

// Steady limiting over many signals, one block per call: every sample comes
// out one block late, scaled by a gain between the cur_gain values reported
// before and after its block step, and within the peak bound.
TEST_P(EndToEnd, LimitedOutputIsTheDelayedInputScaledAndBounded) {
    const auto [fmt, stereo] = GetParam();
    const uint32_t n = samples_per_block(stereo);
    constexpr size_t kBlocks = 12;
    int limited_blocks = 0;
    for (Signal kind : kAllSignals) {
        for (uint64_t seed = 1; seed <= 3; ++seed) {
            SCOPED_TRACE(::testing::Message() << "signal " << int(kind) << " seed " << seed);
            const auto v = make_signal(kind, seed, kBlocks * 64, stereo);
            const auto in = encoded(fmt, v);
            Driver d(fmt, stereo, nominal_encoder(v, stereo), kBlocks * 64);
            for (size_t k = 0; k < kBlocks; ++k) d.period(64, k % 2);
            const std::vector<unsigned char> zeros(n * 4, 0);
            EXPECT_TRUE(same_bytes(out_block(d, 0), zeros.data(), zeros.size()));
            for (size_t k = 1; k < kBlocks; ++k) {
                const Call& c = d.calls[k];
                const auto held = widened(fmt, block_of(fmt, in, k - 1, stereo), stereo);
                ASSERT_TRUE(check_limited_block(fmt, reinterpret_cast<const int64_t*>(held.data()), out_block(d, k), n,
                                                gain_range(c.gain_before, c.gain_after), true))
                    << "block " << k;
                limited_blocks += c.gain_after < kUnity;
            }
        }
    }
    EXPECT_GT(limited_blocks, 50) << "the signals must drive the limiter";
}

INSTANTIATE_TEST_SUITE_P(FormatsAndChannels, EndToEnd,
                         ::testing::Combine(::testing::ValuesIn(kFormats), ::testing::Bool()));

// The bound stated in ref::kHotBound, recomputed from the gain rule for every
// divisor d = m >> 15 above the threshold: for a given quotient q the largest
// product comes from the largest magnitude whose divisor still gives q.
TEST(PeakBound, FollowsFromTheGainRule) {
    int64_t worst = 0;
    for (int64_t d = ref::kThreshold >> 15; d < (int64_t(1) << 31);) {
        const int64_t q = 2144993280 / d;
        if (q == 0) break;
        const int64_t last_d = std::min(2144993280 / q, (int64_t(1) << 31) - 1);
        const int64_t m = last_d * 32768 + 32767;
        const int64_t g = ref::required_gain(m);
        ASSERT_EQ(g, ref::required_gain(std::max(d * 32768, ref::kThreshold + 1)));
        worst = std::max(worst, (m * g + 32767) >> 15);  // the negative side rounds away from zero
        d = last_d + 1;
    }
    EXPECT_EQ(worst, ref::kHotBound);
    EXPECT_LT(worst, 0x7FDA0000);
}

// ---- The state table ------------------------------------------------------------

enum class Audio { None, Reencoded, Limited, Bypassed, Unchecked };

struct StateRow {
    uint32_t state, prev_state, pcm_format, prev_pcm_format;
    int32_t result;
    uint32_t prev_state_after, prev_pcm_after;
    Audio audio;
};

const StateRow kStateRows[] = {
    {0, 0, 0, 0, LMTR_OK, 0, 0, Audio::Limited},
    {0, 0, 1, 0, LMTR_OK, 0, 0, Audio::Limited},  // a format change between limiting calls needs no work
    {0, 0, 0, 1, LMTR_ERR_PCM_FORMAT, 0, 1, Audio::None},
    {0, 0, 2, 2, LMTR_ERR_PCM_FORMAT, 0, 2, Audio::None},
    {0, 1, 0, 0, LMTR_OK, 0, 0, Audio::Limited},
    {0, 1, 2, 1, LMTR_OK, 0, 0, Audio::Limited},
    {0, 1, 1, 2, LMTR_OK, 0, 0, Audio::Limited},
    {1, 0, 0, 0, LMTR_OK, 1, 0, Audio::Bypassed},
    {1, 0, 1, 0, LMTR_OK, 1, 1, Audio::Bypassed},
    {1, 0, 2, 0, LMTR_OK, 1, 2, Audio::Bypassed},
    {1, 0, 1, 2, LMTR_ERR_PCM_FORMAT, 0, 1, Audio::Reencoded},
    {1, 0, 0, 1, LMTR_ERR_PCM_FORMAT, 0, 0, Audio::Reencoded},
    {1, 0, 2, 2, LMTR_ERR_PCM_FORMAT, 0, 2, Audio::Reencoded},
    {1, 1, 1, 2, LMTR_OK, 1, 1, Audio::Bypassed},
    {1, 1, 0, 1, LMTR_OK, 1, 0, Audio::Bypassed},
    {1, 1, 2, 2, LMTR_OK, 1, 2, Audio::Bypassed},
    {2, 0, 0, 0, LMTR_ERR_STATE, 0, 0, Audio::None},
    {7, 1, 1, 1, LMTR_ERR_STATE, 1, 1, Audio::None},
    {1, 1, 3, 1, LMTR_ERR_PCM_FORMAT, 1, 1, Audio::None},
    {1, 1, 1, 3, LMTR_ERR_PCM_FORMAT, 1, 3, Audio::None},
    {1, 0, 3, 0, LMTR_ERR_PCM_FORMAT, 1, 3, Audio::Unchecked},  // the switch is made, then the code fails
};

TEST(StateTable, EveryRowOfStateAndHeldFormat) {
    const auto v = make_signal(Signal::QuietNoise, 5, 128, false);
    for (const StateRow& row : kStateRows) {
        SCOPED_TRACE(::testing::Message() << "state " << row.state << " prev_state " << row.prev_state << " format "
                                          << row.pcm_format << " held " << row.prev_pcm_format);
        Instance inst(LMTR_PCM_Q33P31, false);
        const uint32_t held_fmt = std::min(row.prev_pcm_format, 2u), in_fmt = std::min(row.pcm_format, 2u);
        const auto held = encoded(held_fmt, std::vector<int64_t>(v.begin(), v.begin() + 64));
        const auto input = encoded(in_fmt, std::vector<int64_t>(v.begin() + 64, v.end()));
        std::memcpy(inst.delay(), held.data(), held.size());
        inst.edit([&](LimiterHandle& r) {
            r.state = row.state, r.prev_state = row.prev_state;
            r.pcm_format = row.pcm_format, r.prev_pcm_format = row.prev_pcm_format;
        });
        std::vector<unsigned char> delay_before(inst.delay(), inst.delay() + 1024), out(256, 0xA5);
        EXPECT_EQ(inst.engine(input.data(), out.data(), 64), row.result);
        EXPECT_EQ(inst.rec().prev_state, row.prev_state_after);
        EXPECT_EQ(inst.rec().prev_pcm_format, row.prev_pcm_after);

        const std::vector<unsigned char> untouched(256, 0xA5);
        std::vector<unsigned char> q33 = delay_before, want_delay(1024);
        switch (row.audio) {
            case Audio::None:
                EXPECT_TRUE(same_bytes(out.data(), untouched.data(), 256)) << "output";
                EXPECT_TRUE(same_bytes(inst.delay(), delay_before.data(), 1024)) << "delay line";
                break;
            case Audio::Reencoded:
                EXPECT_TRUE(same_bytes(out.data(), untouched.data(), 256)) << "output";
                ref::reencode(delay_before.data(), row.prev_pcm_format, row.pcm_format, 64);
                EXPECT_TRUE(same_bytes(inst.delay(), delay_before.data(), 1024)) << "delay line";
                if (row.pcm_format == LMTR_PCM_Q33P31) {  // now marked Q33.31: the next call switches normally
                    EXPECT_EQ(inst.engine(input.data(), out.data(), 64), LMTR_OK);
                    EXPECT_EQ(inst.rec().prev_state, LMTR_STATE_BYPASS);
                }
                break;
            case Audio::Limited: {  // quiet and at unity: the held block leaves exactly, unfaded
                std::vector<int32_t> want(64);
                ref::reencode(q33.data(), row.prev_pcm_format, LMTR_PCM_Q33P31, 64);
                for (int i = 0; i < 64; ++i) ref::emit(in_fmt, want.data(), i, ref::narrow(ld<int64_t>(q33.data(), i)));
                EXPECT_TRUE(same_bytes(out.data(), want.data(), 256)) << "output";
                for (int i = 0; i < 64; ++i) st<int64_t>(want_delay.data(), i, ref::widen(in_fmt, input.data(), i));
                EXPECT_TRUE(same_bytes(inst.delay(), want_delay.data(), 512)) << "delay line";
                break;
            }
            case Audio::Bypassed: {
                ref::reencode(q33.data(), row.prev_pcm_format, row.pcm_format, 64);
                EXPECT_TRUE(same_bytes(out.data(), ref::bypass_out(row.pcm_format, q33.data(), 64).data(), 256));
                EXPECT_TRUE(same_bytes(inst.delay(), input.data(), input.size())) << "delay line";
                break;
            }
            case Audio::Unchecked: break;
        }
    }
}

// ---- Switches while audio runs ------------------------------------------------

class Transitions : public ::testing::TestWithParam<std::tuple<uint32_t, bool, bool>> {};

// Limiting -> bypass -> limiting. The call that switches emits the held block
// faded from cur_gain to last_min_gain and holds its first input block faded
// from last_min_gain up to unity; later blocks pass unscaled; the way back
// into limiting has no fade. Whether the switch call carries one block or
// four, the stream that comes out is the same.
TEST_P(Transitions, IntoBypassAndBack) {
    const auto [fmt, stereo, in_place] = GetParam();
    const uint32_t n = samples_per_block(stereo);
    const auto v = make_signal(Signal::QuietNoise, 3, 10 * 64, stereo);
    const auto in = encoded(fmt, v);
    struct { int32_t cur, last_min; } const kGains[] = {{32767, 32767}, {16000, 20000}, {30000, 32767}};
    for (const auto g : kGains) {
        for (size_t first_call : {64, 256}) {
            SCOPED_TRACE(::testing::Message() << "gains " << g.cur << "/" << g.last_min << ", switch call of "
                                              << first_call << " frames");
            Driver d(fmt, stereo, nominal_encoder(v, stereo), 10 * 64);
            d.period(128, in_place);
            d.inst.edit([&](LimiterHandle& r) { r.cur_gain = g.cur, r.last_min_gain = g.last_min; });
            d.inst.command(LMTR_CMD_SET_BYPASS);
            d.period(first_call, in_place);
            EXPECT_EQ(d.calls.back().frames, first_call);
            EXPECT_EQ(d.inst.rec().cur_gain, kUnity);
            EXPECT_EQ(d.inst.rec().last_min_gain, kUnity);
            d.period(320 - first_call, in_place);  // input blocks 0 to 6 taken, 6 held
            d.inst.command(LMTR_CMD_SET_LIMITING);
            d.period(128, in_place);
            ASSERT_EQ(d.output.size(), 9 * n * 4);

            auto held = widened(fmt, block_of(fmt, in, 1, stereo), stereo);
            if (g.cur != kUnity || g.last_min != kUnity) {
                ref::fade(LMTR_PCM_Q33P31, held.data(), stereo, g.cur, g.last_min);
            }
            ref::reencode(held.data(), LMTR_PCM_Q33P31, fmt, n);
            EXPECT_TRUE(bypassed(d, 2, fmt, held)) << "held block";
            auto first = block_of(fmt, in, 2, stereo);
            if (g.last_min != kUnity) ref::fade(fmt, first.data(), stereo, g.last_min, kUnity);
            EXPECT_TRUE(bypassed(d, 3, fmt, first)) << "first input block";
            for (size_t k = 4; k < 7; ++k) EXPECT_TRUE(bypassed(d, k, fmt, block_of(fmt, in, k - 1, stereo))) << k;
            // Back in limiting: the block held in bypass leaves unfaded, exactly (quiet, unity).
            for (size_t k = 7; k < 9; ++k) {
                const auto b = widened(fmt, block_of(fmt, in, k - 1, stereo), stereo);
                std::vector<unsigned char> want(n * 4);
                for (uint32_t i = 0; i < n; ++i) ref::emit(fmt, want.data(), i, ref::narrow(ld<int64_t>(b.data(), i)));
                EXPECT_TRUE(same_bytes(out_block(d, k), want.data(), n * 4)) << "block " << k;
            }
        }
    }
}

// Reset restarts the delay line with silence in either state; the state stays.
TEST_P(Transitions, ResetRestartsWithSilenceInEitherState) {
    const auto [fmt, stereo, in_place] = GetParam();
    const uint32_t n = samples_per_block(stereo);
    const auto v = make_signal(Signal::QuietNoise, 4, 6 * 64, stereo);
    const auto in = encoded(fmt, v);
    for (uint32_t state : {LMTR_STATE_LIMITING, LMTR_STATE_BYPASS}) {
        SCOPED_TRACE(state ? "bypass" : "limiting");
        Driver d(fmt, stereo, nominal_encoder(v, stereo), 6 * 64, state);
        d.period(192, in_place);
        d.inst.edit([&](LimiterHandle& r) { r.cur_gain = r.last_min_gain = state == 0 ? 20000 : kUnity; });
        d.inst.command(LMTR_CMD_RESET);
        EXPECT_EQ(d.inst.rec().cur_gain, kUnity);
        d.period(192, in_place);
        EXPECT_EQ(d.inst.rec().prev_state, state);
        const std::vector<unsigned char> zeros(n * 4, 0);
        EXPECT_TRUE(same_bytes(out_block(d, 0), zeros.data(), n * 4));
        EXPECT_TRUE(same_bytes(out_block(d, 3), zeros.data(), n * 4)) << "after the reset";
        for (size_t k : {1, 2, 4, 5}) {
            const auto b = widened(fmt, block_of(fmt, in, k - 1, stereo), stereo);
            std::vector<unsigned char> want(n * 4);
            for (uint32_t i = 0; i < n; ++i) ref::emit(fmt, want.data(), i, ref::narrow(ld<int64_t>(b.data(), i)));
            if (state == LMTR_STATE_BYPASS) {
                EXPECT_TRUE(bypassed(d, k, fmt, block_of(fmt, in, k - 1, stereo))) << "block " << k;
            } else {
                EXPECT_TRUE(same_bytes(out_block(d, k), want.data(), n * 4)) << "block " << k;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(FormatsChannelsAndBuffers, Transitions,
                         ::testing::Combine(::testing::ValuesIn(kFormats), ::testing::Bool(), ::testing::Bool()));

// Opened straight into bypass, then a format change: the first block is the
// silent delay line, the held block leaves converted to the new format.
TEST(BypassFormats, OpenInBypassThenChangeFormat) {
    for (bool stereo : {false, true}) {
        for (uint32_t from : kFormats) {
            for (uint32_t to : kFormats) {
                SCOPED_TRACE(::testing::Message() << (stereo ? "stereo " : "mono ") << from << " -> " << to);
                const uint32_t n = samples_per_block(stereo);
                const auto v = make_signal(Signal::Sines, 6, 4 * 64, stereo);
                Driver d(from, stereo, nominal_encoder(v, stereo), 4 * 64, LMTR_STATE_BYPASS);
                d.period(128, stereo);
                d.inst.command(LMTR_CMD_SET_PCM_FORMAT, to);
                d.period(128, !stereo);
                const std::vector<unsigned char> zeros(n * 4, 0);
                EXPECT_TRUE(same_bytes(out_block(d, 0), zeros.data(), n * 4));
                const auto in_from = encoded(from, v), in_to = encoded(to, v);
                EXPECT_TRUE(bypassed(d, 1, from, block_of(from, in_from, 0, stereo)));
                auto held = block_of(from, in_from, 1, stereo);
                ref::reencode(held.data(), from, to, n);
                EXPECT_TRUE(bypassed(d, 2, to, held)) << "the held block, converted";
                EXPECT_TRUE(bypassed(d, 3, to, block_of(to, in_to, 2, stereo)));
            }
        }
    }
}

// ---- Gains found from the input's own format --------------------------------

// The largest magnitude bits of a float32 sample that widens to at most t.
uint32_t last_float_within(int64_t t) {
    uint32_t bits = std::bit_cast<uint32_t>(float(double(t) * 0x1p-31));
    while (tvl::float32_to_q33p31(std::bit_cast<float>(bits)) > t) --bits;
    while (tvl::float32_to_q33p31(std::bit_cast<float>(bits + 1)) <= t) ++bits;
    return bits;
}

// A float32 or Q5.27 stream and the same stream widened to Q33.31 give the
// same output (Q1.31 for the widened one), the gains found from the peaks of
// the input blocks in their own format: blocks sit just inside and just
// outside the threshold, with the stray sample of either sign at every
// position class (a negative float widens to a magnitude up to 1 below its
// positive twin's).
TEST(BlockPeaks, ThirtyTwoBitInputMatchesItsWidenedStream) {
    const int64_t t = tvl::gain_threshold(32767);
    for (uint32_t fmt : {LMTR_PCM_FLOAT32, LMTR_PCM_Q5P27}) {
        for (bool stereo : {false, true}) {
            SCOPED_TRACE(::testing::Message() << "format " << fmt << (stereo ? " stereo" : " mono"));
            const uint32_t n = samples_per_block(stereo);
            const uint32_t edge = fmt == LMTR_PCM_FLOAT32 ? last_float_within(t) : uint32_t(t >> 4);
            // Words of the stream: block b holds quiet noise with, in odd
            // blocks, one word at the bound plus 0 or 1, of either sign.
            std::vector<uint32_t> words;
            uint32_t noise = 7;
            for (uint32_t b = 0; b < 40; ++b) {
                for (uint32_t i = 0; i < n; ++i) {
                    noise = noise * 1664525u + 1013904223u;
                    const int32_t q = int32_t(noise) >> 12;  // about -48 dBFS in either format
                    words.push_back(fmt == LMTR_PCM_FLOAT32 ? std::bit_cast<uint32_t>(float(q) * 0x1p-19f) : uint32_t(q));
                }
                if (b % 2) {
                    const uint32_t at = (b * 37) % n, over = (b / 2) % 2, negative = (b / 4) % 2;
                    uint32_t w = edge + over;
                    if (negative) w = fmt == LMTR_PCM_FLOAT32 ? w | 0x80000000u : 0u - w;
                    words[b * n + at] = w;
                }
            }
            std::vector<int64_t> wide(words.size());
            for (size_t i = 0; i < words.size(); ++i) {
                wide[i] = fmt == LMTR_PCM_FLOAT32 ? tvl::float32_to_q33p31(std::bit_cast<float>(words[i]))
                                                  : tvl::q5p27_to_q33p31(int32_t(words[i]));
            }
            const auto run = [&](uint32_t format, const void* data, size_t bytes, uint32_t period_frames) {
                Instance inst(format, stereo);
                std::vector<uint32_t> out(words.size());
                const size_t period_bytes = size_t(period_frames) * (stereo ? 2 : 1) * (format == LMTR_PCM_Q33P31 ? 8 : 4);
                for (size_t at = 0; at < bytes; at += period_bytes) {
                    uint32_t in_size = uint32_t(period_bytes), out_size = uint32_t(period_bytes);
                    const size_t out_at = at / (format == LMTR_PCM_Q33P31 ? 2 : 1);
                    EXPECT_EQ(Limiter_Process(inst.h, inst.scratch, static_cast<const unsigned char*>(data) + at, &in_size,
                                              reinterpret_cast<unsigned char*>(out.data()) + out_at, &out_size),
                              LMTR_OK);
                }
                return out;
            };
            for (uint32_t period : {64u, 320u}) {
                const auto got = run(fmt, words.data(), words.size() * 4, period);
                const auto q1p31 = run(LMTR_PCM_Q33P31, wide.data(), wide.size() * 8, period);
                for (size_t i = 0; i < got.size(); ++i) {
                    const int32_t w = int32_t(q1p31[i]);
                    const uint32_t want = fmt == LMTR_PCM_FLOAT32 ? std::bit_cast<uint32_t>(tvl::q1p31_to_float32(w))
                                                                  : uint32_t(tvl::q1p31_to_q5p27(w));
                    ASSERT_EQ(got[i], want) << "sample " << i << ", period " << period;
                }
            }
        }
    }
}

}  // namespace

// ---- float32 emitted from the input --------------------------------------------

// With the output apart from the input, float32 blocks of a call but its last
// leave straight from the input; in place they pass through the delay line.
// Both ways must give the same output, gains and delay line, on audio that
// takes every gain move (attack, hold, release under several release steps
// and ceilings) and holds special values (NaN, infinities, -1.0, values beyond
// 2^20 and 2^31), in periods of one block and of many.
TEST(Float32Routes, FromTheInputAndThroughTheDelayLineAgree) {
    const float specials[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(), -1.0f, 1.0f, 0x1p20f, -0x1p21f, 0x1p32f,
                              -0x1p40f, 0x1p-149f, -0.0f, 0.99997f};
    for (bool stereo : {false, true}) {
        for (const auto& [c, step] : {std::pair{32767, 4}, std::pair{16384, 1000}, std::pair{30000, 40}}) {
            const int32_t ceiling = c, release_step = step;  // a lambda below captures them
            SCOPED_TRACE(::testing::Message() << (stereo ? "stereo" : "mono") << ", ceiling " << ceiling << ", step "
                                              << release_step);
            const size_t frames = 64 * 60, n = frames * (stereo ? 2 : 1);
            std::mt19937 rng(uint32_t(ceiling + release_step + stereo));
            std::vector<float> audio(n);
            for (size_t i = 0; i < n; ++i) {
                // Sections of 5 blocks: quiet, hot, silent, hot with special values.
                const size_t section = i / (320 * (stereo ? 2 : 1)) % 4;
                const float level = section == 0 ? 0.3f : section == 2 ? 0.0f : 3.5f;
                audio[i] = level * std::sin(0.0021f * float(i)) * std::uniform_real_distribution<float>(0.2f, 1.0f)(rng);
                if (section == 3 && rng() % 97 == 0) audio[i] = specials[rng() % std::size(specials)];
            }
            const auto run = [&](bool in_place) {
                Instance inst(LMTR_PCM_FLOAT32, stereo);
                inst.edit([&](LimiterHandle& r) {
                    r.ceiling = ceiling;
                    r.release_step = release_step;
                });
                std::vector<float> out(n), in(audio);
                const size_t periods[] = {960, 64, 320, 1000, 128, 4800};
                for (size_t at = 0, p = 0; at < frames; ++p) {
                    const size_t len = std::min(periods[p % std::size(periods)], frames - at) / 64 * 64;
                    const size_t first = at * (stereo ? 2 : 1), bytes = len * (stereo ? 8 : 4);
                    uint32_t in_size = uint32_t(bytes), out_size = uint32_t(bytes);
                    float* dst = in_place ? in.data() + first : out.data() + first;
                    EXPECT_EQ(Limiter_Process(inst.h, inst.scratch, in.data() + first, &in_size, dst, &out_size), LMTR_OK);
                    at += len;
                }
                if (in_place) out = in;
                const LimiterHandle r = inst.rec();
                std::vector<unsigned char> state(inst.delay(), inst.delay() + 1024);
                return std::tuple(std::vector<uint32_t>(reinterpret_cast<const uint32_t*>(out.data()),
                                                        reinterpret_cast<const uint32_t*>(out.data()) + n),
                                  r.cur_gain, r.last_min_gain, state);
            };
            EXPECT_EQ(run(false), run(true));
        }
    }
}
