// A test-side caller of Limiter_Process and the reference rules that tests
// check its output against.
//
// ref:: restates the documented per-sample arithmetic (scaling, ramps, fades,
// format conversions, required gains) one sample at a time, independently of
// the library's own helpers. Driver plays the part of a host: it offers
// periods of N frames, keeps the partial block that a call leaves and offers
// it again, works in place or between two buffers, sends commands, and logs
// per call the frames processed and the gains read back from the record.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "common/instance.h"
#include "taviklimiter.h"

namespace tvl_test {

constexpr int32_t kUnity = 32767;
// The Q15 scaling rule with a gain of 32768 gives the sample back exactly:
// tests use it to stand for the exact unity path (no_limiter).
constexpr int32_t kExact = 32768;

inline uint32_t samples_per_block(bool stereo) { return stereo ? 128u : 64u; }
inline size_t in_sample_bytes(uint32_t fmt) { return fmt == LMTR_PCM_Q33P31 ? 8u : 4u; }

template <typename T>
T ld(const void* p, size_t i) {
    T v;
    std::memcpy(&v, static_cast<const unsigned char*>(p) + i * sizeof(T), sizeof(T));
    return v;
}
template <typename T>
void st(void* p, size_t i, T v) {
    std::memcpy(static_cast<unsigned char*>(p) + i * sizeof(T), &v, sizeof(T));
}

// memcmp, and on a difference the first differing byte.
inline ::testing::AssertionResult same_bytes(const void* got, const void* want, size_t n) {
    if (std::memcmp(got, want, n) == 0) return ::testing::AssertionSuccess();
    size_t i = 0;
    while (ld<unsigned char>(got, i) == ld<unsigned char>(want, i)) ++i;
    return ::testing::AssertionFailure() << "first difference at byte " << i << " of " << n << ": got 0x" << std::hex
                                         << int(ld<unsigned char>(got, i)) << ", want 0x"
                                         << int(ld<unsigned char>(want, i));
}

namespace ref {

constexpr int64_t kThreshold = 2147418110;  // largest magnitude that needs no gain (ceiling 32767)

// Bits 15..46 of the 64-bit product: floor(x * g / 32768) when it fits.
inline int32_t q15(int64_t x, int32_t g) { return int32_t(uint32_t((uint64_t(x) * uint64_t(int64_t(g))) >> 15)); }
inline int32_t narrow(int64_t x) { return int32_t(uint32_t(uint64_t(x))); }

// Required gain of one Q33.31 sample below 2^46 in magnitude.
inline int32_t required_gain(int64_t x) {
    const int64_t m = x < 0 ? -x : x;
    if (m <= kThreshold) return kUnity;
    const int32_t q = int32_t(2144993280 / (m >> 15));
    return int32_t((int64_t(32767) * q) >> 15) & ~1;
}
inline int32_t block_min_gain(const int64_t* x, uint32_t samples) {
    int32_t r = kUnity;
    for (uint32_t i = 0; i < samples; ++i) r = std::min(r, required_gain(x[i]));
    return r;
}

// Gain of frame i of a 64-frame ramp or fade: start + floor(i * (end - start) / 64).
inline int32_t ramp(int32_t start, int32_t end, int i) { return start + ((i * (end - start)) >> 6); }

inline int64_t fade_q33(int64_t x, int32_t g) { return (x * g) >> 15; }
inline float fade_f32(float x, int32_t g) { return (x * float(g)) * 0x1p-15f; }
inline int32_t fade_q5(int32_t x, int32_t g) { return int32_t((int64_t(x) * g) >> 15); }

// Format conversions (values in the ranges the tests use).
inline int64_t f32_to_q33(float x) { return int64_t(std::trunc(double(x) * 2147483648.0 + 0.5)); }
inline int64_t q5_to_q33(int32_t w) { return int64_t(w) * 16; }
inline float q1_to_f32(int32_t w) { return float(w) * 0x1p-31f; }
inline int32_t q1_to_q5(int32_t w) { return w >> 4; }
inline float q33_to_f32(int64_t w) { return float(double(w) * 0x1p-31); }
inline int32_t q33_to_q5(int64_t w) { return narrow(w) >> 4; }
inline float q5_to_f32(int32_t w) { return float(w) * 0x1p-27f; }
inline int32_t f32_to_q5(float x) { return int32_t(std::trunc(double(x) * 134217728.0 + 0.5)); }

// Sample i of a block in format fmt, widened to Q33.31 as the limiting path reads it.
inline int64_t widen(uint32_t fmt, const void* p, size_t i) {
    if (fmt == LMTR_PCM_Q33P31) return ld<int64_t>(p, i);
    if (fmt == LMTR_PCM_FLOAT32) return f32_to_q33(ld<float>(p, i));
    return q5_to_q33(ld<int32_t>(p, i));
}
// A Q1.31 result of the block step, as written to output in format fmt.
inline void emit(uint32_t fmt, void* out, size_t i, int32_t w) {
    if (fmt == LMTR_PCM_FLOAT32) st<float>(out, i, q1_to_f32(w));
    else st<int32_t>(out, i, fmt == LMTR_PCM_Q5P27 ? q1_to_q5(w) : w);
}
inline double emitted_value(uint32_t fmt, int32_t w) {
    return fmt == LMTR_PCM_FLOAT32 ? double(q1_to_f32(w)) : double(fmt == LMTR_PCM_Q5P27 ? q1_to_q5(w) : w);
}
inline double output_value(uint32_t fmt, const void* out, size_t i) {
    return fmt == LMTR_PCM_FLOAT32 ? double(ld<float>(out, i)) : double(ld<int32_t>(out, i));
}

// Re-encodes `samples` samples of the delay line image in place, from -> to.
inline void reencode(void* d, uint32_t from, uint32_t to, uint32_t samples) {
    if (from == to) return;
    std::vector<unsigned char> src(static_cast<unsigned char*>(d), static_cast<unsigned char*>(d) + 1024);
    for (uint32_t i = 0; i < samples; ++i) {
        if (to == LMTR_PCM_Q33P31) st<int64_t>(d, i, widen(from, src.data(), i));
        else if (from == LMTR_PCM_Q33P31) {
            const int64_t w = ld<int64_t>(src.data(), i);
            if (to == LMTR_PCM_FLOAT32) st<float>(d, i, q33_to_f32(w)); else st<int32_t>(d, i, q33_to_q5(w));
        } else if (to == LMTR_PCM_FLOAT32) st<float>(d, i, q5_to_f32(ld<int32_t>(src.data(), i)));
        else st<int32_t>(d, i, f32_to_q5(ld<float>(src.data(), i)));
    }
}

// A block held in format fmt as the bypass path emits it (Q33.31 narrowed).
inline std::vector<unsigned char> bypass_out(uint32_t fmt, const void* d, uint32_t samples) {
    std::vector<unsigned char> out(samples * 4);
    for (uint32_t i = 0; i < samples; ++i) {
        st<int32_t>(out.data(), i, fmt == LMTR_PCM_Q33P31 ? narrow(ld<int64_t>(d, i)) : ld<int32_t>(d, i));
    }
    return out;
}

// Fades a block of format fmt in place from gain g0 to g1 over 64 frames.
inline void fade(uint32_t fmt, void* d, bool stereo, int32_t g0, int32_t g1) {
    for (uint32_t i = 0; i < samples_per_block(stereo); ++i) {
        const int32_t g = ramp(g0, g1, int(stereo ? i / 2 : i));
        if (fmt == LMTR_PCM_Q33P31) st<int64_t>(d, i, fade_q33(ld<int64_t>(d, i), g));
        else if (fmt == LMTR_PCM_FLOAT32) st<float>(d, i, fade_f32(ld<float>(d, i), g));
        else st<int32_t>(d, i, fade_q5(ld<int32_t>(d, i), g));
    }
}

// Peak bounds of limited output, in Q1.31 (the word before the output conversion).
// A sample at or below the threshold either passes the exact unity path (only
// when every gain of its block and the next is unity) or is scaled by a gain of
// at most 32767; either way |w| <= kThreshold, and a negative sample, whose
// floor rounds away from zero, is covered too since its magnitude scaled by
// 32767/32768 and rounded up stays below it. So -1.0 (-2^31) never comes out.
constexpr int64_t kQuietBound = kThreshold;
// A sample of magnitude m above the threshold needs r = floor(32767 * q / 32768)
// & ~1, q = floor(2144993280 / (m >> 15)), and every gain applied to it is at
// most r (the gain in force never exceeds the held block's own requirement,
// and the target is the smaller of both blocks' requirements). Its output is
// at most ceil(m * r / 32768), largest for m = 2147581951 (d = 65538,
// q = 32729, r = 32728): 2144960392 on the negative side, 2144960391 on the
// positive side, 32888 below the target level 0x7FDA0000 = 2144993280.
// PeakBound.FollowsFromTheGainRule recomputes it over every divisor.
constexpr int64_t kHotBound = 2144960392;
// In float32 output 2147418110 rounds to 2147418112: at most 1 - 2^-15; in
// Q5.27 the floor of the shift by 4 makes the range [-0x07FFF000, 0x07FFEFFF].

}  // namespace ref

// Gains with which an emitted block was scaled, from cur_gain before and after
// its block step: every gain lies between the two, and a block that ends at
// unity passes its remaining samples through the exact path.
struct GainRange {
    int32_t lo, hi;
};
inline GainRange gain_range(int32_t before, int32_t after) {
    GainRange r{std::min(before, after), std::max(before, after)};
    if (after == kUnity) r.hi = kExact;
    if (before == kUnity && after == kUnity) r.lo = kExact;
    return r;
}

// One block emitted by the limiting path in format fmt: sample i must be the
// held Q33.31 sample held[i] scaled by the Q15 rule with a gain in g (which is
// tight: at equal ends it is exact), and, when `bounded`, within the peak bound.
// Unbounded is the block held in bypass that enters the limiter at unity:
// there a hot sample may leave beyond full scale and wrap, and is skipped.
inline ::testing::AssertionResult check_limited_block(uint32_t fmt, const int64_t* held, const void* out,
                                                      uint32_t samples, GainRange g, bool bounded) {
    for (uint32_t i = 0; i < samples; ++i) {
        const int64_t x = held[i], ya = (x * g.lo) >> 15, yb = (x * g.hi) >> 15;  // before narrowing
        if (!bounded && std::max(std::abs(ya), std::abs(yb)) > INT32_MAX) continue;  // may wrap: no range
        double a = ref::emitted_value(fmt, int32_t(ya)), b = ref::emitted_value(fmt, int32_t(yb));
        if (a > b) std::swap(a, b);
        const double y = ref::output_value(fmt, out, i);
        if (y < a || y > b) {
            return ::testing::AssertionFailure() << "sample " << i << ": held " << x << " came out " << y
                                                 << ", expected within [" << a << ", " << b << "] (gains " << g.lo
                                                 << ".." << g.hi << ")";
        }
        const int64_t bound = (x > ref::kThreshold || x < -ref::kThreshold) ? ref::kHotBound : ref::kQuietBound;
        const double top = ref::emitted_value(fmt, int32_t(bound)), bottom = ref::emitted_value(fmt, int32_t(-bound));
        if (bounded && (y > top || y < bottom)) {
            return ::testing::AssertionFailure() << "sample " << i << ": held " << x << " came out " << y
                                                 << ", beyond the peak bound " << bottom << ".." << top;
        }
    }
    return ::testing::AssertionSuccess();
}

// An instance in its own memory, with a scratch buffer.
struct Instance {
    alignas(8) unsigned char mem[LMTR_INSTANCE_SIZE];
    alignas(8) unsigned char scratch[LMTR_SCRATCH_SIZE];
    LimiterHandle* h = nullptr;
    bool stereo;

