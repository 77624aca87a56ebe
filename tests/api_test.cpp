// The public entry points: the order of their argument checks, that a failing
// call writes nothing, what Open, Reset, SetParameters and GetStatus leave in
// the instance record, the version, and the accounting of whole 64-frame
// blocks in Limiter_Process.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <vector>

#include "common/instance.h"
#include "support/test_buffers.h"
#include "taviklimiter.h"

namespace {

using tvl_test::GuardedBuffer;
using tvl_test::same_bytes;

constexpr size_t kInstanceBytes = 1096;
constexpr size_t kScratchBytes = 1536;
constexpr size_t kDelayLineAt = kInstanceBytes - 1024;  // the last 1024 bytes
// The record is eleven 32-bit words, then the delay line pointer at its natural alignment.
constexpr size_t kPointerAt = (44 + alignof(void*) - 1) / alignof(void*) * alignof(void*);

// What Limiter_Open leaves in instance memory at `mem`: all zero, then the record's fields.
std::vector<unsigned char> opened_image(unsigned char* mem, const LimiterConfig& c) {
    std::vector<unsigned char> image(kInstanceBytes, 0);
    const uint32_t words[11] = {c.channels == 2 ? 1u : 0u, c.aux_config, c.pcm_format, 0, c.state, c.state,
                                32767, 32767, 32767, 4, 32767};
    std::memcpy(image.data(), words, sizeof words);
    unsigned char* line = mem + kDelayLineAt;
    std::memcpy(image.data() + kPointerAt, &line, sizeof line);
    return image;
}

LimiterHandle* as_handle(GuardedBuffer& mem) { return reinterpret_cast<LimiterHandle*>(mem.data()); }

void edit_record(GuardedBuffer& mem, const std::function<void(LimiterHandle&)>& edit) {
    LimiterHandle rec = tvl::read_record(mem.data());
    edit(rec);
    tvl::write_record(mem.data(), rec);
}

TEST(CodeChecks, AcceptOnlyKnownCodes) {
    const struct { uint32_t code; int32_t format, state; } rows[] = {
        {0, 0, 0}, {1, 0, 0}, {2, 0, -1}, {3, -1, -1}, {0x80000000u, -1, -1}, {0xFFFFFFFFu, -1, -1}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.code);
        EXPECT_EQ(r.format, limiter_check_pcm_format(r.code));
        EXPECT_EQ(r.state, limiter_check_state(r.code));
    }
}

TEST(BufferSize, SameSizesForEveryValidFormat) {
    for (uint32_t format : {0u, 1u, 2u}) {
        uint32_t sizes[2] = {0, 0};
        EXPECT_EQ(LMTR_OK, Limiter_GetBufferSize(&sizes[0], &sizes[1], format));
        EXPECT_EQ(1096u, sizes[0]);
        EXPECT_EQ(1536u, sizes[1]);
    }
}

TEST(Version, NumberTextAndStablePointer) {
    EXPECT_EQ(295u, Limiter_GetVersion());
    const char* text = Limiter_Get_Version();
    EXPECT_EQ(static_cast<const char*>(limiter_version), text);
    EXPECT_EQ(text, Limiter_Get_Version());
    EXPECT_STREQ("Version: v1.2.7, Build Time: 2024-Jun-04 14:32", text);
    EXPECT_EQ(47u, sizeof limiter_version);
    EXPECT_EQ(46u, std::strlen(text));
}

