// API-sequence fuzzer: the input bytes choose a sequence of calls to the
// public entry points (Open, Process, SetParameters, Reset, GetStatus,
// GetBufferSize) with valid and invalid arguments, periods of any size,
// partial blocks, in place or apart, samples of every kind (NaN, infinities,
// subnormals, integer extremes, raw bytes) and every buffer misaligned by
// 0 to 7 bytes. After each call it checks, against a model of the stream:
//   - the result code, by the documented order of the checks;
//   - the sizes written back (whole 64-frame blocks that both sides hold);
//   - that no byte outside the buffers, and no byte beyond the reported
//     counts, is read (under ASan) or written;
//   - that a failing call, or one without a whole block, leaves the instance
//     as it was;
//   - in steady bypass: the output is exactly the input 64 frames earlier
//     (Q33.31 narrowed to its low 32 bits);
//   - in steady limiting: every output sample lies between 0 and its input
//     sample, and a sample beyond the gain threshold comes out no larger than
//     2144960392 / 2^31 (below the target level 0x7FDA0000), whatever the
//     input: infinities, NaN and 64-bit extremes included.
// A failed check prints what it saw and aborts, which libFuzzer reports.
#include "byte_source.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "common/instance.h"
#include "support/fenced_buffer.h"
#include "taviklimiter.h"

