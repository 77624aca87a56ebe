// The public entry points, one table row per case: the order of the argument
// checks and that a failing call writes nothing (damaged records included);
// what Open, Reset and SetParameters leave in the record; the version; the
// accounting of whole 64-frame blocks in Limiter_Process, between fenced
// buffers exactly as long as their real sizes, whatever the size words say;
// and an output gain or a ceiling written into the record.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include "common/instance.h"
#include "support/fenced_buffer.h"
#include "support/gen.h"
#include "support/sha256.h"
#include "taviklimiter.h"

namespace {

using tvl_test::FencedBuffer;

std::vector<unsigned char> bytes_of(const FencedBuffer& b) { return {b.data(), b.data() + b.size()}; }

void edit_record(void* mem, const std::function<void(LimiterHandle&)>& edit) {
    LimiterHandle rec = tvl::read_record(mem);
    edit(rec);
    tvl::write_record(mem, rec);
}

// Every buffer a call may touch, at odd offsets, an instance opened stereo
// float32 in the first; `nulled` numbers the pointer argument passed as null.
struct World {
    FencedBuffer inst{LMTR_INSTANCE_SIZE, 1}, fresh{LMTR_INSTANCE_SIZE, 3, 0xAB}, scratch{LMTR_SCRATCH_SIZE, 5, 0x5A},
        in{4096, 7, 0x11}, out{4096, 9, 0x22}, words{8, 4, 0x77}, handle_out{sizeof(void*), 0, 0x55};  // typed pointers: aligned
    World() {
        const LimiterConfig config{2, 0, LMTR_PCM_FLOAT32, LMTR_STATE_LIMITING};
        LimiterHandle* unused;
        EXPECT_EQ(LMTR_OK, Limiter_Open(&unused, inst.data(), &config));
        const uint32_t sizes[2] = {4000, 4096};  // 7 stereo float32 blocks and a part
        std::memcpy(words.data(), sizes, 8);
    }
    LimiterHandle* h() { return reinterpret_cast<LimiterHandle*>(inst.data()); }
    uint32_t* word(int i) { return reinterpret_cast<uint32_t*>(words.data() + 4 * i); }
    int32_t open(LimiterConfig c, int nulled = 0) {
        return Limiter_Open(nulled == 1 ? nullptr : reinterpret_cast<LimiterHandle**>(handle_out.data()),
                            nulled == 2 ? nullptr : fresh.data(), nulled == 3 ? nullptr : &c);
    }
    int32_t set(uint32_t command, uint32_t value, int nulled = 0) {
        const LimiterParam param{command, value};
        return Limiter_SetParameters(nulled == 1 ? nullptr : h(), nulled == 2 ? nullptr : &param);
    }
    int32_t process(int nulled = 0) {
        return Limiter_Process(nulled == 2 ? nullptr : h(), nulled == 1 ? nullptr : scratch.data(),
                               nulled == 3 ? nullptr : in.data(), word(0), nulled == 4 ? nullptr : out.data(), word(1));
    }
    int32_t engine() {
        return limiter_all_format(h(), in.data(), out.data(), reinterpret_cast<int64_t*>(scratch.data()),
                                  reinterpret_cast<int32_t*>(scratch.data() + 1024), 64);
    }
    std::vector<FencedBuffer*> all() { return {&inst, &fresh, &scratch, &in, &out, &words, &handle_out}; }
};

struct FailingCall {
    const char* name;
    int32_t code;
    bool sizes_cleared;  // Limiter_Process sets both size words to 0 first
    int32_t (*call)(World&);
    void (*damage)(LimiterHandle&) = nullptr;  // applied to the record before the call
};

TEST(Api, FailingCallsReturnTheFirstFailureAndWriteNothing) {
    using W = World;
    const FailingCall rows[] = {
        {"sizes, format 3", -3, false, [](W& w) { return Limiter_GetBufferSize(w.word(0), w.word(1), 3); }},
        {"sizes, format ~0", -3, false, [](W& w) { return Limiter_GetBufferSize(w.word(0), w.word(1), ~0u); }},
        {"open, null handle_out before bad codes", -1, false, [](W& w) { return w.open({2, 0, 3, 2}, 1); }},
        {"open, null memory", -1, false, [](W& w) { return w.open({2, 0, 0, 0}, 2); }},
        {"open, null config", -1, false, [](W& w) { return w.open({2, 0, 0, 0}, 3); }},
        {"open, format 3 before state 2", -3, false, [](W& w) { return w.open({1, 0, 3, 2}); }},
        {"open, format ~0", -3, false, [](W& w) { return w.open({1, 0, ~0u, 0}); }},
        {"open, state 2^31", -5, false, [](W& w) { return w.open({2, 0, 0, 0x80000000u}); }},
        {"reset, null handle", -1, false, [](W&) { return Limiter_Reset(nullptr); }},
        {"set, null handle before command 9", -1, false, [](W& w) { return w.set(9, 0, 1); }},
        {"set, null param", -1, false, [](W& w) { return w.set(0, 0, 2); }},
        {"set, command 4", -4, false, [](W& w) { return w.set(4, 1); }},
        {"set, command ~0", -4, false, [](W& w) { return w.set(~0u, 1); }},
        {"set, format 3", -3, false, [](W& w) { return w.set(2, 3); }},
        {"status, null handle", -1, false, [](W& w) { return Limiter_GetStatus(nullptr, (LimiterStatus*)w.words.data()); }},
        {"status, null status", -1, false, [](W& w) { return Limiter_GetStatus(w.h(), nullptr); }},
        {"process, null scratch", -1, true, [](W& w) { return w.process(1); }},
        {"process, null handle", -1, true, [](W& w) { return w.process(2); }},
        {"process, null input before a bad format", -1, true, [](W& w) { return w.process(3); },
         [](LimiterHandle& r) { r.pcm_format = 3; }},
        {"process, null output", -1, true, [](W& w) { return w.process(4); }},
        {"process, format 3", -3, true, [](W& w) { return w.process(); }, [](LimiterHandle& r) { r.pcm_format = 3; }},
        {"process, held format 3 before state 2", -3, true, [](W& w) { return w.process(); },
         [](LimiterHandle& r) { r.prev_pcm_format = 3, r.state = 2; }},
        {"process, held format ~0 in bypass", -3, true, [](W& w) { return w.process(); },
         [](LimiterHandle& r) { r.prev_pcm_format = ~0u, r.state = r.prev_state = 1; }},
        {"process, state 2", -5, true, [](W& w) { return w.process(); }, [](LimiterHandle& r) { r.state = 2; }},
        {"process, previous state ~0", -5, true, [](W& w) { return w.process(); },
         [](LimiterHandle& r) { r.prev_state = ~0u; }},
        {"engine, state 2", -5, false, [](W& w) { return w.engine(); }, [](LimiterHandle& r) { r.state = 2; }},
        {"engine, limiting with a Q5.27 delay line", -3, false, [](W& w) { return w.engine(); },
         [](LimiterHandle& r) { r.prev_pcm_format = 2; }},
        {"engine, format 3 in limiting", -3, false, [](W& w) { return w.engine(); },
         [](LimiterHandle& r) { r.pcm_format = 3; }},
        {"engine, bypass, held format 3", -3, false, [](W& w) { return w.engine(); },
         [](LimiterHandle& r) { r.prev_pcm_format = 3, r.state = r.prev_state = 1; }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        World w;
        if (row.damage) edit_record(w.inst.data(), row.damage);
        std::vector<std::vector<unsigned char>> before;
        for (auto* b : w.all()) before.push_back(bytes_of(*b));
        if (row.sizes_cleared) std::memset(before[5].data(), 0, 8);
        EXPECT_EQ(row.code, row.call(w));
        for (size_t i = 0; i < before.size(); ++i) {
            EXPECT_EQ(before[i], bytes_of(*w.all()[i])) << "buffer " << i << " (instance, fresh, scratch, in, out, words)";
            EXPECT_TRUE(w.all()[i]->check()) << "a write beside buffer " << i;
        }
    }
}

TEST(Api, CodesSizesAndVersion) {
    const struct { uint32_t code; int32_t format, state; } rows[] = {
        {0, 0, 0}, {1, 0, 0}, {2, 0, -1}, {3, -1, -1}, {0x80000000u, -1, -1}, {~0u, -1, -1}};
    for (const auto& r : rows) {
        EXPECT_EQ(r.format, limiter_check_pcm_format(r.code)) << r.code;
        EXPECT_EQ(r.state, limiter_check_state(r.code)) << r.code;
        uint32_t sizes[2] = {0, 0};
        EXPECT_EQ(r.format == 0 ? 0 : -3, Limiter_GetBufferSize(&sizes[0], &sizes[1], r.code));
        EXPECT_EQ(r.format == 0 ? 1096u : 0u, sizes[0]);
        EXPECT_EQ(r.format == 0 ? 1536u : 0u, sizes[1]);
    }
    EXPECT_EQ(0x127u, Limiter_GetVersion());
    EXPECT_EQ(Limiter_Get_Version(), static_cast<const char*>(limiter_version));
    EXPECT_STREQ("Version: v1.2.7, Build Time: 2024-Jun-04 14:32", Limiter_Get_Version());
}

// Open zeroes the instance and sets the record; SetParameters records only the
// request; Reset (or the reset command) silences the delay line and restores
// unity gain, keeping the requests. Status tells what was asked for.
TEST(Api, OpenSetAndResetLeaveTheRecord) {
    const struct { uint32_t channels, format, state, command, value; uint32_t want[6]; } rows[] = {
        // want: is_stereo, pcm_format, prev_pcm_format, state, prev_state after the command
        {2, 1, 0, 1, 99, {1, 1, 1, 1, 0}},  {6, 2, 1, 0, 7, {0, 2, 1, 0, 1}},  {1, 0, 0, 2, 2, {0, 2, 1, 0, 0}},
        {0, 1, 1, 2, 0, {0, 0, 1, 1, 1}},   {~0u, 0, 0, 3, 9, {0, 0, 0, 0, 0}}, {2, 2, 1, 3, 0, {1, 2, 0, 1, 1}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << "channels " << r.channels << " format " << r.format << " state " << r.state
                                        << " command " << r.command);
        FencedBuffer mem(LMTR_INSTANCE_SIZE, 3, 0xEE);
        const LimiterConfig config{r.channels, 0xCAFEF00Du, r.format, r.state};
        LimiterHandle* h = nullptr;
        ASSERT_EQ(LMTR_OK, Limiter_Open(&h, mem.data(), &config));
        ASSERT_EQ(static_cast<void*>(h), mem.data());
        edit_record(mem.data(), [](LimiterHandle& rec) { rec.cur_gain = 1234, rec.last_min_gain = 555, rec.prev_pcm_format = 1; });
        std::memset(mem.data() + tvl::kDelayLineOffset, 0x3C, 1024);
        const LimiterParam param{r.command, r.value};
        ASSERT_EQ(LMTR_OK, Limiter_SetParameters(h, &param));
        const LimiterHandle rec = tvl::read_record(mem.data());
        const uint32_t got[] = {rec.is_stereo, rec.pcm_format, rec.prev_pcm_format, rec.state, rec.prev_state};
        EXPECT_EQ(std::vector<uint32_t>(got, got + 5), std::vector<uint32_t>(r.want, r.want + 5));
        const bool reset = r.command == 3;
        EXPECT_EQ(reset ? 32767 : 1234, rec.cur_gain);
        EXPECT_EQ(reset ? 32767 : 555, rec.last_min_gain);
        EXPECT_EQ(0xCAFEF00Du, rec.aux_config);
        EXPECT_EQ(mem.data() + tvl::kDelayLineOffset, rec.delay_line);
        EXPECT_EQ(std::vector<unsigned char>(1024, reset ? 0 : 0x3C),
                  std::vector<unsigned char>(mem.data() + tvl::kDelayLineOffset, mem.data() + LMTR_INSTANCE_SIZE));
        LimiterStatus status{9, 9};
        ASSERT_EQ(LMTR_OK, Limiter_GetStatus(h, &status));
        EXPECT_EQ(r.want[1], status.pcm_format);
        EXPECT_EQ(r.want[3], status.state);
        EXPECT_TRUE(mem.check());
    }
}

// Limiter_Process takes the largest whole number of blocks both sides hold and
// touches nothing beyond them; fewer than a block leaves the instance untouched
// (a pending switch into bypass waits).
TEST(Api, ProcessAccountsWholeBlocksOnly) {
    const struct { uint32_t format, stereo, in_available, out_available, in_used, out_used; } rows[] = {
        {1, 1, 1000, 4096, 512, 512},   {0, 0, 1024, 256, 512, 256},  {0, 1, 4096, 4096, 4096, 2048},
        {1, 0, 255, 4096, 0, 0},        {2, 0, 256, 256, 256, 256},   {1, 0, 4096, 1000, 768, 768},
        {2, 1, 1536, 1535, 1024, 1024}, {0, 0, 3000, 700, 1024, 512}, {0, 0, 511, 4096, 0, 0},
        {0, 1, 1023, 4096, 0, 0},       {0, 1, 2048, 511, 0, 0},      {1, 1, 4096, 0, 0, 0},
        {0, 0, ~0u, 256, 512, 256},     {2, 1, 512, ~0u, 512, 512},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << "format " << r.format << " stereo " << r.stereo << " in " << r.in_available
                                        << " out " << r.out_available);
        FencedBuffer mem(LMTR_INSTANCE_SIZE, 1), scratch(LMTR_SCRATCH_SIZE, 2, 0x5A);
        FencedBuffer in(r.in_available == ~0u ? r.in_used : r.in_available, 5, 0);  // the real sizes
        FencedBuffer out(r.out_available == ~0u ? r.out_used : r.out_available, 6, 0x77);
        const LimiterConfig config{r.stereo ? 2u : 1u, 0, r.format, LMTR_STATE_LIMITING};
        LimiterHandle* h;
        ASSERT_EQ(LMTR_OK, Limiter_Open(&h, mem.data(), &config));
        const LimiterParam bypass{LMTR_CMD_SET_BYPASS, 0};
        ASSERT_EQ(LMTR_OK, Limiter_SetParameters(h, &bypass));
        const auto instance_before = bytes_of(mem);
        uint32_t in_size = r.in_available, out_size = r.out_available;
        ASSERT_EQ(LMTR_OK, Limiter_Process(h, scratch.data(), in.data(), &in_size, out.data(), &out_size));
        EXPECT_EQ(r.in_used, in_size);
        EXPECT_EQ(r.out_used, out_size);
        std::vector<unsigned char> want_out(out.size(), 0x77);
        std::fill_n(want_out.begin(), r.out_used, 0);  // silence in, silence held: silence out
        EXPECT_EQ(want_out, bytes_of(out));
        EXPECT_TRUE(in.check() && out.check() && mem.check() && scratch.check());
        if (r.out_used == 0) EXPECT_EQ(instance_before, bytes_of(mem));
        else EXPECT_EQ(1u, tvl::read_record(h).prev_state);
    }
}

// An output gain in the record (no entry point sets one) scales every emitted
// Q1.31 word by the output gain rule, buffers apart and in place; a gain of 0
// silences float32 and Q5.27 output too.
// Three calls of 448 stereo frames of `input` (format `format`) through an
// instance whose record `edit` changes after Open, apart or in place, every
// buffer `offset` bytes past an aligned address: the 32-bit words out.
std::vector<int32_t> stream_edited(uint32_t format, const std::vector<unsigned char>& input,
                                   const std::function<void(LimiterHandle&)>& edit, bool in_place, size_t offset = 0) {
    const size_t in_bytes = format == 0 ? 8 : 4, period = 448 * 2, samples = 3 * period;
    std::vector<unsigned char> mem(LMTR_INSTANCE_SIZE + offset), scratch(LMTR_SCRATCH_SIZE + offset);
    std::vector<unsigned char> buf(input.size() + offset), out(samples * 4 + offset);
    std::copy(input.begin(), input.end(), buf.begin() + ptrdiff_t(offset));
    const LimiterConfig config{2, 0, format, LMTR_STATE_LIMITING};
    LimiterHandle* h;
    EXPECT_EQ(LMTR_OK, Limiter_Open(&h, mem.data() + offset, &config));
    edit_record(h, edit);
    std::vector<int32_t> words(samples);
    for (size_t call = 0; call < 3; ++call) {
        unsigned char* in = buf.data() + offset + call * period * in_bytes;
        unsigned char* o = in_place ? in : out.data() + offset + call * period * 4;
        uint32_t in_size = uint32_t(period * in_bytes), out_size = uint32_t(period * 4);
        EXPECT_EQ(LMTR_OK, Limiter_Process(h, scratch.data() + offset, in, &in_size, o, &out_size));
        std::memcpy(words.data() + call * period, o, out_size);
    }
    return words;
}

TEST(Api, AnOutputGainInTheRecordScalesEveryEmittedWord) {
    tvl_test::Gen g(tvl_test::run_seed("output gain"));
    for (uint32_t format : {0u, 1u, 2u}) {
        const size_t samples = 3 * 448 * 2;
        std::vector<unsigned char> input(samples * (format == 0 ? 8 : 4));
        for (size_t i = 0; i < samples; ++i) {
            if (format == 0) tvl_test::put<int64_t>(input.data(), i, g.q33());
            if (format == 1) tvl_test::put<float>(input.data(), i, g.f32());
            if (format == 2) tvl_test::put<int32_t>(input.data(), i, g.q5());
        }
        for (uint32_t gain : {0u, 16384u, 32766u}) {
            for (bool in_place : {false, true}) {
                SCOPED_TRACE(testing::Message() << "format " << format << " gain " << gain << " in place " << in_place);
                if (format != 0 && gain != 0) continue;  // float32 and Q5.27: only silence to compare with
                const auto with_gain = [](uint32_t makeup) { return [=](LimiterHandle& rec) { rec.makeup_gain = makeup; }; };
                std::vector<int32_t> want = stream_edited(format, input, with_gain(32767), in_place);
                if (format == 0) {
                    apply_makeup_gain(want.data(), uint32_t(want.size()), int32_t(gain));
                } else {
                    want.assign(samples, 0);
                }
                EXPECT_EQ(want, stream_edited(format, input, with_gain(gain), in_place));
            }
        }
    }
}

// A ceiling written into the record (no entry point sets one but the
// default; a direct caller or a damaged record can) limits to its own level,
// and one below 0 turns the engine to deriving every sample's gain. Fixed
// music-like blocks at levels from a quarter to 4x full scale, one sample in
// sixteen special, in every format: the same words apart, in place and at odd
// addresses, pinned by their SHA-256; only the ceiling's low 16 bits count.
TEST(Api, ACeilingInTheRecordGivesItsPinnedBytes) {
    struct Case {
        int32_t ceiling;
        const char* sha256;  // of the words out of the three formats in turn
    };
    const Case cases[] = {
        {16384, "e40ffde6ef2687357ba91cc502f1557c0b11893c07723013942ed8c833ad1178"},
        {100, "e861c1f3d05f8e220e0644df213f7b1f44a54eb967a88b075548a349941e90e0"},
        {0, "47a22accc6fb0aedaf4a5cf8014bdd569ead0efad399fdb8de134235e7c9bb10"},
        {-1, "50ca938676e42008d2c80b5688c500b32b5afaeb261c45ce4f4ab9125c4f1ad7"},
        {-16384, "cd85f6d1fe631644ca151a45044bc3188d246ca4cab2c22c525a98f588d325d7"},
        {-32768, "cb89238372cd1f43c3e88fda0f97cd0dd721e5697877ec846c97949a21c8937e"},
    };
    std::vector<unsigned char> inputs[3];
    tvl_test::Gen g(1);
    for (uint32_t format : {0u, 1u, 2u}) {
        inputs[format].resize(3 * 448 * 2 * (format == 0 ? 8 : 4));
        for (size_t i = 0; i < 3 * 448 * 2; ++i) {
            static const double levels[] = {0.25, 0.999, 1.2, 4.0};
            const double x = g.audio(levels[i / 128 % 4]);
            const bool special = g.one_in(16);
            if (format == 0) tvl_test::put<int64_t>(inputs[0].data(), i, special ? g.q33(1) : int64_t(x * 0x1p31));
            if (format == 1) tvl_test::put<float>(inputs[1].data(), i, special ? g.f32(1) : float(x));
            if (format == 2) tvl_test::put<int32_t>(inputs[2].data(), i, special ? g.q5(1) : int32_t(x * 0x1p27));
        }
    }
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "ceiling " << c.ceiling);
        std::vector<unsigned char> all;
        for (uint32_t format : {0u, 1u, 2u}) {
            const auto set = [](int32_t ceiling) { return [=](LimiterHandle& rec) { rec.ceiling = ceiling; }; };
            const std::vector<int32_t> words = stream_edited(format, inputs[format], set(c.ceiling), false);
            EXPECT_EQ(words, stream_edited(format, inputs[format], set(c.ceiling), true));
            EXPECT_EQ(words, stream_edited(format, inputs[format], set(c.ceiling), false, 3));
            const int32_t high_bits = int32_t(uint32_t(c.ceiling & 0xFFFF) | 0x5A5A0000u);
            EXPECT_EQ(words, stream_edited(format, inputs[format], set(high_bits), false));
            const auto* b = reinterpret_cast<const unsigned char*>(words.data());
            all.insert(all.end(), b, b + words.size() * 4);
        }
        const std::string got = tvl_test::sha256_hex(all);
        if (std::getenv("TVL_GOLDEN_PRINT")) std::printf("{%d, \"%s\"},\n", c.ceiling, got.c_str());
        EXPECT_EQ(got, c.sha256);
    }
}

}  // namespace