TEST(Open, ZeroesTheInstanceThenSetsTheRecord) {
    for (uint32_t channels : {0u, 1u, 2u, 3u, 6u, 0xFFFFFFFFu}) {
        for (uint32_t format : {0u, 1u, 2u}) {
            for (uint32_t state : {0u, 1u}) {
                for (size_t offset : {0u, 3u}) {
                    SCOPED_TRACE(testing::Message() << "channels " << channels << " format " << format << " state "
                                                    << state << " offset " << offset);
                    GuardedBuffer mem(kInstanceBytes, offset, 0xAB);
                    const LimiterConfig config{channels, 0xCAFEF00Du, format, state};
                    LimiterHandle* handle = nullptr;
                    ASSERT_EQ(LMTR_OK, Limiter_Open(&handle, mem.data(), &config));
                    EXPECT_EQ(static_cast<void*>(mem.data()), static_cast<void*>(handle));
                    EXPECT_TRUE(same_bytes(opened_image(mem.data(), config).data(), mem.data(), kInstanceBytes));
                    EXPECT_TRUE(mem.guards_intact());
                    LimiterStatus status{9, 9};
                    ASSERT_EQ(LMTR_OK, Limiter_GetStatus(handle, &status));
                    EXPECT_EQ(format, status.pcm_format);
                    EXPECT_EQ(state, status.state);
                }
            }
        }
    }
}

// Everything a failing call could write to, opened as stereo float32 in limiting
// state. `nulled` numbers the pointer argument that a call passes as null.
struct World {
    GuardedBuffer inst{kInstanceBytes, 0}, fresh{kInstanceBytes, 0, 0xAB}, scratch{kScratchBytes, 0, 0x5A},
        in{4096, 0, 0x11}, out{4096, 0, 0x22}, sizes{8}, buffer_sizes{8, 0, 0x77}, status{8, 0, 0x66},
        handle_out{sizeof(void*), 0, 0x55};
    World() {
        const LimiterConfig config{2, 0, LMTR_PCM_FLOAT32, LMTR_STATE_LIMITING};
        LimiterHandle* unused;
        EXPECT_EQ(LMTR_OK, Limiter_Open(&unused, inst.data(), &config));
        tvl_test::put<uint32_t>(sizes.data(), 0, 4000);  // 7 stereo float32 blocks and a part
        tvl_test::put<uint32_t>(sizes.data(), 1, 4096);
    }
    LimiterHandle* h() { return as_handle(inst); }
    int32_t buffer_size(uint32_t format) {
        return Limiter_GetBufferSize(buffer_sizes.as<uint32_t>(), buffer_sizes.as<uint32_t>() + 1, format);
    }
    int32_t open(LimiterConfig c, int nulled = 0) {  // 1 handle_out, 2 memory, 3 config
        return Limiter_Open(nulled == 1 ? nullptr : handle_out.as<LimiterHandle*>(),
                            nulled == 2 ? nullptr : fresh.data(), nulled == 3 ? nullptr : &c);
    }
    int32_t set(uint32_t command, uint32_t value, int nulled = 0) {  // 1 handle, 2 param
        const LimiterParam param{command, value};
        return Limiter_SetParameters(nulled == 1 ? nullptr : h(), nulled == 2 ? nullptr : &param);
    }
    int32_t process(int nulled = 0) {  // 1 scratch, 2 handle, 3 input, 4 output
        return Limiter_Process(nulled == 2 ? nullptr : h(), nulled == 1 ? nullptr : scratch.data(),
                               nulled == 3 ? nullptr : in.data(), sizes.as<uint32_t>(),
                               nulled == 4 ? nullptr : out.data(), sizes.as<uint32_t>() + 1);
    }
    std::vector<const GuardedBuffer*> all() const {
        return {&inst, &fresh, &scratch, &in, &out, &sizes, &buffer_sizes, &status, &handle_out};
    }
};

// What a failing call leaves in *in_size and *out_size.
enum class Sizes { kUntouched, kCleared, kAccounted };

struct FailingCall {
    const char* name;
    int32_t code;
    Sizes sizes;
    std::function<int32_t(World&)> call;
    void (*damage)(LimiterHandle&) = nullptr;  // applied to the record before the call
};

void bad_format(LimiterHandle& r) { r.pcm_format = 3; }
void bad_prev_format(LimiterHandle& r) { r.prev_pcm_format = 3; }
void bad_state(LimiterHandle& r) { r.state = 2; }
void bad_prev_state(LimiterHandle& r) { r.prev_state = 0xFFFFFFFFu; }