    Instance(uint32_t fmt, bool is_stereo, uint32_t state = LMTR_STATE_LIMITING) : stereo(is_stereo) {
        const LimiterConfig c{is_stereo ? 2u : 1u, 0, fmt, state};
        EXPECT_EQ(Limiter_Open(&h, mem, &c), LMTR_OK);
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    LimiterHandle rec() const { return tvl::read_record(mem); }
    template <typename F>
    void edit(F f) {
        LimiterHandle r = rec();
        f(r);
        tvl::write_record(mem, r);
    }
    unsigned char* delay() { return mem + tvl::kDelayLineOffset; }
    void command(uint32_t cmd, uint32_t value = 0) {
        const LimiterParam p{cmd, value};
        EXPECT_EQ(Limiter_SetParameters(h, &p), LMTR_OK);
    }
    // The block engine called directly, as Limiter_Process calls it.
    int32_t engine(const void* in, void* out, uint32_t frames) {
        return limiter_all_format(h, in, out, reinterpret_cast<int64_t*>(scratch),
                                  reinterpret_cast<int32_t*>(scratch + tvl::kOutBlockOffset), frames);
    }
};

// One Limiter_Process call made by a Driver.
struct Call {
    uint32_t pcm_format, state;  // requested when the call was made
    size_t first_frame;          // stream frame of the first frame offered
    uint32_t frames;             // frames processed
    size_t out_offset;           // where its output starts in Driver::output
    int32_t gain_before, gain_after, min_before, min_after;  // cur_gain and last_min_gain
};

// Plays a host. encode(fmt, first_frame, frames, dst) writes stream frames in
// format fmt; total_frames bounds the stream.
class Driver {
public:
    using Encoder = std::function<void(uint32_t, size_t, size_t, unsigned char*)>;

