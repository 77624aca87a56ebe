// A host session through the C interface only, free of GoogleTest so that
// it can run on worker threads: open an instance in caller memory, then a
// schedule of periods (any number of frames, partial blocks kept and offered
// again), switches, format changes and resets, on generated material that
// drives the limiter hard. Every library call goes through around(fn), where
// the realtime test arms its counters; all memory is allocated before.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "taviklimiter.h"

namespace tvl_test {

struct SessionStep {
    char op;       // 'p' period of `arg` frames, 'b' bypass, 'l' limiting, 'f' format `arg`, 'r' reset
    uint32_t arg;
};

struct SessionSpec {
    uint32_t fmt;
    bool stereo;
    uint32_t state;
    uint64_t seed;
    bool in_place;
    std::vector<SessionStep> steps;
};

inline uint64_t session_mix(uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

// Sample `i` of the session's stream in format fmt: loud noise in bursts (up
// to 4 times full scale), quiet stretches, now and then an extreme word.
inline void session_sample(uint32_t fmt, uint64_t seed, uint64_t i, unsigned char* dst) {
    const uint64_t r = session_mix(seed ^ (i * 0x100000001B3ull));
    const double level = ((i / 700 + seed) % 3 == 0) ? 0.25 : 4.0;
    double v = (double(r >> 11) * 0x1p-53 * 2 - 1) * level;
    if (r % 997 == 0) v = (r & 1) ? 1e6 : -1e6;
    if (fmt == LMTR_PCM_Q33P31) {
        const int64_t w = r % 1499 == 0 ? INT64_MIN : int64_t(v * 2147483648.0);
        std::memcpy(dst, &w, 8);
    } else if (fmt == LMTR_PCM_FLOAT32) {
        const float f = float(v);
        std::memcpy(dst, &f, 4);
    } else {
        const double q = v * 134217728.0;
        const int32_t w = q >= 2147483647.0 ? INT32_MAX : q <= -2147483648.0 ? INT32_MIN : int32_t(q);
        std::memcpy(dst, &w, 4);
    }
}

// Runs the session in `instance` (LMTR_INSTANCE_SIZE bytes) with `scratch`
// (LMTR_SCRATCH_SIZE bytes); returns every output byte in order. On a failed
// call or an unexpected size, *error says which and the run stops.
template <typename Around>
std::vector<unsigned char> run_session(const SessionSpec& s, void* instance, void* scratch, Around around,
                                       std::string* error) {
    const size_t ch = s.stereo ? 2 : 1;
    uint32_t largest = 64;
    for (const SessionStep& st : s.steps) largest = st.op == 'p' && st.arg > largest ? st.arg : largest;
    std::vector<unsigned char> in((largest + 64) * ch * 8 + 8), out((largest + 64) * ch * 4 + 8), result;
    result.reserve(size_t(largest) * ch * 4 * s.steps.size());

    LimiterHandle* h = nullptr;
    const LimiterConfig config{s.stereo ? 2u : 1u, 0, s.fmt, s.state};
    int32_t rc = 0;
    around([&] { rc = Limiter_Open(&h, instance, &config); });
    uint32_t fmt = s.fmt;
    uint64_t consumed = 0;  // stream frames consumed so far
    auto failed = [&](const char* what, size_t step) {
        if (error) *error = std::string(what) + " at step " + std::to_string(step) + " (code " + std::to_string(rc) + ")";
        return result;
    };
    if (rc != LMTR_OK) return failed("Limiter_Open", 0);

    for (size_t k = 0; k < s.steps.size(); ++k) {
        const SessionStep& st = s.steps[k];
        if (st.op != 'p') {
            const LimiterParam p{st.op == 'b' ? uint32_t(LMTR_CMD_SET_BYPASS)
                                 : st.op == 'l' ? uint32_t(LMTR_CMD_SET_LIMITING)
                                 : st.op == 'f' ? uint32_t(LMTR_CMD_SET_PCM_FORMAT)
                                                : uint32_t(LMTR_CMD_RESET),
                                 st.arg};
            LimiterStatus status{};
            around([&] {
                rc = st.op == 'r' && k % 2 ? Limiter_Reset(h) : Limiter_SetParameters(h, &p);
                if (rc == LMTR_OK) rc = Limiter_GetStatus(h, &status);
            });
            if (rc != LMTR_OK) return failed("a command", k);
            if (st.op == 'f') fmt = st.arg;
            continue;
        }
        const size_t in_frame = ch * (fmt == LMTR_PCM_Q33P31 ? 8 : 4), out_frame = ch * 4;
        for (size_t i = 0; i < st.arg * ch; ++i) {
            session_sample(fmt, s.seed, consumed * ch + i, in.data() + 1 + i * (in_frame / ch));
        }
        unsigned char* dst = s.in_place ? in.data() + 1 : out.data() + 3;  // odd addresses
        uint32_t in_size = uint32_t(st.arg * in_frame), out_size = uint32_t(st.arg * out_frame);
        around([&] { rc = Limiter_Process(h, scratch, in.data() + 1, &in_size, dst, &out_size); });
        const uint32_t frames = st.arg / 64 * 64;
        if (rc != LMTR_OK) return failed("Limiter_Process", k);
        if (in_size != frames * in_frame || out_size != frames * out_frame) return failed("frame accounting", k);
        result.insert(result.end(), dst, dst + out_size);
        consumed += frames;
    }
    return result;
}

// A seeded schedule of `calls` periods of 1 to 1200 frames with commands in
// between: switches, format changes (when allowed) and resets.
inline std::vector<SessionStep> session_schedule(uint64_t seed, size_t calls, bool change_formats) {
    std::vector<SessionStep> steps;
    for (size_t k = 0; k < calls; ++k) {
        const uint64_t r = session_mix(seed + k);
        steps.push_back({'p', uint32_t(r % 8 == 0 ? 1 + r % 63 : 1 + (r >> 8) % 1200)});
        const uint64_t c = (r >> 20) % 16;
        if (c < 2) steps.push_back({'b', 0});
        else if (c < 4) steps.push_back({'l', 0});
        else if (c == 4 && change_formats) steps.push_back({'f', uint32_t((r >> 32) % 3)});
        else if (c == 5 && (r >> 40) % 4 == 0) steps.push_back({'r', 0});
    }
    return steps;
}

}  // namespace tvl_test
