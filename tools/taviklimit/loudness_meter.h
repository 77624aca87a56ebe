// Loudness and true peak of a stream (EBU R128 through libebur128): the
// integrated loudness, the loudness range and the true peak, measured on
// the frames as they pass.
#pragma once

#include <ebur128.h>

#include <cstddef>
#include <vector>

namespace taviklimit {

struct Loudness {
    double integrated_lufs = 0.0;  // -inf for silence or under 0.4 s of audio
    double range_lu = 0.0;
    double true_peak = 0.0;        // linear, full scale 1.0 (dBTP once in dB)
};

class LoudnessMeter {
public:
    // Throws std::runtime_error when libebur128 refuses the layout.
    LoudnessMeter(int channels, int rate);
    ~LoudnessMeter();
    LoudnessMeter(const LoudnessMeter&) = delete;
    LoudnessMeter& operator=(const LoudnessMeter&) = delete;

    // Adds count interleaved frames. A NaN or infinite sample counts as 0,
    // so that one damaged sample cannot turn every figure into NaN.
    void add(const double* frames, size_t count);

    Loudness result() const;
    // Time spent measuring so far.
    double seconds() const { return seconds_; }

private:
    ebur128_state* state_;
    int channels_;
    std::vector<double> finite_;
    double seconds_ = 0.0;
};

}  // namespace taviklimit
