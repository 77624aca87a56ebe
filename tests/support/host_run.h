// A host run through the C interface, free of GoogleTest (it runs on
// worker threads and inside the fuzzer): open an instance, then a schedule of
// periods of any number of frames (a partial block is kept and offered
// again, output room is sometimes short), switches, format changes and
// resets, on generated material that drives the limiter hard and carries the
// special values of its format. Input and output buffers are fenced (under
// ASan a stray access stops on the spot) and exactly as long as offered.
//
// Every call is checked against the contract, every output sample against
// the properties that hold without restating the arithmetic:
//   - the sizes: the largest whole number of blocks both sides hold;
//   - the bound (docs/RELIABILITY.md): in limiting, from Limiter_Open or a
//     reset, every sample stays within the threshold, and a sample whose own
//     input was above the threshold leaves at or below the target; excluded
//     are bypass blocks past the one emitted at the switch into bypass, and
//     the one block held at a switch back to limiting;
//   - bypass passes every sample once, unscaled, exactly 64 frames late
//     (past the two faded blocks of the switch and a block held across a
//     reset or a format change).
// Every library call goes through around(fn), where the realtime test arms
// its counters.
#pragma once

#include <cmath>
#include <string>
#include <vector>

#include "fenced_buffer.h"
#include "gen.h"
#include "taviklimiter.h"

