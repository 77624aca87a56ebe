// A long stream through Limiter_Process under a seeded random schedule of
// periods (many leaving partial blocks that are offered again), switches
// between limiting and bypass, format changes and resets, in place and
// between misaligned buffers, with output room sometimes short of the input,
// checked call by call against the stream model: no sample is dropped,
// repeated or moved; bypass is exact; limited output is the delayed input
// scaled within the peak bound.
#include <gtest/gtest.h>

#include <cstdio>

#include "support/stream_model.h"

using namespace tvl_test;

namespace {

// Segments of every signal kind, 4096 frames each, one after another.
std::vector<int64_t> mixed_signal(uint64_t seed, size_t segments, bool stereo) {
    std::mt19937_64 rng(seed);
    std::vector<int64_t> v;
    for (size_t s = 0; s < segments; ++s) {
        const auto part = make_signal(kAllSignals[rng() % std::size(kAllSignals)], rng(), 4096, stereo);
        v.insert(v.end(), part.begin(), part.end());
    }
    return v;
}

class LongStream : public ::testing::TestWithParam<bool> {};

TEST_P(LongStream, EverySampleComesOutOnceOneBlockLate) {
    const bool stereo = GetParam();
    constexpr size_t kSegments = 128;  // 524288 frames for each channel mode
    const auto v = mixed_signal(stereo ? 2 : 1, kSegments, stereo);
    const size_t total = v.size() / (stereo ? 2 : 1);
    const auto encode = nominal_encoder(v, stereo);
    std::mt19937_64 rng(stereo ? 20 : 10);
    const uint32_t fmt0 = uint32_t(rng() % 3);
    Driver d(fmt0, stereo, encode, total);
    Model model(fmt0, stereo, LMTR_STATE_LIMITING);
    int switches = 0, resets = 0, format_changes = 0, partial_calls = 0;

    while (d.cursor + 64 <= total) {
        const uint64_t r = rng() % 100;
        if (r < 80) {
            const size_t frames = r < 10 ? 1 + rng() % 63 : r < 30 ? 64 * (1 + rng() % 8) : 1 + rng() % 1500;
            const uint32_t before = model.prev_state();
            const size_t room = rng() % 4 ? frames : frames - std::min(frames, size_t(rng() % 256));
            d.period(frames, rng() % 2, rng() % 8, room);
            ASSERT_FALSE(::testing::Test::HasFatalFailure());
            const Call& c = d.calls.back();
            ASSERT_TRUE(model.call(c, encode, d.output.data() + c.out_offset, d.inst))
                << "call " << d.calls.size() - 1 << " at frame " << c.first_frame << ", " << c.frames << " frames";
            switches += model.prev_state() != before;
            partial_calls += frames % 64 != 0;
        } else {
            const uint32_t cmd = r < 88 ? LMTR_CMD_SET_BYPASS : r < 96 ? LMTR_CMD_SET_LIMITING
                                 : r < 99 ? LMTR_CMD_SET_PCM_FORMAT : LMTR_CMD_RESET;
            const uint32_t value = uint32_t(rng() % 3);
            d.inst.command(cmd, value);
            model.command(cmd, value);
            resets += cmd == LMTR_CMD_RESET;
            format_changes += cmd == LMTR_CMD_SET_PCM_FORMAT;
        }
    }
    // The schedule must have exercised what it is meant to.
    std::printf("%d switches, %d resets, %d format changes, %d calls with partial blocks, %zu calls\n", switches,
                resets, format_changes, partial_calls, d.calls.size());
    EXPECT_GT(switches, 50);
    EXPECT_GT(resets, 5);
    EXPECT_GT(format_changes, 30);
    EXPECT_GT(partial_calls, 500);
}

INSTANTIATE_TEST_SUITE_P(Channels, LongStream, ::testing::Bool());

}  // namespace
