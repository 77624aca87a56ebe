// Hostile input through the public entry points: one table of streams that
// no sane host sends (NaN, infinities, 64-bit extremes, magnitudes of 2^46
// and more, floats beyond Q5.27's range, random bit patterns) in every
// format and channel mode, through limiting, a switch into bypass and back;
// size words that promise more than the buffers hold; every buffer
// misaligned; and every damaged combination of the record's four codes.
// All buffers are fenced (tests/support/fenced_buffer.h): under ASan a read
// or write beside them stops the test on the spot.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

#include "common/instance.h"
#include "support/fenced_buffer.h"
#include "taviklimiter.h"

namespace {

using tvl_test::FencedBuffer;

constexpr int64_t kThreshold = 2147418110;  // largest Q1.31 magnitude limited output may have
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

template <typename T>
T ld(const void* p, size_t i) {
    T v;
    std::memcpy(&v, static_cast<const unsigned char*>(p) + i * sizeof(T), sizeof v);
    return v;
}
template <typename T>
void st(void* p, size_t i, T v) {
    std::memcpy(static_cast<unsigned char*>(p) + i * sizeof(T), &v, sizeof v);
}

size_t in_bytes_per_sample(uint32_t fmt) { return fmt == LMTR_PCM_Q33P31 ? 8 : 4; }

uint64_t mix(uint64_t x) {
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

// An instance in fenced memory at a chosen misalignment, with its scratch.
struct Host {
    FencedBuffer mem, scratch;
    LimiterHandle* h = nullptr;
    Host(uint32_t fmt, bool stereo, size_t offset = 0, uint32_t state = LMTR_STATE_LIMITING)
        : mem(LMTR_INSTANCE_SIZE, offset), scratch(LMTR_SCRATCH_SIZE, offset) {
        const LimiterConfig c{stereo ? 2u : 1u, 0, fmt, state};
        EXPECT_EQ(Limiter_Open(&h, mem.data(), &c), LMTR_OK);
    }
    void command(uint32_t cmd, uint32_t value = 0) {
        const LimiterParam p{cmd, value};
        ASSERT_EQ(Limiter_SetParameters(h, &p), LMTR_OK);
    }
    std::vector<unsigned char> image() const { return {mem.data(), mem.data() + LMTR_INSTANCE_SIZE}; }
};

// One Limiter_Process call of `blocks` blocks from `in` (bytes of the current
// format) between fenced buffers at `offset`; returns the output bytes.
std::vector<unsigned char> process(Host& host, uint32_t fmt, bool stereo, const unsigned char* in, size_t blocks,
                                   size_t offset = 0) {
    const size_t n = stereo ? 128 : 64, in_len = blocks * n * in_bytes_per_sample(fmt), out_len = blocks * n * 4;
    FencedBuffer input(in_len, offset), output(out_len, offset, 0xA5);
    std::memcpy(input.data(), in, in_len);
    uint32_t in_size = uint32_t(in_len), out_size = uint32_t(out_len);
    EXPECT_EQ(Limiter_Process(host.h, host.scratch.data(), input.data(), &in_size, output.data(), &out_size), LMTR_OK);
    EXPECT_EQ(in_size, in_len);
    EXPECT_EQ(out_size, out_len);
    EXPECT_TRUE(input.check() && output.check() && host.mem.check() && host.scratch.check()) << "a write beside a buffer";
    EXPECT_EQ(std::memcmp(input.data(), in, in_len), 0) << "the input was written";
    return {output.data(), output.data() + out_len};
}

// ---- The table of hostile streams ------------------------------------------------

enum class Limited { Zero, Bounded };  // what limiting makes of the stream once its gain is down

struct HostileStream {
    const char* name;
    uint32_t fmt;
    std::function<void(void* dst, size_t i)> sample;  // writes sample i
    Limited limited;
};

const HostileStream kStreams[] = {
    {"q33 -2^63", 0, [](void* d, size_t i) { st<int64_t>(d, i, INT64_MIN); }, Limited::Zero},
    {"q33 2^63-1", 0, [](void* d, size_t i) { st<int64_t>(d, i, INT64_MAX); }, Limited::Zero},
    {"q33 alternating extremes", 0, [](void* d, size_t i) { st<int64_t>(d, i, i % 2 ? INT64_MIN : INT64_MAX); }, Limited::Zero},
    {"q33 2^46", 0, [](void* d, size_t i) { st<int64_t>(d, i, int64_t(1) << 46); }, Limited::Zero},
    {"q33 -2^46", 0, [](void* d, size_t i) { st<int64_t>(d, i, -(int64_t(1) << 46)); }, Limited::Zero},
    {"q33 2^46-1", 0, [](void* d, size_t i) { st<int64_t>(d, i, (int64_t(1) << 46) - 1); }, Limited::Zero},
    {"q33 2^47+2^15", 0, [](void* d, size_t i) { st<int64_t>(d, i, (int64_t(1) << 47) + 32768); }, Limited::Zero},
    {"q33 random words", 0, [](void* d, size_t i) { st<int64_t>(d, i, int64_t(mix(i + 1))); }, Limited::Bounded},
    {"q33 full-scale square", 0, [](void* d, size_t i) { st<int64_t>(d, i, i / 7 % 2 ? INT32_MIN : int64_t(1) << 31); }, Limited::Bounded},
    {"q33 -2^63 impulses in quiet", 0, [](void* d, size_t i) { st<int64_t>(d, i, i % 61 ? int64_t(mix(i)) >> 34 : INT64_MIN); }, Limited::Bounded},
    {"f32 NaN", 1, [](void* d, size_t i) { st<float>(d, i, kNaN); }, Limited::Zero},
    {"f32 NaN payloads", 1, [](void* d, size_t i) { st<uint32_t>(d, i, uint32_t(i % 2 ? 0xFFC00001u : 0x7F800001u)); }, Limited::Zero},
    {"f32 +inf", 1, [](void* d, size_t i) { st<float>(d, i, kInf); }, Limited::Zero},
    {"f32 -inf", 1, [](void* d, size_t i) { st<float>(d, i, -kInf); }, Limited::Zero},
    {"f32 alternating inf", 1, [](void* d, size_t i) { st<float>(d, i, i % 2 ? -kInf : kInf); }, Limited::Zero},
    {"f32 max", 1, [](void* d, size_t i) { st<float>(d, i, std::numeric_limits<float>::max()); }, Limited::Zero},
    {"f32 32768.0", 1, [](void* d, size_t i) { st<float>(d, i, 32768.0f); }, Limited::Zero},
    {"f32 subnormals", 1, [](void* d, size_t i) { st<float>(d, i, (i % 2 ? -1 : 1) * std::numeric_limits<float>::denorm_min() * float(i % 100 + 1)); }, Limited::Zero},
    {"f32 random bits", 1, [](void* d, size_t i) { st<uint32_t>(d, i, uint32_t(mix(i + 7))); }, Limited::Bounded},
    {"f32 17.0 and -16.5", 1, [](void* d, size_t i) { st<float>(d, i, i % 2 ? -16.5f : 17.0f); }, Limited::Bounded},
    {"q5 INT32_MIN", 2, [](void* d, size_t i) { st<int32_t>(d, i, INT32_MIN); }, Limited::Bounded},
    {"q5 INT32_MAX", 2, [](void* d, size_t i) { st<int32_t>(d, i, INT32_MAX); }, Limited::Bounded},
    {"q5 alternating extremes", 2, [](void* d, size_t i) { st<int32_t>(d, i, i % 2 ? INT32_MIN : INT32_MAX); }, Limited::Bounded},
    {"q5 random words", 2, [](void* d, size_t i) { st<int32_t>(d, i, int32_t(mix(i + 3))); }, Limited::Bounded},
};

// Whether output sample i of a limited block lies inside full scale: Q1.31
// never -1.0, float finite, Q5.27 inside [-1.0, 1.0).
bool inside_full_scale(uint32_t fmt, const unsigned char* out, size_t i) {
    if (fmt == LMTR_PCM_FLOAT32) {
        const float y = ld<float>(out, i);
        return std::isfinite(y) && std::fabs(y) <= float(kThreshold) * 0x1p-31f;
    }
    const int32_t y = ld<int32_t>(out, i);
    if (fmt == LMTR_PCM_Q5P27) return y >= (int32_t(-kThreshold) >> 4) && y <= (int32_t(kThreshold) >> 4);
    return y >= -kThreshold && y <= kThreshold;
}

class Hostile : public ::testing::TestWithParam<bool> {};

// Ten input blocks: four limiting calls' worth, a switch into bypass with
// three, then back to limiting with three. Output block j carries input
// block j - 1.
TEST_P(Hostile, StreamsPassLimitingAndBypassSafely) {
    const bool stereo = GetParam();
    const size_t n = stereo ? 128 : 64;
    for (const HostileStream& s : kStreams) {
        SCOPED_TRACE(s.name);
        std::vector<unsigned char> in(10 * n * in_bytes_per_sample(s.fmt));
        for (size_t i = 0; i < 10 * n; ++i) s.sample(in.data(), i);
        const size_t in_block = n * in_bytes_per_sample(s.fmt), out_block = n * 4;
        Host host(s.fmt, stereo);
        std::vector<unsigned char> out = process(host, s.fmt, stereo, in.data(), 4);
        host.command(LMTR_CMD_SET_BYPASS);
        auto more = process(host, s.fmt, stereo, in.data() + 4 * in_block, 3);
        out.insert(out.end(), more.begin(), more.end());
        host.command(LMTR_CMD_SET_LIMITING);
        more = process(host, s.fmt, stereo, in.data() + 7 * in_block, 3);
        out.insert(out.end(), more.begin(), more.end());
        ASSERT_EQ(out.size(), 10 * out_block);

        // Limited blocks whose held block was taken in while limiting: 1-3, 8, 9.
        for (size_t j : {1, 2, 3, 8, 9}) {
            for (size_t i = 0; i < n; ++i) {
                const unsigned char* o = out.data() + j * out_block;
                ASSERT_TRUE(inside_full_scale(s.fmt, o, i)) << "block " << j << " sample " << i << " word 0x" << std::hex
                                                            << ld<uint32_t>(o, i);
                if (s.limited == Limited::Zero) {
                    ASSERT_EQ(ld<uint32_t>(o, i), 0u) << "block " << j << " sample " << i;
                }
            }
        }
        // Steady bypass (block 6 carries input block 5): the input, Q33.31 narrowed.
        for (size_t i = 0; i < n; ++i) {
            const unsigned char* src = in.data() + 5 * in_block;
            const uint32_t want = s.fmt == LMTR_PCM_Q33P31 ? uint32_t(ld<uint64_t>(src, i)) : ld<uint32_t>(src, i);
            ASSERT_EQ(ld<uint32_t>(out.data() + 6 * out_block, i), want) << "bypass sample " << i;
        }
    }
}

// Float samples beyond Q5.27's range, held in bypass while the format turns
// to Q5.27: the held block leaves saturated (the answer the header gives for
// every count), NaN as 0.
TEST_P(Hostile, FloatsBeyondSixteenSaturateWhenTheHeldBlockBecomesQ5p27) {
    const bool stereo = GetParam();
    const size_t n = stereo ? 128 : 64;
    const struct { float x; int32_t q5; } kCases[] = {
        {16.0f, INT32_MAX}, {17.0f, INT32_MAX}, {kInf, INT32_MAX}, {0x1p40f, INT32_MAX},
        {std::numeric_limits<float>::max(), INT32_MAX}, {-16.0f, -2147483647}, {-16.5f, INT32_MIN},
        {-kInf, INT32_MIN}, {-0x1p40f, INT32_MIN}, {kNaN, 0}, {-kNaN, 0}, {0x1.fffffep3f, 2147483520}, {1.0f, 0x08000000},
    };
    std::vector<unsigned char> block(n * 4), want(n * 4);
    for (size_t i = 0; i < n; ++i) {
        st<float>(block.data(), i, kCases[i % std::size(kCases)].x);
        st<int32_t>(want.data(), i, kCases[i % std::size(kCases)].q5);
    }
    Host host(LMTR_PCM_FLOAT32, stereo, 0, LMTR_STATE_BYPASS);
    process(host, LMTR_PCM_FLOAT32, stereo, block.data(), 1);  // now held as float32
    host.command(LMTR_CMD_SET_PCM_FORMAT, LMTR_PCM_Q5P27);
    const std::vector<unsigned char> quiet(n * 4, 0);
    const auto out = process(host, LMTR_PCM_Q5P27, stereo, quiet.data(), 1);
    for (size_t i = 0; i < n; ++i) {
        EXPECT_EQ(ld<int32_t>(out.data(), i), ld<int32_t>(want.data(), i)) << "float " << kCases[i % std::size(kCases)].x;
    }
}

// The same hostile stream with instance, scratch, input and output all at an
// odd address gives the same bytes as at 16-byte alignment (and, built with
// UBSan, makes no misaligned access).
TEST_P(Hostile, AnyAlignmentGivesTheSameOutput) {
    const bool stereo = GetParam();
    const size_t n = stereo ? 128 : 64;
    for (uint32_t fmt : {0u, 1u, 2u}) {
        std::vector<unsigned char> in(6 * n * in_bytes_per_sample(fmt));
        for (size_t i = 0; i < in.size(); ++i) in[i] = uint8_t(mix(i + fmt));
        auto run = [&](size_t offset) {
            Host host(fmt, stereo, offset);
            auto out = process(host, fmt, stereo, in.data(), 2, offset);
            host.command(LMTR_CMD_SET_BYPASS);
            auto more = process(host, fmt, stereo, in.data() + 2 * n * in_bytes_per_sample(fmt), 2, offset);
            out.insert(out.end(), more.begin(), more.end());
            host.command(LMTR_CMD_SET_LIMITING);
            more = process(host, fmt, stereo, in.data() + 4 * n * in_bytes_per_sample(fmt), 2, offset);
            out.insert(out.end(), more.begin(), more.end());
            return out;
        };
        const auto aligned = run(0);
        for (size_t offset : {1, 2, 4, 8}) {
            EXPECT_EQ(run(offset), aligned) << "format " << fmt << " offset " << offset;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Channels, Hostile, ::testing::Bool());

// ---- Size words ----------------------------------------------------------------------

// The library trusts the size words as byte counts of real buffers. Whatever
// the other word says, it reads and writes only the whole blocks that both
// sides hold: a size word of 0xFFFFFFFF beside a one-block buffer on the
// other side touches one block, and a side with less than a block makes the
// call touch nothing. The buffers are exactly as long as their real sizes.
TEST(SizeWords, NeverReachBeyondTheWholeBlocksBothSidesHold) {
    constexpr uint32_t kHuge = 0xFFFFFFFFu;
    struct Row { uint32_t in_word; size_t in_real; uint32_t out_word; size_t out_real; size_t blocks; };
    for (uint32_t fmt : {0u, 1u, 2u}) {
        for (bool stereo : {false, true}) {
            const size_t ib = (stereo ? 128 : 64) * in_bytes_per_sample(fmt), ob = (stereo ? 128 : 64) * 4;
            const Row rows[] = {
                {kHuge, ib, uint32_t(ob), ob, 1},
                {uint32_t(ib), ib, kHuge, ob, 1},
                {uint32_t(ib - 1), ib - 1, kHuge, 3 * ob, 0},
                {kHuge, 3 * ib, uint32_t(ob - 1), ob - 1, 0},
                {0, 0, 0, 0, 0},
                {uint32_t(3 * ib + 7), 3 * ib + 7, uint32_t(2 * ob + 3), 2 * ob + 3, 2},
                {uint32_t(2 * ib + ib / 2), 2 * ib + ib / 2, uint32_t(5 * ob), 5 * ob, 2},
            };
            for (const Row& r : rows) {
                SCOPED_TRACE(::testing::Message() << "format " << fmt << (stereo ? " stereo" : " mono") << " in "
                                                  << r.in_word << "/" << r.in_real << " out " << r.out_word << "/" << r.out_real);
                Host host(fmt, stereo);
                host.command(LMTR_CMD_SET_BYPASS);  // a pending switch must wait for a call that carries a block
                FencedBuffer in(r.in_real, 3, 0x11), out(r.out_real, 5, 0xA5);
                in.fence_tail(r.blocks * ib);
                out.fence_tail(r.blocks * ob);
                const auto before = host.image();
                uint32_t in_size = r.in_word, out_size = r.out_word;
                ASSERT_EQ(Limiter_Process(host.h, host.scratch.data(), in.data(), &in_size, out.data(), &out_size), LMTR_OK);
                EXPECT_EQ(in_size, r.blocks * ib);
                EXPECT_EQ(out_size, r.blocks * ob);
                EXPECT_TRUE(in.check() && out.check() && host.mem.check() && host.scratch.check());
                for (size_t i = r.blocks * ob; i < r.out_real; ++i) ASSERT_EQ(out.data()[i], 0xA5) << "byte " << i;
                if (r.blocks == 0) {
                    EXPECT_EQ(host.image(), before) << "the instance changed";
                } else {
                    EXPECT_EQ(tvl::read_record(host.mem.data()).prev_state, uint32_t(LMTR_STATE_BYPASS));
                }
            }
        }
    }
}

// ---- Damaged records -------------------------------------------------------------------

// The result the documented rules give for a record with these four codes,
// when limiter_all_format() is called directly with a block; and whether the
// instance and the output stay untouched.
struct EngineAnswer {
    int32_t result;
    bool untouched;
};
EngineAnswer engine_answer(uint32_t state, uint32_t prev_state, uint32_t fmt, uint32_t prev_fmt) {
    if (state > 1) return {LMTR_ERR_STATE, true};
    if (state == 0) {
        if (fmt > 2 || (prev_state == 0 && prev_fmt != 0)) return {LMTR_ERR_PCM_FORMAT, true};
        return {LMTR_OK, false};  // a prev_state above 1 is not a bypass to come back from: limiting goes on
    }
    if (prev_state == 0 && prev_fmt == 0) return {fmt > 2 ? LMTR_ERR_PCM_FORMAT : LMTR_OK, false};  // the switch is made
    if (prev_state == 0) return {LMTR_ERR_PCM_FORMAT, fmt > 2 || prev_fmt > 2 || fmt == prev_fmt};
    if (fmt > 2 || prev_fmt > 2) return {LMTR_ERR_PCM_FORMAT, true};
    return {LMTR_OK, false};
}

TEST(DamagedRecord, EveryCombinationOfCodesAboveRange) {
    const uint32_t kStates[] = {0, 1, 2, 0xFFFFFFFFu};
    const uint32_t kFormats[] = {0, 1, 2, 3, 0xFFFFFFFFu};
    int combinations = 0;
    for (bool stereo : {false, true}) {
        const size_t n = stereo ? 128 : 64;
        for (uint32_t state : kStates) for (uint32_t prev_state : kStates)
        for (uint32_t fmt : kFormats) for (uint32_t prev_fmt : kFormats) {
            const bool damaged = state > 1 || prev_state > 1 || fmt > 2 || prev_fmt > 2 ||
                                 (state == 0 && prev_state == 0 && prev_fmt != 0) ||
                                 (state == 1 && prev_state == 0 && prev_fmt != 0);
            if (!damaged) continue;
            ++combinations;
            SCOPED_TRACE(::testing::Message() << (stereo ? "stereo" : "mono") << " state " << state << " prev_state "
                                              << prev_state << " format " << fmt << " prev_format " << prev_fmt);
            for (bool direct : {true, false}) {
                Host host(0, stereo, 1);
                unsigned char* line = host.mem.data() + tvl::kDelayLineOffset;
                for (size_t i = 0; i < 1024; ++i) line[i] = uint8_t(mix(i) >> 40);  // a held block of noise
                LimiterHandle rec = tvl::read_record(host.mem.data());
                rec.state = state, rec.prev_state = prev_state, rec.pcm_format = fmt, rec.prev_pcm_format = prev_fmt;
                tvl::write_record(host.mem.data(), rec);
                const auto before = host.image();
                // Room for a block of the largest input and output kind.
                FencedBuffer in(n * 8, 2, 0x22), out(n * 4, 6, 0xA5);
                int32_t rc;
                EngineAnswer want = engine_answer(state, prev_state, fmt, prev_fmt);
                if (direct) {
                    rc = limiter_all_format(host.h, in.data(), out.data(), reinterpret_cast<int64_t*>(host.scratch.data()),
                                            reinterpret_cast<int32_t*>(host.scratch.data() + 1024), 64);
                } else {
                    // Limiter_Process tests the four codes before the engine sees them.
                    uint32_t in_size = uint32_t(in.size()), out_size = uint32_t(out.size());
                    rc = Limiter_Process(host.h, host.scratch.data(), in.data(), &in_size, out.data(), &out_size);
                    const bool refused = fmt > 2 || prev_fmt > 2 || state > 1 || prev_state > 1;
                    if (fmt > 2 || prev_fmt > 2) want = {LMTR_ERR_PCM_FORMAT, true};
                    else if (state > 1 || prev_state > 1) want = {LMTR_ERR_STATE, true};
                    // Refused before the engine: nothing consumed; else the engine's one block.
                    EXPECT_EQ(in_size, refused ? 0u : uint32_t(n * (fmt == 0 ? 8 : 4)));
                    EXPECT_EQ(out_size, refused ? 0u : uint32_t(n * 4));
                }
                EXPECT_EQ(rc, want.result) << (direct ? "limiter_all_format" : "Limiter_Process");
                EXPECT_TRUE(in.check() && out.check() && host.mem.check() && host.scratch.check()) << "a write beside a buffer";
                if (want.untouched) {
                    EXPECT_EQ(host.image(), before) << "the instance changed";
                    for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out.data()[i], 0xA5) << "output byte " << i;
                }
            }
        }
    }
    EXPECT_EQ(combinations, 2 * 376);  // 400 code combinations less the 24 a healthy record can hold
}

// The answer chosen for magnitudes the gain rule does not serve: 2^46 and
// more, and -2^63, need a gain of 0.
TEST(DeriveGain, MagnitudesOfTwoToTheFortySixAndMoreGetZero) {
    const int64_t kWords[] = {int64_t(1) << 46, -(int64_t(1) << 46), int64_t(1) << 47, (int64_t(1) << 47) + 32768,
                              INT64_MAX, INT64_MIN, INT64_MIN + 1, int64_t(3) << 61};
    for (uint32_t count = 1; count <= 2 * std::size(kWords) + 5; ++count) {
        FencedBuffer src(count * 8, 1), gains(count * 4, 3, 0x77);
        for (uint32_t i = 0; i < count; ++i) st<int64_t>(src.data(), i, kWords[i % std::size(kWords)]);
        derive_gain(reinterpret_cast<int64_t*>(src.data()), reinterpret_cast<int32_t*>(gains.data()), count, 32767, 1);
        for (uint32_t i = 0; i < count; ++i) EXPECT_EQ(ld<int32_t>(gains.data(), i), 0) << kWords[i % std::size(kWords)];
        EXPECT_TRUE(src.check() && gains.check());
    }
}

// The answer chosen for floats without a Q5.27 code: saturation, whatever the
// count (the four-lane pass and the one-at-a-time remainder agree), NaN 0.
TEST(ConvertFloat32ToQ5p27, SaturatesOutsideTheRangeForEveryCount) {
    const struct { float x; int32_t q5; } kCases[] = {
        {16.0f, INT32_MAX}, {17.0f, INT32_MAX}, {kInf, INT32_MAX}, {-kInf, INT32_MIN}, {-16.5f, INT32_MIN},
        {std::numeric_limits<float>::max(), INT32_MAX}, {-std::numeric_limits<float>::max(), INT32_MIN},
        {kNaN, 0}, {-16.0f, -2147483647}, {0x1.fffffep3f, 2147483520}, {0x1p63f, INT32_MAX}};
    for (uint32_t count = 1; count <= 2 * std::size(kCases) + 6; ++count) {
        for (size_t shift = 0; shift < std::size(kCases); ++shift) {
            FencedBuffer buf(count * 4, 1);
            for (uint32_t i = 0; i < count; ++i) st<float>(buf.data(), i, kCases[(i + shift) % std::size(kCases)].x);
            convert_from_float32_to_q5p27(buf.data(), count);
            for (uint32_t i = 0; i < count; ++i) {
                ASSERT_EQ(ld<int32_t>(buf.data(), i), kCases[(i + shift) % std::size(kCases)].q5)
                    << "count " << count << " sample " << i << " float " << kCases[(i + shift) % std::size(kCases)].x;
            }
            ASSERT_TRUE(buf.check());
        }
    }
}

}  // namespace