    Driver(uint32_t fmt, bool stereo, Encoder encode, size_t total_frames, uint32_t state = LMTR_STATE_LIMITING)
        : inst(fmt, stereo, state), encode_(std::move(encode)), total_(total_frames) {}

    // Offers the next `frames` frames (fewer at the end of the stream) with
    // output room for `room` frames (default `frames`); `offset` misaligns
    // both buffers.
    void period(size_t frames, bool in_place, size_t offset = 0, size_t room = SIZE_MAX) {
        room = std::min(room, frames);
        const LimiterHandle before = inst.rec();
        const uint32_t fmt = before.pcm_format;
        const size_t in_frame = samples_per_block(inst.stereo) / 64 * in_sample_bytes(fmt);
        const size_t out_frame = samples_per_block(inst.stereo) / 64 * 4;
        const size_t avail = std::min(frames, total_ - cursor);
        std::vector<unsigned char> in(offset + std::max(avail * in_frame, room * out_frame) + 1);
        std::vector<unsigned char> out(in_place ? 0 : offset + room * out_frame + 1);
        encode_(fmt, cursor, avail, in.data() + offset);
        unsigned char* dst = (in_place ? in.data() : out.data()) + offset;
        uint32_t in_size = uint32_t(avail * in_frame), out_size = uint32_t(room * out_frame);
        ASSERT_EQ(Limiter_Process(inst.h, inst.scratch, in.data() + offset, &in_size, dst, &out_size), LMTR_OK);
        const uint32_t processed = uint32_t(in_size / in_frame);
        ASSERT_EQ(in_size, processed * in_frame);
        ASSERT_EQ(out_size, processed * out_frame);
        ASSERT_EQ(processed, std::min(avail, room) / 64 * 64);
        const LimiterHandle after = inst.rec();
        calls.push_back({fmt, before.state, cursor, processed, output.size(), before.cur_gain, after.cur_gain,
                         before.last_min_gain, after.last_min_gain});
        output.insert(output.end(), dst, dst + out_size);
        cursor += processed;
    }