namespace {

using tvl_test::FencedBuffer;

[[noreturn]] void fail(const char* what, long long a, long long b) {
    std::fprintf(stderr, "api_sequence_fuzzer: %s (%lld, %lld)\n", what, a, b);
    std::abort();
}
#define EXPECT(cond, what, a, b) \
    do {                         \
        if (!(cond)) fail(what, (long long)(a), (long long)(b)); \
    } while (0)

constexpr int64_t kThreshold = 2147418110;  // largest magnitude that needs no reduction
constexpr int64_t kHotBound = 2144960392;   // largest output of a sample above it (Q1.31)

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

uint64_t splitmix(uint64_t& s) {
    uint64_t z = (s += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

bool same_bytes(const void* a, const void* b, size_t n) { return n == 0 || std::memcmp(a, b, n) == 0; }

size_t in_sample_bytes(uint32_t fmt) { return fmt == LMTR_PCM_Q33P31 ? 8 : 4; }

// A sample of format fmt widened to Q33.31 as the limiting path reads it:
// float * 2^31 + 0.5 toward zero, saturated, NaN 0; Q5.27 times 16.
int64_t widen(uint32_t fmt, const void* p, size_t i) {
    if (fmt == LMTR_PCM_Q33P31) return ld<int64_t>(p, i);
    if (fmt == LMTR_PCM_Q5P27) return int64_t(ld<int32_t>(p, i)) * 16;
    const double v = double(ld<float>(p, i)) * 2147483648.0 + 0.5;
    if (std::isnan(v)) return 0;
    if (v >= 9223372036854775808.0) return INT64_MAX;
    if (v < -9223372036854775808.0) return INT64_MIN;
    return int64_t(v);
}

// ---- Samples -----------------------------------------------------------------

const int64_t kEdges64[] = {0, 1, -1, INT64_MAX, INT64_MIN, INT64_MIN + 1, int64_t(1) << 31, -(int64_t(1) << 31),
                            (int64_t(1) << 31) - 1, -(int64_t(1) << 31) - 1, kThreshold, kThreshold + 1,
                            -kThreshold - 1, int64_t(1) << 46, (int64_t(1) << 46) - 1, -(int64_t(1) << 46),
                            int64_t(1) << 47, (int64_t(1) << 47) + 32768, int64_t(1) << 32, 2147581951,
                            -2147581951, INT64_C(0x7FFFFFFF0), int64_t(1) << 62};
const int32_t kEdges32[] = {0, 1, -1, INT32_MAX, INT32_MIN, INT32_MIN + 1, 0x08000000, -0x08000000, 0x07FFFFFF,
                            0x07FFEFFF, 0x07FFF000, -0x07FFF000, 0x7FFFFFF0, 0x40000000, 0x10000000};
const float kEdgesF[] = {0.0f,   -0.0f,  1.0f,    -1.0f,   0x1.fffffep-1f, 16.0f,    -16.0f,  0x1.fffffep3f,
                         17.0f,  0x1p32f, -0x1p32f, 0x1p15f, 32768.0f,       0x1p63f,  -0x1p63f, 0x1p64f,
                         std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                         std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::quiet_NaN(),
                         std::numeric_limits<float>::signaling_NaN(), std::numeric_limits<float>::denorm_min(),
                         -std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::min(),
                         std::numeric_limits<float>::max(), -std::numeric_limits<float>::max(), 0x1p-31f,
                         0x1.8p-31f, -0x1p-32f};

// Fills `count` samples of format fmt: style 0 raw fuzz bytes, 1 edge values,
// 2 loud audio (0.5 to 8 times full scale), 3 quiet noise, 4 silence, else a mix.
void fill_samples(tvl_fuzz::ByteSource& fdp, uint32_t fmt, unsigned char* dst, size_t count) {
    const int style = fdp.ConsumeIntegralInRange<int>(0, 5);
    uint64_t seed = fdp.ConsumeIntegral<uint64_t>();
    size_t i = 0;
    if (style == 0) {
        const auto raw = fdp.ConsumeBytes<unsigned char>(count * in_sample_bytes(fmt));
        if (!raw.empty()) std::memcpy(dst, raw.data(), raw.size());
        i = raw.size() / in_sample_bytes(fmt);
    }
    for (; i < count; ++i) {
        const uint64_t r = splitmix(seed);
        int kind = style == 5 ? int(r % 5) : style;
        if (kind == 0) kind = 5;  // raw bytes ran out: random words
        const double loud = (double(r >> 11) * 0x1p-53 * 2 - 1) * std::ldexp(1.0, 30 + int(r % 4));
        const double quiet = (double(r >> 11) * 0x1p-53 * 2 - 1) * 0x1p30;
        const double v = kind == 2 ? loud : kind == 3 ? quiet : 0.0;
        switch (fmt) {
            case LMTR_PCM_Q33P31:
                st<int64_t>(dst, i, kind == 1 ? kEdges64[r % std::size(kEdges64)] : kind == 5 ? int64_t(r) : int64_t(v));
                break;
            case LMTR_PCM_FLOAT32:
                st<float>(dst, i, kind == 1 ? kEdgesF[r % std::size(kEdgesF)]
                                  : kind == 5 ? ld<float>(&r, 0) : float(v * 0x1p-31));
                break;
            default:
                st<int32_t>(dst, i, kind == 1 ? kEdges32[r % std::size(kEdges32)]
                                    : kind == 5 ? int32_t(r) : int32_t(v / 16));
                break;
        }
    }
}

// ---- The model of one instance --------------------------------------------------

// The block in the delay line, as the model knows it.
struct Held {
    bool silence = true;              // zeros since Open or Reset
    uint32_t fmt = LMTR_PCM_Q33P31;   // format the block was offered in
    bool limited = true;              // taken in while limiting (or silence): its gains keep it bounded
    bool exact = false;               // taken in during bypass unfaded: leaves unchanged in its format
    std::vector<unsigned char> bytes; // the block as offered
};

struct Model {
    bool open = false;
    bool stereo = false;
    uint32_t fmt = 0, state = 0, prev_state = 0;
    Held held;
};

class Session {
public:
    explicit Session(tvl_fuzz::ByteSource& fdp) : fdp_(fdp) {}

    void step() {
        switch (fdp_.ConsumeIntegralInRange<int>(0, 11)) {
            case 0: open(); break;
            case 1: case 2: case 3: case 4: case 5: process(); break;
            case 6: case 7: set_parameters(); break;
            case 8: reset(); break;
            case 9: status(); break;
            case 10: buffer_size(); break;
            default: version(); break;
        }
    }

private:
    LimiterHandle* handle() { return reinterpret_cast<LimiterHandle*>(inst_->data()); }
    std::vector<unsigned char> snapshot() const {
        return std::vector<unsigned char>(inst_->data(), inst_->data() + LMTR_INSTANCE_SIZE);
    }
    void expect_instance(const std::vector<unsigned char>& before, const char* what) {
        EXPECT(same_bytes(before.data(), inst_->data(), before.size()), what, 0, 0);
        EXPECT(inst_->check(), "instance guards", 0, 0);
    }
    bool rare() { return fdp_.ConsumeIntegralInRange<int>(0, 15) == 0; }

    void open() {
        const bool same_memory = m_.open && fdp_.ConsumeBool();
        if (!same_memory) inst_ = std::make_unique<FencedBuffer>(LMTR_INSTANCE_SIZE, fdp_.ConsumeIntegralInRange<int>(0, 7), 0xEE);
        static const uint32_t kChannels[] = {0, 1, 2, 3, 6, 0xFFFFFFFFu};
        LimiterConfig c;
        c.channels = fdp_.ConsumeBool() ? kChannels[fdp_.ConsumeIntegralInRange<int>(0, 5)] : fdp_.ConsumeIntegral<uint32_t>();
        c.aux_config = fdp_.ConsumeIntegral<uint32_t>();
        c.pcm_format = rare() ? fdp_.ConsumeIntegral<uint32_t>() : fdp_.ConsumeIntegralInRange<uint32_t>(0, 2);
        c.state = rare() ? fdp_.ConsumeIntegral<uint32_t>() : fdp_.ConsumeIntegralInRange<uint32_t>(0, 1);
        const int nulled = rare() ? fdp_.ConsumeIntegralInRange<int>(1, 3) : 0;
        LimiterHandle* const sentinel = reinterpret_cast<LimiterHandle*>(uintptr_t(0x5150));
        LimiterHandle* h = sentinel;
        const auto before = snapshot();
        const int32_t rc = Limiter_Open(nulled == 1 ? nullptr : &h, nulled == 2 ? nullptr : inst_->data(),
                                        nulled == 3 ? nullptr : &c);
        const int32_t want = nulled ? LMTR_ERR_NULL_POINTER
                             : c.pcm_format > 2 ? LMTR_ERR_PCM_FORMAT
                             : c.state > 1      ? LMTR_ERR_STATE
                                                : LMTR_OK;
        EXPECT(rc == want, "Limiter_Open result", rc, want);
        if (rc != LMTR_OK) {
            EXPECT(h == sentinel, "Limiter_Open wrote the handle on failure", 0, 0);
            expect_instance(before, "Limiter_Open changed memory on failure");
            if (!same_memory) m_.open = false;
            return;
        }
        EXPECT(h == handle(), "Limiter_Open handle", 0, 0);
        EXPECT(inst_->check(), "instance guards", 0, 0);
        m_ = Model{};
        m_.open = true, m_.stereo = c.channels == 2, m_.fmt = c.pcm_format, m_.state = m_.prev_state = c.state;
    }

    void set_parameters() {
        if (!m_.open) return;
        LimiterParam p;
        p.command = rare() ? fdp_.ConsumeIntegral<uint32_t>() : fdp_.ConsumeIntegralInRange<uint32_t>(0, 3);
        p.value = rare() ? fdp_.ConsumeIntegral<uint32_t>() : fdp_.ConsumeIntegralInRange<uint32_t>(0, 2);
        const int nulled = rare() ? fdp_.ConsumeIntegralInRange<int>(1, 2) : 0;
        const auto before = snapshot();
        const int32_t rc = Limiter_SetParameters(nulled == 1 ? nullptr : handle(), nulled == 2 ? nullptr : &p);
        const int32_t want = nulled ? LMTR_ERR_NULL_POINTER
                             : p.command > 3                       ? LMTR_ERR_COMMAND
                             : p.command == 2 && p.value > 2       ? LMTR_ERR_PCM_FORMAT
                                                                   : LMTR_OK;
        EXPECT(rc == want, "Limiter_SetParameters result", rc, want);
        if (rc != LMTR_OK) return expect_instance(before, "Limiter_SetParameters changed the instance on failure");
        if (p.command <= 1) m_.state = p.command;
        if (p.command == 2) m_.fmt = p.value;
        if (p.command == 3) m_.held = Held{};
        EXPECT(inst_->check(), "instance guards", 0, 0);
    }

    void reset() {
        if (!m_.open) return;
        if (rare()) {
            EXPECT(Limiter_Reset(nullptr) == LMTR_ERR_NULL_POINTER, "Limiter_Reset(null)", 0, 0);
            return;
        }
        EXPECT(Limiter_Reset(handle()) == LMTR_OK, "Limiter_Reset result", 0, 0);
        m_.held = Held{};
        EXPECT(inst_->check(), "instance guards", 0, 0);
    }

    void status() {
        if (!m_.open) return;
        LimiterStatus s{0xABCD, 0xDCBA};
        const int nulled = rare() ? fdp_.ConsumeIntegralInRange<int>(1, 2) : 0;
        const int32_t rc = Limiter_GetStatus(nulled == 1 ? nullptr : handle(), nulled == 2 ? nullptr : &s);
        if (nulled) {
            EXPECT(rc == LMTR_ERR_NULL_POINTER && s.pcm_format == 0xABCD && s.state == 0xDCBA, "Limiter_GetStatus(null)", rc, 0);
            return;
        }
        EXPECT(rc == LMTR_OK && s.pcm_format == m_.fmt && s.state == m_.state, "Limiter_GetStatus", s.pcm_format, s.state);
    }

    void buffer_size() {
        const uint32_t fmt = fdp_.ConsumeBool() ? fdp_.ConsumeIntegral<uint32_t>() : fdp_.ConsumeIntegralInRange<uint32_t>(0, 3);
        uint32_t sizes[2] = {7, 7};
        const int32_t rc = Limiter_GetBufferSize(&sizes[0], &sizes[1], fmt);
        if (fmt > 2) {
            EXPECT(rc == LMTR_ERR_PCM_FORMAT && sizes[0] == 7 && sizes[1] == 7, "Limiter_GetBufferSize bad format", rc, fmt);
        } else {
            EXPECT(rc == LMTR_OK && sizes[0] == 1096 && sizes[1] == 1536, "Limiter_GetBufferSize", sizes[0], sizes[1]);
        }
    }

    void version() {
        EXPECT(Limiter_GetVersion() == 0x127, "Limiter_GetVersion", Limiter_GetVersion(), 0x127);
        EXPECT(Limiter_Get_Version() == limiter_version, "Limiter_Get_Version", 0, 0);
    }

    void process();
    void check_block(const unsigned char* in_block, const unsigned char* out, uint32_t k, bool switching,
                     int32_t last_min_before);

    tvl_fuzz::ByteSource& fdp_;
    std::unique_ptr<FencedBuffer> inst_;
    Model m_;
};

void Session::process() {
    const uint32_t fmt = m_.fmt;
    const size_t ch = m_.stereo ? 2 : 1, in_frame = ch * in_sample_bytes(fmt), out_frame = ch * 4;
    // Whole frames plus a few stray bytes on each side; sometimes fewer than a block.
    const size_t in_frames = fdp_.ConsumeIntegralInRange<size_t>(0, fdp_.ConsumeBool() ? 70 : 400);
    const size_t in_bytes = in_frames * in_frame + fdp_.ConsumeIntegralInRange<size_t>(0, in_frame - 1);
    const size_t out_bytes = fdp_.ConsumeBool() ? in_frames * out_frame
                                                : fdp_.ConsumeIntegralInRange<size_t>(0, 400 * out_frame + 7);
    const bool in_place = fdp_.ConsumeIntegralInRange<int>(0, 2) == 0;
    const int nulled = (m_.open && !rare()) ? 0 : fdp_.ConsumeIntegralInRange<int>(1, 4);

    const size_t blocks = std::min(in_bytes / (64 * in_frame), out_bytes / (64 * out_frame));
    const size_t want_in = blocks * 64 * in_frame, want_out = blocks * 64 * out_frame;

    FencedBuffer scratch(LMTR_SCRATCH_SIZE, fdp_.ConsumeIntegralInRange<int>(0, 7));
    uint64_t seed = fdp_.ConsumeIntegral<uint64_t>();
    for (size_t i = 0; i < LMTR_SCRATCH_SIZE; ++i) scratch.data()[i] = uint8_t(splitmix(seed));  // garbage: never read first
    FencedBuffer in(in_place ? std::max(in_bytes, out_bytes) : in_bytes, fdp_.ConsumeIntegralInRange<int>(0, 7), 0x3C);
    FencedBuffer out_apart(in_place ? 0 : out_bytes, fdp_.ConsumeIntegralInRange<int>(0, 7), 0xC3);
    FencedBuffer& out = in_place ? in : out_apart;
    fill_samples(fdp_, fmt, in.data(), in_bytes / in_sample_bytes(fmt));
    const std::vector<unsigned char> in_before(in.data(), in.data() + in.size());
    const std::vector<unsigned char> out_before(out.data(), out.data() + out.size());
    // Bytes beyond the counts are neither read nor written.
    in.fence_tail(in_place ? std::max(want_in, want_out) : want_in);
    if (!in_place) out.fence_tail(want_out);

    const std::vector<unsigned char> inst_before = m_.open ? snapshot() : std::vector<unsigned char>();
    const int32_t last_min_before = m_.open ? tvl::read_record(inst_->data()).last_min_gain : 0;
    uint32_t in_size = uint32_t(in_bytes), out_size = uint32_t(out_bytes);
    const int32_t rc = Limiter_Process(nulled == 1 || !m_.open ? nullptr : handle(), nulled == 2 ? nullptr : scratch.data(),
                                       nulled == 3 ? nullptr : in.data(), &in_size,
                                       nulled == 4 ? nullptr : out.data(), &out_size);
    EXPECT(in.check() && out.check() && scratch.check(), "a write beside a buffer", in_bytes, out_bytes);
    if (nulled || !m_.open) {
        EXPECT(rc == LMTR_ERR_NULL_POINTER && in_size == 0 && out_size == 0, "Limiter_Process with a null pointer", rc, nulled);
        if (m_.open) expect_instance(inst_before, "Limiter_Process changed the instance on failure");
        return;
    }
    EXPECT(rc == LMTR_OK, "Limiter_Process result", rc, 0);
    EXPECT(in_size == want_in, "consumed bytes", in_size, want_in);
    EXPECT(out_size == want_out, "produced bytes", out_size, want_out);
    EXPECT(inst_->check(), "instance guards", 0, 0);
    if (!in_place) EXPECT(same_bytes(in.data(), in_before.data(), in_bytes), "the input was written", 0, 0);
    const size_t kept_from = want_out;  // in place too: the input part beyond the output is read only
    EXPECT(same_bytes(out.data() + kept_from, out_before.data() + kept_from, out.size() - kept_from),
           "bytes beyond the produced count were written", kept_from, out.size());
    if (blocks == 0) return expect_instance(inst_before, "a call without a whole block changed the instance");

    const bool switching = m_.state != m_.prev_state;
    for (uint32_t k = 0; k < blocks; ++k) {
        check_block(in_before.data() + k * 64 * in_frame, out.data() + k * 64 * out_frame, k, switching && k == 0,
                    last_min_before);
    }
    m_.prev_state = m_.state;
    const LimiterHandle rec = tvl::read_record(inst_->data());
    EXPECT(rec.prev_state == m_.state, "prev_state after a call", rec.prev_state, m_.state);
    EXPECT(rec.prev_pcm_format == (m_.state == 0 ? 0 : fmt), "prev_pcm_format after a call", rec.prev_pcm_format, fmt);
}

// Output block k of a call (in the call's format) against the block the model
// holds; then the input block takes its place.
void Session::check_block(const unsigned char* in_block, const unsigned char* out, uint32_t k, bool switching,
                          int32_t last_min_before) {
    const uint32_t n = m_.stereo ? 128 : 64, fmt = m_.fmt;
    Held& h = m_.held;
    if (m_.state == LMTR_STATE_LIMITING) {
        // A block held in bypass enters the limiter at unity on the way back
        // and may leave beyond full scale; every other block is bounded.
        if (h.silence || (h.limited && !switching)) {
            for (uint32_t i = 0; i < n; ++i) {
                const int64_t x = h.silence ? 0 : widen(h.fmt, h.bytes.data(), i);
                // Q1.31 range the sample may take: between 0 and x, and for a
                // sample beyond the threshold no further from 0 than the hot bound.
                const uint64_t mag = x < 0 ? 0 - uint64_t(x) : uint64_t(x);
                const bool hot = mag > uint64_t(kThreshold);
                const int64_t lo_q = x >= 0 ? 0 : hot ? -kHotBound : x;
                const int64_t hi_q = x <= 0 ? 0 : hot ? kHotBound : x;
                bool ok;
                if (fmt == LMTR_PCM_FLOAT32) {
                    const float y = ld<float>(out, i);
                    ok = y >= float(lo_q) * 0x1p-31f && y <= float(hi_q) * 0x1p-31f;  // false for NaN
                } else if (fmt == LMTR_PCM_Q5P27) {
                    const int32_t y = ld<int32_t>(out, i);
                    ok = y >= (int32_t(lo_q) >> 4) && y <= (int32_t(hi_q) >> 4);
                } else {
                    const int32_t y = ld<int32_t>(out, i);
                    ok = y >= lo_q && y <= hi_q;
                }
                if (!ok) {
                    std::fprintf(stderr, "block %u sample %u: held %lld (format %u), output word 0x%08x, format %u\n", k,
                                 i, (long long)x, h.fmt, ld<uint32_t>(out, i), fmt);
                    fail("limited output outside its bound", lo_q, hi_q);
                }
            }
        }
        h = Held{false, fmt, true, false, std::vector<unsigned char>(in_block, in_block + n * in_sample_bytes(fmt))};
        return;
    }
    if (h.silence) {
        for (uint32_t i = 0; i < n; ++i) EXPECT(ld<uint32_t>(out, i) == 0, "silence held in bypass did not leave as zeros", k, i);
    } else if (!switching && h.exact && h.fmt == fmt) {
        for (uint32_t i = 0; i < n; ++i) {
            const uint32_t want = fmt == LMTR_PCM_Q33P31 ? uint32_t(ld<uint64_t>(h.bytes.data(), i)) : ld<uint32_t>(h.bytes.data(), i);
            if (ld<uint32_t>(out, i) != want) {
                std::fprintf(stderr, "bypass block %u sample %u: 0x%08x, want 0x%08x\n", k, i, ld<uint32_t>(out, i), want);
                fail("bypass output is not the input one block earlier", k, i);
            }
        }
    }
    // On the switch the first input block is held faded unless its fade is from unity.
    const bool exact = !switching || last_min_before == 32767;
    h = Held{false, fmt, false, exact, std::vector<unsigned char>(in_block, in_block + n * in_sample_bytes(fmt))};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tvl_fuzz::ByteSource fdp(data, size);
    Session session(fdp);
    for (int ops = 0; ops < 96 && fdp.remaining_bytes() > 0; ++ops) session.step();
    return 0;
}
