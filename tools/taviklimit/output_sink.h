// Takes the limiter's output stream, drops or keeps the 64-frame latency,
// converts it to the output encoding, writes it, and keeps the output-side
// figures: sample peak, saturated samples and the gain per 64-frame block.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "audio_io.h"

namespace taviklimit {

class OutputSink {
public:
    OutputSink(SndWriter& writer, const OutputEncoding& encoding, int channels, bool keep_latency);

    // The input's length, known once it has been read to the end: the
    // output then ends with that frame's output (64 frames later with
    // --keep-latency).
    void set_input_frames(uint64_t frames);

    // frames output frames of the limiter (interleaved) and their gains.
    void consume(const double* samples, const int32_t* gains, size_t frames);

    uint64_t frames_written() const { return written_; }
    double peak() const { return peak_; }  // of the values as stored
    uint64_t saturated_samples() const { return saturated_; }
    uint64_t above_full_scale() const { return above_full_scale_; }
    // The lowest Q15 gain of each 64-frame block of the output (the last
    // block may be partial).
    const std::vector<int32_t>& block_gains() const { return block_gains_; }

private:
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
    std::vector<int32_t> block_gains_;
    std::vector<int32_t> words_;
};

}  // namespace taviklimit