    // Runs a schedule such as "p100,b,p64,l,r,p300": pN offers N frames,
    // b asks for bypass, l for limiting, r resets.
    void run(const std::string& schedule, bool in_place) {
        size_t pos = 0;
        while (pos < schedule.size() && !::testing::Test::HasFatalFailure()) {
            size_t end = schedule.find(',', pos);
            if (end == std::string::npos) end = schedule.size();
            const std::string step = schedule.substr(pos, end - pos);
            if (step == "b") inst.command(LMTR_CMD_SET_BYPASS);
            else if (step == "l") inst.command(LMTR_CMD_SET_LIMITING);
            else if (step == "r") inst.command(LMTR_CMD_RESET);
            else if (step.size() > 1 && step[0] == 'p') period(std::stoul(step.substr(1)), in_place);
            else ADD_FAILURE() << "unknown schedule step '" << step << "'";
            pos = end + 1;
        }
    }

    Instance inst;
    std::vector<unsigned char> output;
    std::vector<Call> calls;
    size_t cursor = 0;  // next stream frame not yet consumed

private:
    Encoder encode_;
    size_t total_;
};

// What the engine must do with the calls and commands a Driver makes, block
// by block: in bypass and on a switch the exact bytes (the held block leaves,
// the new block is held; the switch into bypass fades both once), in limiting
// the gain trajectory of the block step and, per sample, the scaled-delayed
// check. After every call the record's gains and state and the delay line
// must match the model.
class Model {
public:
    Model(uint32_t fmt, bool stereo, uint32_t state)
        : stereo_(stereo), fmt_(fmt), state_(state), prev_state_(state), held_(1024, 0) {}

    void command(uint32_t cmd, uint32_t value = 0) {
        if (cmd == LMTR_CMD_SET_LIMITING || cmd == LMTR_CMD_SET_BYPASS) state_ = cmd;
        if (cmd == LMTR_CMD_SET_PCM_FORMAT) fmt_ = value;
        if (cmd == LMTR_CMD_RESET) {  // silence held, marked Q33.31, gains at unity
            std::fill(held_.begin(), held_.end(), 0);
            held_fmt_ = LMTR_PCM_Q33P31, cur_ = last_min_ = kUnity, bounded_ = true;
        }
    }