TEST(FailingCalls, ReturnTheFirstFailureAndWriteNothing) {
    using W = World;
    constexpr Sizes kKeep = Sizes::kUntouched, kZero = Sizes::kCleared;
    const FailingCall rows[] = {
        {"sizes, format 3", -3, kKeep, [](W& w) { return w.buffer_size(3); }},
        {"sizes, format ~0", -3, kKeep, [](W& w) { return w.buffer_size(0xFFFFFFFFu); }},
        {"open, null handle_out before bad codes", -1, kKeep, [](W& w) { return w.open({2, 0, 3, 2}, 1); }},
        {"open, null memory", -1, kKeep, [](W& w) { return w.open({2, 0, 0, 0}, 2); }},
        {"open, null config", -1, kKeep, [](W& w) { return w.open({2, 0, 0, 0}, 3); }},
        {"open, format 3 before state 2", -3, kKeep, [](W& w) { return w.open({1, 0, 3, 2}); }},
        {"open, format ~0", -3, kKeep, [](W& w) { return w.open({1, 0, 0xFFFFFFFFu, 0}); }},
        {"open, state 2", -5, kKeep, [](W& w) { return w.open({1, 0, 2, 2}); }},
        {"open, state 2^31", -5, kKeep, [](W& w) { return w.open({2, 0, 0, 0x80000000u}); }},
        {"reset, null handle", -1, kKeep, [](W&) { return Limiter_Reset(nullptr); }},
        {"set, null handle before command 9", -1, kKeep, [](W& w) { return w.set(9, 0, 1); }},
        {"set, null param", -1, kKeep, [](W& w) { return w.set(0, 0, 2); }},
        {"set, command 4", -4, kKeep, [](W& w) { return w.set(4, 1); }},
        {"set, command ~0", -4, kKeep, [](W& w) { return w.set(0xFFFFFFFFu, 1); }},
        {"set, format 3", -3, kKeep, [](W& w) { return w.set(2, 3); }},
        {"set, format 5", -3, kKeep, [](W& w) { return w.set(2, 5); }},
        {"status, null handle", -1, kKeep,
         [](W& w) { return Limiter_GetStatus(nullptr, w.status.as<LimiterStatus>()); }},
        {"status, null status", -1, kKeep, [](W& w) { return Limiter_GetStatus(w.h(), nullptr); }},
        {"process, null scratch", -1, kZero, [](W& w) { return w.process(1); }},
        {"process, null handle", -1, kZero, [](W& w) { return w.process(2); }},
        {"process, null input", -1, kZero, [](W& w) { return w.process(3); }},
        {"process, null output", -1, kZero, [](W& w) { return w.process(4); }},
        {"process, null input before a bad format", -1, kZero, [](W& w) { return w.process(3); }, bad_format},
        {"process, format 3", -3, kZero, [](W& w) { return w.process(); }, bad_format},
        {"process, held format 3", -3, kZero, [](W& w) { return w.process(); }, bad_prev_format},
        {"process, state 2", -5, kZero, [](W& w) { return w.process(); }, bad_state},
        {"process, previous state ~0", -5, kZero, [](W& w) { return w.process(); }, bad_prev_state},
        {"process, format before state", -3, kZero, [](W& w) { return w.process(); },
         [](LimiterHandle& r) { bad_format(r), bad_state(r); }},
        {"process, held format before state", -3, kZero, [](W& w) { return w.process(); },
         [](LimiterHandle& r) { bad_prev_format(r), bad_state(r), bad_prev_state(r); }},
        // Limiting recorded with the delay line held as Q5.27: the engine refuses
        // before touching audio, after the sizes were accounted (7 blocks fit).
        {"process, limiting with a Q5.27 delay line", -3, Sizes::kAccounted, [](W& w) { return w.process(); },
         [](LimiterHandle& r) { r.prev_pcm_format = 2; }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        World w;
        if (row.damage) edit_record(w.inst, row.damage);
        std::vector<std::vector<unsigned char>> before;
        for (const auto* b : w.all()) before.push_back(b->storage());
        EXPECT_EQ(row.code, row.call(w));
        if (row.sizes != Sizes::kUntouched) {
            const uint32_t in_bytes = row.sizes == Sizes::kAccounted ? 3584 : 0;
            const uint32_t out_bytes = row.sizes == Sizes::kAccounted ? 3584 : 0;
            std::memcpy(before[5].data() + GuardedBuffer::kGuard, &in_bytes, 4);
            std::memcpy(before[5].data() + GuardedBuffer::kGuard + 4, &out_bytes, 4);
        }
        const auto buffers = w.all();
        for (size_t i = 0; i < buffers.size(); ++i) {
            SCOPED_TRACE(testing::Message() << "buffer " << i << " (instance, fresh memory, scratch, input, output, "
                                                                 "sizes, buffer sizes, status, handle_out)");
            EXPECT_TRUE(same_bytes(before[i].data(), buffers[i]->storage().data(), before[i].size()));
        }
    }
}

// An instance in bypass, requested Q5.27, with a held float32 block and gains in motion.
void dirty(GuardedBuffer& mem) {
    const LimiterConfig config{2, 42, LMTR_PCM_Q5P27, LMTR_STATE_BYPASS};
    LimiterHandle* h;
    ASSERT_EQ(LMTR_OK, Limiter_Open(&h, mem.data(), &config));
    edit_record(mem, [](LimiterHandle& r) {
        r.prev_pcm_format = LMTR_PCM_FLOAT32;
        r.cur_gain = 1234;
        r.last_min_gain = 555;
    });
    for (size_t i = kDelayLineAt; i < kInstanceBytes; ++i) mem.data()[i] = static_cast<unsigned char>(i * 7 + 1);
}

TEST(Reset, RestartsTheLookAheadAndKeepsTheRequests) {
    GuardedBuffer mem(kInstanceBytes, 4);
    dirty(mem);
    const std::vector<unsigned char> dirty_image(mem.data(), mem.data() + kInstanceBytes);
    std::vector<unsigned char> expected = dirty_image;
    const uint32_t restarted[3] = {0, 32767, 32767};  // prev_pcm_format, cur_gain, last_min_gain
    std::memcpy(expected.data() + 3 * 4, &restarted[0], 4);
    std::memcpy(expected.data() + 6 * 4, &restarted[1], 8);
    std::memset(expected.data() + kDelayLineAt, 0, 1024);

    ASSERT_EQ(LMTR_OK, Limiter_Reset(as_handle(mem)));
    EXPECT_TRUE(same_bytes(expected.data(), mem.data(), kInstanceBytes));
    const std::vector<unsigned char> after_reset(mem.data(), mem.data() + kInstanceBytes);

    std::memcpy(mem.data(), dirty_image.data(), kInstanceBytes);
    const LimiterParam reset{LMTR_CMD_RESET, 0xFFFFFFFFu};
    ASSERT_EQ(LMTR_OK, Limiter_SetParameters(as_handle(mem), &reset));
    EXPECT_TRUE(same_bytes(after_reset.data(), mem.data(), kInstanceBytes));
    EXPECT_TRUE(mem.guards_intact());
}

TEST(SetParameters, RecordsOnlyTheRequest) {
    const struct { uint32_t command, value, format, state; } rows[] = {
        {LMTR_CMD_SET_BYPASS, 99, 0, 1},     {LMTR_CMD_SET_LIMITING, 7, 0, 0}, {LMTR_CMD_SET_PCM_FORMAT, 2, 2, 0},
        {LMTR_CMD_SET_PCM_FORMAT, 1, 1, 0}, {LMTR_CMD_SET_PCM_FORMAT, 0, 0, 0}};
    for (uint32_t opened_state : {0u, 1u}) {
        for (const auto& r : rows) {
            SCOPED_TRACE(testing::Message() << "state " << opened_state << " command " << r.command << " value "
                                            << r.value);
            GuardedBuffer mem(kInstanceBytes);
            const LimiterConfig config{1, 0, 0, opened_state};
            LimiterHandle* h;
            ASSERT_EQ(LMTR_OK, Limiter_Open(&h, mem.data(), &config));
            const LimiterParam param{r.command, r.value};
            ASSERT_EQ(LMTR_OK, Limiter_SetParameters(h, &param));
            const uint32_t state = r.command == LMTR_CMD_SET_PCM_FORMAT ? opened_state : r.state;
            std::vector<unsigned char> expected = opened_image(mem.data(), config);
            std::memcpy(expected.data() + 2 * 4, &r.format, 4);
            std::memcpy(expected.data() + 4 * 4, &state, 4);
            EXPECT_TRUE(same_bytes(expected.data(), mem.data(), kInstanceBytes));
            // The status tells what was asked for, not what the last call processed with.
            LimiterStatus status{9, 9};
            ASSERT_EQ(LMTR_OK, Limiter_GetStatus(h, &status));
            EXPECT_EQ(r.format, status.pcm_format);
            EXPECT_EQ(state, status.state);
        }
    }
}

struct Accounting {
    uint32_t format, stereo, in_available, out_available;
    uint32_t in_used, out_used;  // bytes of whole blocks that both sides hold
};

TEST(Process, AccountsWholeBlocksAndTouchesNothingBeyond) {
    const Accounting rows[] = {
        {1, 1, 1000, 4096, 512, 512},   // 125 frames in, one block
        {0, 0, 1024, 256, 512, 256},    // the output holds one block
        {0, 1, 4096, 4096, 4096, 2048}, // the input holds four blocks, the output eight
        {1, 0, 255, 4096, 0, 0},        // 63 frames
        {2, 0, 256, 256, 256, 256},
        {1, 0, 4096, 1000, 768, 768},
        {2, 1, 1536, 1535, 1024, 1024},
        {2, 1, 4095, 4095, 3584, 3584},
        {0, 0, 3000, 700, 1024, 512},
        {0, 0, 511, 4096, 0, 0},
        {0, 1, 1023, 4096, 0, 0},
        {0, 1, 2048, 511, 0, 0},
        {2, 0, 256, 255, 0, 0},
        {1, 1, 4096, 0, 0, 0},
        {0, 0, 0xFFFFFFFFu, 4096, 8192, 4096},  // sizes in unsigned arithmetic
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << "format " << r.format << " stereo " << r.stereo << " in "
                                        << r.in_available << " out " << r.out_available);
        GuardedBuffer mem(kInstanceBytes), scratch(kScratchBytes, 0, 0x5A);
        GuardedBuffer in(r.in_available == 0xFFFFFFFFu ? r.in_used : r.in_available, 0, 0);
        GuardedBuffer out(r.out_available, 0, 0x77);
        const LimiterConfig config{r.stereo ? 2u : 1u, 0, r.format, LMTR_STATE_LIMITING};
        LimiterHandle* h;
        ASSERT_EQ(LMTR_OK, Limiter_Open(&h, mem.data(), &config));
        // A pending switch into bypass: it happens only in a call that carries a block.
        const LimiterParam bypass{LMTR_CMD_SET_BYPASS, 0};
        ASSERT_EQ(LMTR_OK, Limiter_SetParameters(h, &bypass));
        const std::vector<unsigned char> instance_before = mem.storage(), scratch_before = scratch.storage();

        uint32_t in_size = r.in_available, out_size = r.out_available;
        ASSERT_EQ(LMTR_OK, Limiter_Process(h, scratch.data(), in.data(), &in_size, out.data(), &out_size));
        EXPECT_EQ(r.in_used, in_size);
        EXPECT_EQ(r.out_used, out_size);
        // Silence in, silence out (the held block is silent too) over exactly the reported bytes.
        std::vector<unsigned char> expected_out(r.out_available, 0x77);
        std::fill_n(expected_out.begin(), r.out_used, 0);
        EXPECT_TRUE(same_bytes(expected_out.data(), out.data(), r.out_available));
        EXPECT_TRUE(out.guards_intact());
        EXPECT_TRUE(in.guards_intact());
        if (r.out_used == 0) {
            EXPECT_TRUE(same_bytes(instance_before.data(), mem.storage().data(), instance_before.size()));
            EXPECT_TRUE(same_bytes(scratch_before.data(), scratch.storage().data(), scratch_before.size()));
        } else {
            EXPECT_EQ(1u, tvl::read_record(h).prev_state);
        }
    }
}

}  // namespace