namespace tvl_test {

struct Step {
    char op;  // 'p' a period of arg frames, 'b' bypass, 'l' limiting, 'f' format arg, 'r' reset
    uint32_t arg;
};

struct HostRun {
    uint32_t fmt = 0, state = 0;
    bool stereo = false, in_place = false;
    uint64_t seed = 0;
    size_t offset = 0;  // misalignment of instance, scratch, input and output
    std::vector<Step> steps;
    const std::vector<unsigned char>* input = nullptr;  // fixed samples in format fmt instead of stream_sample()
};

inline size_t in_bytes(uint32_t fmt) { return fmt == LMTR_PCM_Q33P31 ? 8 : 4; }

// Sample i of the run's stream in format fmt. Each block of 64 frames
// has its own level (quiet, near full scale, loud up to 4x) and one block in
// three carries special values among its samples.
inline void stream_sample(uint32_t fmt, uint64_t seed, uint64_t i, bool stereo, unsigned char* dst) {
    Gen block(seed ^ (i / (stereo ? 128 : 64) + 1) * 0xD1B54A32D192ED03ull);
    static const double levels[] = {0.25, 0.999, 1.0001, 1.2, 2.0, 4.0};
    const double level = levels[block.below(6)];
    const uint64_t special = block.one_in(3) ? 12 : 0;
    Gen g(seed * 0x9E3779B97F4A7C15ull + i);
    if (special && g.one_in(special)) {
        if (fmt == LMTR_PCM_Q33P31) put<int64_t>(dst, 0, g.q33(1));
        else if (fmt == LMTR_PCM_FLOAT32) put<float>(dst, 0, g.f32(1));
        else put<int32_t>(dst, 0, g.q5(1));
        return;
    }
    const double x = g.audio(level);
    if (fmt == LMTR_PCM_Q33P31) put<int64_t>(dst, 0, int64_t(x * 0x1p31));
    else if (fmt == LMTR_PCM_FLOAT32) put<float>(dst, 0, float(x));
    else put<int32_t>(dst, 0, int32_t(std::fmax(-0x1p31, std::fmin(x * 0x1p27, 0x1p31 - 1))));
}

// Whether an input sample's magnitude, widened to Q33.31 (NaN to 0), is above the threshold.
inline bool above_threshold(uint32_t fmt, const unsigned char* x) {
    if (fmt == LMTR_PCM_Q33P31) {
        const int64_t w = get<int64_t>(x, 0);
        return w > kThreshold || w < -kThreshold;
    }
    if (fmt == LMTR_PCM_Q5P27) return std::abs(int64_t(get<int32_t>(x, 0)) * 16) > kThreshold;
    const float f = get<float>(x, 0);
    return f == f && std::fabs(std::trunc(double(f) * 0x1p31 + 0.5)) > double(kThreshold);
}

// Whether an output sample of a limited block keeps the bound ("hot": its input was above the threshold).
inline bool within_bound(uint32_t fmt, const unsigned char* y, bool hot) {
    if (fmt == LMTR_PCM_FLOAT32) return std::fabs(get<float>(y, 0)) <= (hot ? 32730.0 / 32768 : 1 - 0x1p-15);
    const int64_t w = get<int32_t>(y, 0);
    if (fmt == LMTR_PCM_Q33P31) return std::abs(w) <= (hot ? kTarget : kThreshold);
    return hot ? std::abs(w) <= 0x07FDA000 : w >= -0x07FFF000 && w <= 0x07FFEFFF;
}

struct RunResult {
    std::vector<unsigned char> out;  // every output byte in order
    std::string error;               // the first broken rule, "" if none
    size_t bounded = 0, hot = 0, exact = 0, switches = 0;  // samples (and switches) checked
};

template <typename Around>
RunResult run_host(const HostRun& s, Around around, void* instance = nullptr, void* scratch = nullptr) {
    RunResult r;
    const size_t ch = s.stereo ? 2 : 1, block = 64 * ch;
    FencedBuffer own_instance(LMTR_INSTANCE_SIZE, s.offset), own_scratch(LMTR_SCRATCH_SIZE, 15 - s.offset % 16);
    if (!instance) instance = own_instance.data(), scratch = own_scratch.data();
    LimiterHandle* h = nullptr;
    const LimiterConfig config{s.stereo ? 2u : 1u, 0, s.fmt, s.state};
    int32_t rc = 0;
    around([&] { rc = Limiter_Open(&h, instance, &config); });
    auto fail = [&](const std::string& what, size_t step) {
        if (r.error.empty()) r.error = what + " at step " + std::to_string(step) + " (code " + std::to_string(rc) + ")";
    };
    if (rc != LMTR_OK || h != instance) fail("Limiter_Open", 0);

    uint32_t fmt = s.fmt, state = s.state, done_state = s.state, done_fmt = s.fmt;
    std::vector<unsigned char> hot(block, 0);  // per stream sample offered, from 64 frames before the first
    std::vector<int32_t> passed(block, 0);     // what bypass emits for it
    size_t consumed = 0, skip_exact = 0;       // stream samples consumed; output blocks not yet exact
    for (size_t k = 0; k < s.steps.size() && r.error.empty(); ++k) {
        const Step& st = s.steps[k];
        if (st.op != 'p') {
            const uint32_t cmd = st.op == 'b' ? 1 : st.op == 'l' ? 0 : st.op == 'f' ? 2 : 3;
            const LimiterParam p{cmd, st.arg};
            LimiterStatus status{};
            around([&] { rc = st.op == 'r' && k % 2 ? Limiter_Reset(h) : Limiter_SetParameters(h, &p); });
            if (rc == LMTR_OK) around([&] { rc = Limiter_GetStatus(h, &status); });
            fmt = st.op == 'f' ? st.arg : fmt;
            state = cmd < 2 ? cmd : state;
            if (st.op == 'r') skip_exact = std::max<size_t>(skip_exact, 1);
            if (rc != LMTR_OK || status.pcm_format != fmt || status.state != state) fail("a command or the status", k);
            continue;
        }
        // Offer st.arg frames; output room is now and then a little short.
        const size_t frames = s.input ? std::min<size_t>(st.arg, s.input->size() / in_bytes(fmt) / ch - consumed / ch)
                                      : st.arg;
        const size_t room = k % 5 == 3 && !s.input ? frames - std::min<size_t>(frames, k % 97) : frames;
        const size_t in_size0 = frames * ch * in_bytes(fmt), out_size0 = room * ch * 4;
        FencedBuffer in(s.in_place ? std::max(in_size0, out_size0) : in_size0, s.offset);
        FencedBuffer out_buf(s.in_place ? 0 : out_size0, (s.offset + 3) % 16);
        const auto sample = [&](size_t i, unsigned char* dst) {
            if (s.input) std::memcpy(dst, s.input->data() + i * in_bytes(fmt), in_bytes(fmt));
            else stream_sample(fmt, s.seed, i, s.stereo, dst);
        };
        for (size_t i = 0; i < frames * ch; ++i) sample(consumed + i, in.data() + i * in_bytes(fmt));
        unsigned char* out = s.in_place ? in.data() : out_buf.data();
        uint32_t in_size = uint32_t(in_size0), out_size = uint32_t(out_size0);
        around([&] { rc = Limiter_Process(h, scratch, in.data(), &in_size, out, &out_size); });
        const size_t done = std::min(frames, room) / 64 * 64;
        if (rc != LMTR_OK) fail("Limiter_Process", k);
        if (in_size != done * ch * in_bytes(fmt) || out_size != done * ch * 4) fail("the sizes", k);
        if (!in.check() || !out_buf.check()) fail("a write outside the buffers", k);
        if (!r.error.empty() || done == 0) continue;

        // What the consumed samples are owed (hot and bypass words use the input as offered).
        std::vector<unsigned char> x(in_bytes(fmt));
        for (size_t i = 0; i < done * ch; ++i) {
            sample(consumed + i, x.data());
            hot.push_back(above_threshold(fmt, x.data()));
            passed.push_back(fmt == LMTR_PCM_Q33P31 ? int32_t(uint32_t(get<uint64_t>(x.data(), 0))) : get<int32_t>(x.data(), 0));
        }
        if (fmt != done_fmt) skip_exact = std::max<size_t>(skip_exact, 1);
        if (state == LMTR_STATE_BYPASS && done_state == LMTR_STATE_LIMITING) skip_exact = 2, ++r.switches;
        if (state == LMTR_STATE_LIMITING && done_state == LMTR_STATE_BYPASS) ++r.switches;
        for (size_t b = 0; b < done / 64; ++b) {
            const bool first = b == 0 && state != done_state;
            const bool bounded = state == LMTR_STATE_LIMITING ? !first : first;
            const bool exact = state == LMTR_STATE_BYPASS && !first && skip_exact == 0;
            for (size_t i = 0; i < block && r.error.empty(); ++i) {
                const size_t n = consumed + b * block + i;  // the output sample; its input is hot[n], passed[n]
                const unsigned char* y = out + (b * block + i) * 4;
                if (bounded && !within_bound(fmt, y, hot[n])) fail("the bound: output sample " + std::to_string(n), k);
                if (exact && get<int32_t>(y, 0) != passed[n]) fail("bypass: output sample " + std::to_string(n), k);
                r.bounded += bounded, r.hot += bounded && hot[n], r.exact += exact;
            }
            skip_exact -= skip_exact > 0;
        }
        r.out.insert(r.out.end(), out, out + done * ch * 4);
        consumed += done * ch;
        done_state = state, done_fmt = fmt;
    }
    return r;
}

// A random schedule of `calls` periods (partial blocks, whole ones, long
// ones) with switches, resets and, when asked, format changes between them.
inline std::vector<Step> random_steps(Gen& g, size_t calls, bool formats) {
    std::vector<Step> steps;
    for (size_t k = 0; k < calls; ++k) {
        const uint64_t kind = g.below(8);
        steps.push_back({'p', uint32_t(kind == 0 ? 1 + g.below(63) : kind < 4 ? 64 * (1 + g.below(4)) : 1 + g.below(1500))});
        const uint64_t c = g.below(16);
        if (c < 2) steps.push_back({'b', 0});
        else if (c < 4) steps.push_back({'l', 0});
        else if (c == 4 && formats) steps.push_back({'f', uint32_t(g.below(3))});
        else if (c == 5 && g.one_in(3)) steps.push_back({'r', 0});
    }
    return steps;
}

inline const auto direct = [](auto&& call) { call(); };

}  // namespace tvl_test