    // Checks call c, whose input the encoder gives again and whose output
    // starts at out, against the model, and advances the model.
    ::testing::AssertionResult call(const Call& c, const Driver::Encoder& encode, const unsigned char* out,
                                    const Instance& inst) {
        if (c.pcm_format != fmt_) return ::testing::AssertionFailure() << "format " << c.pcm_format << " in use";
        const uint32_t n = samples_per_block(stereo_), blocks = c.frames / 64;
        const size_t in_block = n * in_sample_bytes(fmt_);
        std::vector<unsigned char> in(blocks * in_block);
        encode(fmt_, c.first_frame, c.frames, in.data());
        auto fail = [&](uint32_t k) { return ::testing::AssertionFailure() << "block " << k << " of the call: "; };
        uint32_t k = 0;
        if (blocks > 0 && state_ == LMTR_STATE_LIMITING) {
            if (prev_state_ == LMTR_STATE_BYPASS) {  // back from bypass, no fade
                ref::reencode(held_.data(), held_fmt_, LMTR_PCM_Q33P31, n);
                held_fmt_ = LMTR_PCM_Q33P31, prev_state_ = LMTR_STATE_LIMITING, bounded_ = false;
            }
            for (; k < blocks; ++k) {
                std::vector<int64_t> fresh(n);
                for (uint32_t i = 0; i < n; ++i) fresh[i] = ref::widen(fmt_, in.data() + k * in_block, i);
                const int32_t bm = ref::block_min_gain(fresh.data(), n), target = std::min(bm, last_min_);
                const int32_t before = cur_;
                if (target > cur_ && !(cur_ >= kUnity)) cur_ = std::min(target, cur_ + 64 * 4);  // release
                else cur_ = target;  // unity, hold or attack end at the target
                const auto r = check_limited_block(fmt_, reinterpret_cast<const int64_t*>(held_.data()),
                                                   out + k * n * 4, n, gain_range(before, cur_), bounded_);
                if (!r) return fail(k) << r.message();
                last_min_ = bm, bounded_ = true;
                std::memcpy(held_.data(), fresh.data(), n * 8);
            }
        } else if (blocks > 0) {
            if (prev_state_ == LMTR_STATE_LIMITING) {  // the switch: two fades on the first block
                if (cur_ != kUnity || last_min_ != kUnity) {
                    ref::fade(LMTR_PCM_Q33P31, held_.data(), stereo_, cur_, last_min_);
                }
                ref::reencode(held_.data(), LMTR_PCM_Q33P31, fmt_, n);
                if (!same_bytes(out, ref::bypass_out(fmt_, held_.data(), n).data(), n * 4)) {
                    return fail(0) << same_bytes(out, ref::bypass_out(fmt_, held_.data(), n).data(), n * 4).message();
                }
                std::memcpy(held_.data(), in.data(), in_block);
                if (last_min_ != kUnity) ref::fade(fmt_, held_.data(), stereo_, last_min_, kUnity);
                held_fmt_ = fmt_, prev_state_ = LMTR_STATE_BYPASS, cur_ = last_min_ = kUnity, k = 1;
            }
            ref::reencode(held_.data(), held_fmt_, fmt_, n);
            held_fmt_ = fmt_;
            for (; k < blocks; ++k) {
                const auto want = ref::bypass_out(fmt_, held_.data(), n);
                const auto r = same_bytes(out + k * n * 4, want.data(), n * 4);
                if (!r) return fail(k) << r.message();
                std::memcpy(held_.data(), in.data() + k * in_block, in_block);
            }
        }
        const LimiterHandle rec = inst.rec();
        if (rec.cur_gain != cur_ || rec.last_min_gain != last_min_ || rec.prev_state != prev_state_ ||
            rec.prev_pcm_format != held_fmt_) {
            return ::testing::AssertionFailure() << "record: cur_gain " << rec.cur_gain << " last_min_gain "
                                                 << rec.last_min_gain << " prev_state " << rec.prev_state
                                                 << " prev_pcm_format " << rec.prev_pcm_format << ", model " << cur_
                                                 << " " << last_min_ << " " << prev_state_ << " " << held_fmt_;
        }
        const auto r = same_bytes(inst.mem + tvl::kDelayLineOffset, held_.data(), n * in_sample_bytes(held_fmt_));
        if (!r) return ::testing::AssertionFailure() << "delay line: " << r.message();
        return ::testing::AssertionSuccess();
    }

