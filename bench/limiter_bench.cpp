// Limiter_Process per format (Q33.31, float32, Q5.27), mono and stereo,
// periods of 64, 480 and 960 frames, on four signals:
//   silence  all zero
//   quiet    music-like, peaks at -6 dBFS: no sample needs limiting
//   hot      the same at +6 dBFS: most blocks are limited
//   worst    every sample above the threshold, so every sample divides
//
// The benchmark's own time is the vector build (the library as linked).
// Beside it, in the same process and in interleaved rounds, each case times
// memcpy of the same input bytes (the floor) and the scalar build of the same
// sources (loaded with dlopen), and reports as counters:
//   ns_per_sample     vector build, best round
//   x_memcpy          vector time / memcpy time
//   scalar_x_memcpy   scalar time / memcpy time
//   speedup           scalar time / vector time
//   max_call_us       the longest single vector call over 2000 calls
//   p999_call_us      the 99.9th percentile of those calls
// The ratios come from the best of the interleaved rounds, so that other load
// on the machine hurts all three alike.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <taviklimiter.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numbers>
#include <vector>

namespace {

using Process = int32_t (*)(LimiterHandle*, void*, const void*, uint32_t*, void*, uint32_t*);
using Open = int32_t (*)(LimiterHandle**, void*, const LimiterConfig*);

struct Library {
    Open open;
    Process process;
};

const Library& vector_library() {
    static const Library lib{Limiter_Open, Limiter_Process};
    return lib;
}

const Library& scalar_library() {
    static const Library lib = [] {
        void* h = dlopen(TVL_BENCH_SCALAR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        if (!h) {
            std::fprintf(stderr, "dlopen %s: %s\n", TVL_BENCH_SCALAR_LIBRARY, dlerror());
            std::exit(1);
        }
        Library l{reinterpret_cast<Open>(dlsym(h, "Limiter_Open")), reinterpret_cast<Process>(dlsym(h, "Limiter_Process"))};
        if (!l.open || !l.process) {
            std::fprintf(stderr, "dlsym: %s\n", dlerror());
            std::exit(1);
        }
        return l;
    }();
    return lib;
}

enum Signal { kSilence, kQuiet, kHot, kWorst };
const char* const kSignalNames[] = {"silence", "quiet", "hot", "worst"};
const char* const kFormatNames[] = {"q33p31", "float32", "q5p27"};

constexpr int kRate = 48000;
constexpr int kSignalFrames = kRate;  // one second, played in a loop

// Interleaved float signal in [-16, 16).
std::vector<float> make_signal(Signal s, int channels) {
    std::vector<float> x(size_t(kSignalFrames) * channels);
    uint32_t noise = 12345;
    for (int i = 0; i < kSignalFrames; ++i) {
        const double t = double(i) / kRate;
        for (int c = 0; c < channels; ++c) {
            noise = noise * 1664525u + 1013904223u;
            const double n = (double(noise >> 8) / double(1 << 24) - 0.5) * 0.1;
            // Three partials under a slow envelope: peaks at about 1.0.
            const double music = (0.5 * std::sin(2 * std::numbers::pi * 110.0 * t + c) +
                                  0.3 * std::sin(2 * std::numbers::pi * 440.0 * t) +
                                  0.15 * std::sin(2 * std::numbers::pi * 1750.0 * t + 0.5 * c) + n) *
                                 (0.75 + 0.25 * std::sin(2 * std::numbers::pi * 0.7 * t));
            double v = 0.0;
            switch (s) {
                case kSilence: v = 0.0; break;
                case kQuiet: v = 0.5 * music; break;
                case kHot: v = 2.0 * music; break;
                case kWorst: v = ((i + c) % 2 ? -1.0 : 1.0) * (1.5 + std::fabs(music)); break;
            }
            x[size_t(i) * channels + c] = float(v);
        }
    }
    return x;
}

// The signal in the input format's bytes.
std::vector<unsigned char> encode(const std::vector<float>& x, int format) {
    const size_t bytes = format == LMTR_PCM_Q33P31 ? 8 : 4;
    std::vector<unsigned char> out(x.size() * bytes);
    for (size_t i = 0; i < x.size(); ++i) {
        if (format == LMTR_PCM_Q33P31) {
            const int64_t v = std::llround(double(x[i]) * 0x1p31);
            std::memcpy(&out[i * 8], &v, 8);
        } else if (format == LMTR_PCM_FLOAT32) {
            std::memcpy(&out[i * 4], &x[i], 4);
        } else {
            const int32_t v = int32_t(std::lround(double(x[i]) * 0x1p27));
            std::memcpy(&out[i * 4], &v, 4);
        }
    }
    return out;
}

// A host: offers each period plus the partial block the last call left, and
// plays the signal in a loop.
class Host {
public:
    Host(const Library& lib, int format, int channels, int period, const std::vector<unsigned char>& input)
        : lib_(lib), channels_(channels), period_(period), input_(input),
          in_frame_bytes_((format == LMTR_PCM_Q33P31 ? 8 : 4) * channels), out_frame_bytes_(4 * channels),
          instance_(LMTR_INSTANCE_SIZE), scratch_(LMTR_SCRATCH_SIZE), output_(size_t(period + 64) * out_frame_bytes_) {
        LimiterConfig config{uint32_t(channels), 0, uint32_t(format), LMTR_STATE_LIMITING};
        if (lib_.open(&handle_, instance_.data(), &config) != LMTR_OK) std::abort();
    }

    void call() {
        const uint32_t frames = uint32_t(period_ + pending_);
        if (position_ + frames > uint32_t(kSignalFrames)) position_ = 0;
        uint32_t in_size = frames * in_frame_bytes_, out_size = frames * out_frame_bytes_;
        lib_.process(handle_, scratch_.data(), input_.data() + size_t(position_) * in_frame_bytes_, &in_size,
                     output_.data(), &out_size);
        const uint32_t done = in_size / in_frame_bytes_;
        position_ += done;
        pending_ = int(frames - done);
        benchmark::DoNotOptimize(output_.data());
    }

private:
    const Library& lib_;
    int channels_, period_;
    const std::vector<unsigned char>& input_;
    uint32_t in_frame_bytes_, out_frame_bytes_;
    std::vector<unsigned char> instance_, scratch_, output_;
    LimiterHandle* handle_ = nullptr;
    uint32_t position_ = 0;
    int pending_ = 0;
};

// memcpy of one period's input bytes, through a pointer the compiler cannot see through.
void* (*volatile copy_fn)(void*, const void*, size_t) = std::memcpy;

class Copier {
public:
    Copier(const std::vector<unsigned char>& input, size_t period_bytes)
        : input_(input), period_bytes_(period_bytes), output_(period_bytes) {}
    void call() {
        if (position_ + period_bytes_ > input_.size()) position_ = 0;
        copy_fn(output_.data(), input_.data() + position_, period_bytes_);
        position_ += period_bytes_;
        benchmark::DoNotOptimize(output_.data());
    }

private:
    const std::vector<unsigned char>& input_;
    size_t period_bytes_;
    std::vector<unsigned char> output_;
    size_t position_ = 0;
};

using Clock = std::chrono::steady_clock;

template <typename T>
double batch_ns(T& t, int calls) {
    const auto a = Clock::now();
    for (int i = 0; i < calls; ++i) t.call();
    return std::chrono::duration<double, std::nano>(Clock::now() - a).count() / calls;
}

void BM_LimiterProcess(benchmark::State& state) {
    const int format = int(state.range(0));
    const int channels = int(state.range(1));
    const int period = int(state.range(2));
    const Signal signal = Signal(state.range(3));
    const std::vector<unsigned char> input = encode(make_signal(signal, channels), format);
    const size_t samples = size_t(period) * channels;

    Host vec(vector_library(), format, channels, period, input);
    Host sca(scalar_library(), format, channels, period, input);
    Copier copy(input, samples * (format == LMTR_PCM_Q33P31 ? 8 : 4));

    // Interleaved rounds of about 100 us of vector work each; the best round of each.
    const int calls = std::max(4, int(200000 / samples));
    double best_vec = 1e300, best_sca = 1e300, best_copy = 1e300;
    for (int round = 0; round < 15; ++round) {
        best_copy = std::min(best_copy, batch_ns(copy, calls));
        best_vec = std::min(best_vec, batch_ns(vec, calls));
        best_sca = std::min(best_sca, batch_ns(sca, calls));
    }
    // Single calls, after the rounds above warmed everything up: the longest,
    // and the 99.9th percentile, which a preemption on a shared machine does
    // not move the way it moves the longest.
    std::vector<double> call_ns(2000);
    for (double& ns : call_ns) {
        const auto a = Clock::now();
        vec.call();
        ns = std::chrono::duration<double, std::nano>(Clock::now() - a).count();
    }
    std::sort(call_ns.begin(), call_ns.end());
    const double max_call = call_ns.back(), p999_call = call_ns[call_ns.size() * 999 / 1000];

    for (auto _ : state) vec.call();

    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(samples));
    state.counters["ns_per_sample"] = best_vec / double(samples);
    state.counters["x_memcpy"] = best_vec / best_copy;
    state.counters["scalar_x_memcpy"] = best_sca / best_copy;
    state.counters["speedup"] = best_sca / best_vec;
    state.counters["max_call_us"] = max_call / 1000.0;
    state.counters["p999_call_us"] = p999_call / 1000.0;
    state.SetLabel(std::string(kFormatNames[format]) + (channels == 2 ? " stereo " : " mono ") +
                   std::to_string(period) + " " + kSignalNames[signal]);
}

void all_cases(benchmark::internal::Benchmark* b) {
    for (int format : {LMTR_PCM_Q33P31, LMTR_PCM_FLOAT32, LMTR_PCM_Q5P27}) {
        for (int channels : {1, 2}) {
            for (int period : {64, 480, 960}) {
                for (int signal : {kSilence, kQuiet, kHot, kWorst}) b->Args({format, channels, period, signal});
            }
        }
    }
}

BENCHMARK(BM_LimiterProcess)->Apply(all_cases)->ArgNames({"format", "channels", "period", "signal"})->MinTime(0.05);

}  // namespace

BENCHMARK_MAIN();
