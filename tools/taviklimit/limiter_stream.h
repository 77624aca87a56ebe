// Feeds audio to a limiter instance period by period, as a host program does,
// and reads the gain the engine applies through a second instance.
//
// Each process() call is one Limiter_Process call. It offers the partial
// block left over from the previous call followed by the new frames; the
// library takes the whole 64-frame blocks and the rest waits for the next
// call.
//
// The gain is read through a gain probe (tools/common/gain_probe.h) switched
// and fed in step with the audio instance.
#pragma once

#include <taviklimiter.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "options.h"

namespace taviklimit {

class LimiterStream {
public:
    // Opens both instances in limiting state; throws std::runtime_error.
    LimiterStream(LibFormat format, int channels);

    // Requests bypass or limiting for the following calls.
    void set_bypass(bool on);
    bool bypass() const { return bypass_; }

    // Converts frames interleaved doubles (full scale 1.0) to the library
    // format, makes one Limiter_Process call, and appends what came out to
    // out (doubles) and the engine's Q15 gain per output frame to gains
    // (32767 for unity). Returns the frames produced.
    size_t process(const double* in, size_t frames, std::vector<double>& out,
                   std::vector<int32_t>& gains);

    uint64_t frames_consumed() const { return consumed_; }
    size_t leftover_frames() const { return pending_frames_; }
    // Input samples saturated on their way into the library format.
    uint64_t saturated_samples() const { return saturated_; }
    uint64_t calls() const { return calls_; }
    // Time spent inside Limiter_Process for the audio (the probe excluded).
    double engine_seconds() const { return engine_seconds_; }

private:
    void append_input(const double* in, size_t frames);
    void append_probe(size_t first_frame, size_t frames);
    void drop_consumed(size_t frames);

    LibFormat format_;
    int channels_;
    bool bypass_ = false;
    std::unique_ptr<uint64_t[]> audio_memory_;
    std::unique_ptr<uint64_t[]> probe_memory_;
    LimiterHandle* audio_ = nullptr;
    LimiterHandle* probe_ = nullptr;
    std::unique_ptr<uint64_t[]> scratch_;

    // Pending input, in the library format in use (one of the three).
    std::vector<float> in_f32_;
    std::vector<int32_t> in_q5p27_;
    std::vector<int64_t> in_q33p31_;
    std::vector<int64_t> in_probe_;  // stereo Q33.31
    size_t pending_frames_ = 0;

    std::vector<float> out_f32_;
    std::vector<int32_t> out_words_;
    std::vector<int32_t> out_probe_;
    std::vector<int64_t> widened_;

    uint64_t consumed_ = 0;
    uint64_t saturated_ = 0;
    uint64_t calls_ = 0;
    double engine_seconds_ = 0.0;
};

}  // namespace taviklimit
