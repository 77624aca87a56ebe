// Whole streams through Limiter_Process (tests/support/host_run.h checks the
// sizes, the output bound and the exact bypass copy of every sample).
//
// Golden: every case of tests/golden/vectors.txt (fixed input files) and
// generated.txt (generated streams with special values, switches, resets and
// format changes), whose output bytes are pinned by SHA-256, apart and in place at two alignments. The pins hold the
// same in every build (each x86-64 level, the scalar build, arm64), so one
// architecture's vector path cannot drift from another's. Runs: random
// streams in every format and channel mode, with special values, switches,
// resets and format changes, run apart and in place at two alignments (the
// same bytes each way), until the time box (TVL_TEST_SECONDS, default 2).
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "support/host_run.h"
#include "support/sha256.h"

namespace {

using namespace tvl_test;

// "p100,b,f2,r,l" as steps.
std::vector<Step> parse_steps(const std::string& text) {
    std::vector<Step> steps;
    std::istringstream in(text);
    for (std::string s; std::getline(in, s, ',');) {
        steps.push_back({s[0], s.size() > 1 ? uint32_t(std::stoul(s.substr(1))) : 0});
    }
    return steps;
}

// The host run made apart at 16-byte alignment, then in place and apart at odd
// addresses: the properties hold each time and the output bytes agree.
RunResult run_three_ways(HostRun s) {
    RunResult first;
    for (int way = 0; way < 3; ++way) {
        s.in_place = way == 1, s.offset = way == 0 ? 0 : 2 * way + 1;
        RunResult r = run_host(s, direct);
        EXPECT_EQ(r.error, "") << (way == 1 ? "in place" : way == 2 ? "apart, misaligned" : "apart");
        if (way == 0) first = r;
        else EXPECT_TRUE(r.out == first.out) << "output differs " << (way == 1 ? "in place" : "misaligned");
    }
    return first;
}

TEST(Stream, GoldenOutputHashes) {
    ASSERT_EQ(sha256_hex({'a', 'b', 'c'}), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    const char* env = std::getenv("TVL_GOLDEN_PRINT");
    const bool print = env && std::string(env) == "1";
    const std::string dir = std::string(TVL_TEST_DATA_DIR) + "/golden/";
    size_t cases = 0;
    for (const char* file : {"vectors.txt", "generated.txt"}) {
        std::ifstream manifest(dir + file);
        ASSERT_TRUE(manifest.good()) << file;
        for (std::string line; std::getline(manifest, line);) {
            if (line.empty() || line[0] == '#') continue;
            std::istringstream words(line);
            std::string name, input, schedule, sha;
            HostRun s;
            uint32_t channels = 0;
            words >> name >> s.fmt >> channels >> input >> schedule >> sha;
            SCOPED_TRACE(name);
            s.stereo = channels == 2, s.steps = parse_steps(schedule);
            std::vector<unsigned char> data;
            if (input.rfind("gen:", 0) == 0) {
                s.seed = std::stoull(input.substr(4));
            } else {
                std::ifstream f(dir + input, std::ios::binary);
                ASSERT_TRUE(f.good()) << "cannot open " << input;
                data.assign(std::istreambuf_iterator<char>(f), {});
                s.input = &data;
            }
            const std::string got = sha256_hex(run_three_ways(s).out);
            if (print) std::printf("%s %u %u %s %s %s\n", name.c_str(), s.fmt, channels, input.c_str(), schedule.c_str(), got.c_str());
            else EXPECT_EQ(got, sha);
            ++cases;
        }
    }
    EXPECT_GE(cases, 36u);
}

// In limiting, audio that never goes above the threshold (Q33.31 samples of
// exactly +-2147418110 included) leaves unchanged, exactly 64 frames late,
// whatever the periods. (Floats that widen exactly: a negative one carries
// half a step, which the conversion's + 0.5 and truncation take away.)
TEST(Stream, QuietAudioLeavesUnchangedOneBlockLate) {
    Gen g(run_seed("quiet streams"));
    for (uint32_t fmt : {0u, 1u, 2u}) {
        for (bool stereo : {false, true}) {
            const size_t ch = stereo ? 2 : 1, samples = 6000 * ch;
            std::vector<unsigned char> in(samples * in_bytes(fmt)), want(64 * ch * 4);  // the delay line's silence first
            for (size_t i = 0; i < samples; ++i) {
                const int64_t w = g.one_in(8) ? (g.one_in(2) ? kThreshold : -kThreshold) : int64_t(g.audio(0.999) * 0x1p31);
                want.resize(want.size() + 4);
                if (fmt == 0) put<int64_t>(in.data(), i, w), put<int32_t>(want.data(), i + 64 * ch, int32_t(w));
                if (fmt == 2) put<int32_t>(in.data(), i, int32_t(w / 16)), put<int32_t>(want.data(), i + 64 * ch, int32_t(w / 16));
                if (fmt == 1) {
                    const int32_t q = int32_t(w >> 8);
                    put<float>(in.data(), i, q >= 0 ? float(q) * 0x1p-31f : float(2 * q - 1) * 0x1p-32f);
                    put<float>(want.data(), i + 64 * ch, float(q) * 0x1p-31f);
                }
            }
            HostRun s;
            s.fmt = fmt, s.stereo = stereo, s.input = &in;
            while (s.steps.size() < 40) s.steps.push_back({'p', uint32_t(1 + g.below(700))});
            const RunResult r = run_host(s, direct);
            ASSERT_EQ(r.error, "");
            ASSERT_GE(r.out.size(), want.size() - (64 + 700) * ch * 4);
            EXPECT_TRUE(std::equal(r.out.begin(), r.out.end(), want.begin())) << "format " << fmt << ", stereo " << stereo;
        }
    }
}

// Blocks of NaNs (signalling and quiet, both signs) around one loud sample,
// at every position of the block: the block's gain must still come from that
// sample (a NaN widens to 0), so it leaves at or below the target.
TEST(Stream, ALoudSampleAmongNaNsStillSetsItsBlocksGain) {
    static const uint32_t nans[] = {0x7F800001, 0xFF800001, 0x7FBFFFFF, 0x7FC00000, 0xFFFFFFFF};
    for (bool stereo : {false, true}) {
        const size_t block = stereo ? 128 : 64;
        std::vector<unsigned char> in(block * block * 4);
        for (size_t i = 0; i < block * block; ++i) put<uint32_t>(in.data(), i, nans[i / block % 5]);
        for (size_t k = 0; k < block; ++k) put<float>(in.data(), k * block + k, k % 2 ? -2.0f : 2.0f);
        HostRun s;
        s.fmt = LMTR_PCM_FLOAT32, s.stereo = stereo, s.input = &in, s.steps = {{'p', 64}, {'p', 1000}, {'p', 8192}};
        const RunResult r = run_host(s, direct);
        EXPECT_EQ(r.error, "");
        EXPECT_EQ(r.hot, block - 1);  // all but the last block's loud sample have left
    }
}

TEST(Stream, RandomRunsKeepTheBoundAndPassBypassExactly) {
    Gen g(run_seed("stream runs"));
    const auto start = std::chrono::steady_clock::now();
    RunResult total;
    size_t runs = 0;
    do {
        HostRun s;
        s.fmt = uint32_t(runs % 3), s.stereo = runs / 3 % 2, s.state = uint32_t(g.below(2)), s.seed = g.next();
        s.steps = random_steps(g, 30, g.one_in(2));
        SCOPED_TRACE(testing::Message() << "run " << runs << ": format " << s.fmt << ", stereo " << s.stereo
                                        << ", seed " << s.seed);
        const RunResult r = run_three_ways(s);
        total.bounded += r.bounded, total.hot += r.hot, total.exact += r.exact, total.switches += r.switches;
        ++runs;
    } while (!testing::Test::HasFailure() &&
             (runs < 6 || std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() < test_seconds(2)));
    std::printf("%zu runs: %zu samples bounded (%zu above the threshold in), %zu passed in bypass, %zu switches\n",
                runs, total.bounded, total.hot, total.exact, total.switches);
    EXPECT_GT(total.hot, 1000u);
    EXPECT_GT(total.exact, 1000u);
    EXPECT_GT(total.switches, 6u);
}

}  // namespace
