// Takes the limiter's output stream, drops or keeps the 64-frame latency,
// converts it to the output encoding, writes it, and keeps the output-side
// figures of the values as stored: sample peak, loudness and true peak,
// saturated, non-finite and over-threshold samples, and the gain per
// 64-frame block.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "audio_io.h"
#include "loudness_meter.h"

namespace taviklimit {

class OutputSink {
public:
    OutputSink(SndWriter& writer, const OutputEncoding& encoding, int channels, int rate,
               bool keep_latency);

    // The input's length, known once it has been read to the end: the
    // output then ends with that frame's output (64 frames later with
    // --keep-latency).
    void set_input_frames(uint64_t frames);

    // frames output frames of the limiter (interleaved) and their gains.
    void consume(const double* samples, const int32_t* gains, size_t frames);

    uint64_t frames_written() const { return written_; }
    double peak() const { return peak_; }  // finite values only
    const LoudnessMeter& meter() const { return meter_; }
    uint64_t saturated_samples() const { return saturated_; }
    uint64_t above_full_scale() const { return above_full_scale_; }
    // Above the threshold as stored (1 - 2^-15 in float, 16 and 24-bit PCM).
    uint64_t above_threshold() const { return above_threshold_; }
    uint64_t nonfinite_samples() const { return nonfinite_; }
    // The lowest Q15 gain of each 64-frame block of the output (the last
    // block may be partial).
    const std::vector<int32_t>& block_gains() const { return block_gains_; }

private:
    void measure(size_t n);

    SndWriter& writer_;
    OutputEncoding encoding_;
    int channels_;
    uint64_t skip_;                    // leading stream frames not written
    std::optional<uint64_t> end_;      // stream frame where the output ends
    uint64_t position_ = 0;            // stream frames seen
    uint64_t written_ = 0;
    double peak_ = 0.0;
    uint64_t saturated_ = 0;
    uint64_t above_full_scale_ = 0;
    uint64_t above_threshold_ = 0;
    uint64_t nonfinite_ = 0;
    LoudnessMeter meter_;
    std::vector<int32_t> block_gains_;
    std::vector<int32_t> words_;
    std::vector<double> stored_;
};

}  // namespace taviklimit
