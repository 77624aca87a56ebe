// taviklimiter_demo: the library used the way a caller uses it.
//
// Opens a stereo float32 limiter in memory of its own, feeds it two seconds
// of a 48 kHz test signal in 480-frame periods (keeping the partial block
// between calls, as callers must) and prints what came out: frames
// processed, input and output peaks, and the largest gain reduction.
// Uses only the public header.

#include <taviklimiter.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numbers>
#include <vector>

namespace {

constexpr int kChannels = 2;
constexpr int kSampleRate = 48000;
constexpr int kSeconds = 2;
constexpr int kPeriodFrames = 480;  // 10 ms: not a multiple of the 64-frame block
constexpr double kToneHz = 997.0;

// A sine at 1.5x full scale (+3.5 dBFS) with a quieter section at 0.25x
// (-12 dBFS) from 0.8 s to 1.4 s; the right channel runs a little lower.
std::vector<float> make_signal() {
    const int frames = kSampleRate * kSeconds;
    std::vector<float> samples(static_cast<size_t>(frames) * kChannels);
    for (int i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / kSampleRate;
        const double level = (t >= 0.8 && t < 1.4) ? 0.25 : 1.5;
        const double s = level * std::sin(2.0 * std::numbers::pi * kToneHz * t);
        samples[2 * i] = static_cast<float>(s);
        samples[2 * i + 1] = static_cast<float>(0.9 * s);
    }
    return samples;
}

double dbfs(double magnitude) {
    return magnitude > 0.0 ? 20.0 * std::log10(magnitude) : -INFINITY;
}

double peak(const std::vector<float>& samples) {
    double p = 0.0;
    for (float s : samples) p = std::max(p, static_cast<double>(std::fabs(s)));
    return p;
}

}  // namespace

int main() {
    uint32_t instance_size = 0;
    uint32_t scratch_size = 0;
    int32_t rc = Limiter_GetBufferSize(&instance_size, &scratch_size, LMTR_PCM_FLOAT32);
    if (rc != LMTR_OK) {
        std::fprintf(stderr, "Limiter_GetBufferSize: %d\n", rc);
        return 1;
    }
    std::vector<unsigned char> instance_mem(instance_size);
    std::vector<unsigned char> scratch(scratch_size);

    const LimiterConfig config = {2, 0, LMTR_PCM_FLOAT32, LMTR_STATE_LIMITING};
    LimiterHandle* handle = nullptr;
    rc = Limiter_Open(&handle, instance_mem.data(), &config);
    if (rc != LMTR_OK) {
        std::fprintf(stderr, "Limiter_Open: %d\n", rc);
        return 1;
    }

    const std::vector<float> input = make_signal();
    const size_t total_frames = input.size() / kChannels;
    std::vector<float> output;
    output.reserve(input.size());

    // Input not yet consumed: each period is appended to what the last call
    // left (less than one block), and the call takes whole blocks only.
    std::vector<float> pending;
    std::vector<float> out_period;
    for (size_t start = 0; start < total_frames; start += kPeriodFrames) {
        const size_t frames = std::min<size_t>(kPeriodFrames, total_frames - start);
        pending.insert(pending.end(), input.begin() + start * kChannels,
                       input.begin() + (start + frames) * kChannels);
        out_period.resize(pending.size());

        uint32_t in_size = static_cast<uint32_t>(pending.size() * sizeof(float));
        uint32_t out_size = static_cast<uint32_t>(out_period.size() * sizeof(float));
        rc = Limiter_Process(handle, scratch.data(), pending.data(), &in_size,
                             out_period.data(), &out_size);
        if (rc != LMTR_OK) {
            std::fprintf(stderr, "Limiter_Process: %d\n", rc);
            return 1;
        }
        output.insert(output.end(), out_period.begin(),
                      out_period.begin() + out_size / sizeof(float));
        pending.erase(pending.begin(), pending.begin() + in_size / sizeof(float));
    }

    // Output frame k carries input frame k - 64. Gain reduction is measured
    // on samples well above the noise floor, where the ratio is meaningful.
    const size_t delay = LMTR_BLOCK_FRAMES * kChannels;
    double largest_reduction_db = 0.0;
    for (size_t k = delay; k < output.size(); ++k) {
        const double in = std::fabs(input[k - delay]);
        if (in < 1e-3) continue;
        const double gain_db = dbfs(std::fabs(output[k]) / in);
        largest_reduction_db = std::max(largest_reduction_db, -gain_db);
    }

    std::printf("taviklimiter %x (%s)\n", Limiter_GetVersion(), Limiter_Get_Version());
    std::printf("frames processed:        %zu of %zu (latency %d frames, %zu bytes left over)\n",
                output.size() / kChannels, total_frames, static_cast<int>(LMTR_BLOCK_FRAMES),
                pending.size() * sizeof(float));
    std::printf("input peak:              %+.2f dBFS\n", dbfs(peak(input)));
    std::printf("output peak:             %+.2f dBFS\n", dbfs(peak(output)));
    std::printf("largest gain reduction:  %.2f dB\n", largest_reduction_db);
    return 0;
}