    uint32_t prev_state() const { return prev_state_; }

private:
    bool stereo_;
    uint32_t fmt_, state_, prev_state_, held_fmt_ = LMTR_PCM_Q33P31;
    int32_t cur_ = kUnity, last_min_ = kUnity;
    bool bounded_ = true;  // the held block was read while limiting (or is silence)
    std::vector<unsigned char> held_;  // image of the delay line
};

// A stream kept as nominal Q33.31 samples (magnitudes below 16.0), offered in
// whatever format the instance asks for: the word itself, the nearest float,
// or the Q5.27 word floor(v / 16).
inline void encode_nominal(uint32_t fmt, int64_t v, void* dst, size_t i) {
    if (fmt == LMTR_PCM_Q33P31) st<int64_t>(dst, i, v);
    else if (fmt == LMTR_PCM_FLOAT32) st<float>(dst, i, float(double(v) * 0x1p-31));
    else st<int32_t>(dst, i, int32_t(v >> 4));
}
inline Driver::Encoder nominal_encoder(const std::vector<int64_t>& v, bool stereo) {
    return [&v, stereo](uint32_t fmt, size_t first, size_t frames, unsigned char* dst) {
        const size_t ch = stereo ? 2 : 1;
        for (size_t i = 0; i < frames * ch; ++i) encode_nominal(fmt, v[first * ch + i], dst, i);
    };
}

// Seeded test signals, as nominal Q33.31 samples (full scale 2^31).
enum class Signal { Silence, QuietNoise, Sines, HotNoise, Square, Impulses, Steps };
constexpr Signal kAllSignals[] = {Signal::Silence, Signal::QuietNoise, Signal::Sines,   Signal::HotNoise,
                                  Signal::Square,  Signal::Impulses,   Signal::Steps};

inline std::vector<int64_t> make_signal(Signal kind, uint64_t seed, size_t frames, bool stereo) {
    std::mt19937_64 rng(seed);
    auto unit = [&] { return double(rng() >> 11) * 0x1p-53; };  // [0, 1)
    constexpr double fs = 2147483648.0, top = 15.99 * fs;          // 16.0 has no Q5.27 code
    const size_t ch = stereo ? 2 : 1;
    double level = 0, freq[3], amp[3];
    for (int k = 0; k < 3; ++k) freq[k] = 0.2 * unit(), amp[k] = fs * 3 * unit();
    const size_t half_period = 1 + size_t(300 * unit());
    size_t next_change = 0;
    std::vector<int64_t> v(frames * ch);
    for (size_t n = 0; n < frames; ++n) {
        if (n == next_change) {  // Steps and HotNoise change level now and then
            level = fs * std::pow(10.0, (kind == Signal::Steps ? 2 : 2.2) * unit() - 1);
            next_change += 100 + size_t(900 * unit());
        }
        for (size_t c = 0; c < ch; ++c) {
            double x = 0;
            switch (kind) {
                case Signal::Silence: break;
                case Signal::QuietNoise: x = (2 * unit() - 1) * 0.5 * fs; break;
                case Signal::Sines:
                    for (int k = 0; k < 3; ++k) x += amp[k] * std::sin(2 * std::numbers::pi * freq[k] * double(n) + double(c));
                    break;
                case Signal::HotNoise: x = (2 * unit() - 1) * level; break;
                case Signal::Square: x = (n / half_period % 2 ? -1 : 1) * level * 0.5; break;
                case Signal::Impulses: x = unit() < 0.01 ? (2 * unit() - 1) * top : 0; break;
                case Signal::Steps: x = c ? -level : level; break;
            }
            v[n * ch + c] = int64_t(std::clamp(x, -top, top));
        }
    }
    return v;
}

// An encoder over a stream held as bytes of one format.
inline Driver::Encoder bytes_encoder(const std::vector<unsigned char>& bytes, bool stereo) {
    return [&bytes, stereo](uint32_t fmt, size_t first, size_t frames, unsigned char* dst) {
        const size_t frame_bytes = (stereo ? 2 : 1) * in_sample_bytes(fmt);
        std::memcpy(dst, bytes.data() + first * frame_bytes, frames * frame_bytes);
    };
}

}  // namespace tvl_test
