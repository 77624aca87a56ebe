// Limiter_Process streaming 30 s of music as a host does: stereo, one call
// per period of 960 or 64 frames, each period read from the next place in a
// 30-second input buffer and written to the next place in a 30-second output
// buffer, so that every call meets memory it has not touched for a whole
// pass (limiter_bench.cpp loops over one second, which stays in cache).
//
// The music is the first 30 s of frozen-bubble-data's
// frozen-mainzik-1p.ogg (stereo 44.1 kHz, decoded by libsndfile, not
// resampled), on two signals:
//   quiet  scaled so that its peak is at -6 dBFS: no sample needs limiting
//   hot    driven +12 dB, as scripts/main.sh drives it: most blocks are limited
// in each format: float32; Q33.31 in (Q1.31 out) and Q5.27, the float
// samples times 2^31 or 2^27 rounded to nearest, clamped (the music stays far
// inside both words).
//
// Beside it, in the same process and in interleaved rounds (one pass of
// memcpy, one of the library), memcpy streams the same input bytes into the
// same output buffer, one period at a time in the same order; for Q33.31 it
// moves the 8-byte input words, twice the library's output bytes.
//
// The buffers of one pass (21 MB for float32 stereo) fit in a large last
// level cache (32 MiB here), so each case runs twice:
//   evicted  before each pass a 128 MiB buffer is read, so the pass reads
//            its input from memory
//   left     the caches as the other pass left them: much of the input
//            comes from the last level cache
//
// The benchmark's time is the library's pass over the 30 s; the counters come
// from the best round of each, but one:
//   ns_per_sample     the library, best pass
//   x_memcpy          the library's best pass / memcpy's best pass
//   x_memcpy_median   the median over the rounds of the library's pass /
//                     the memcpy pass just before it: passes that met the
//                     same state of the machine, so a lucky memcpy pass
//                     (memory bandwidth shared with other guests moves
//                     between rounds) does not set the ratio alone
//   memcpy_GBps       input bytes memcpy moves per ns in its best pass
// Without the music file or without libsndfile every case says so and skips.
#include <benchmark/benchmark.h>
#include <taviklimiter.h>

#ifdef TVL_BENCH_HAVE_SNDFILE
#include <sndfile.h>
#endif

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr const char* kMusicPath = "/usr/share/games/frozen-bubble/snd/frozen-mainzik-1p.ogg";
constexpr int kSeconds = 30;
constexpr int kChannels = 2;
constexpr int kRounds = 40;  // even

enum Signal { kQuiet, kHot };
const char* const kSignalNames[] = {"quiet", "hot"};
enum Caches { kEvicted, kLeft };
const char* const kCachesNames[] = {"evicted", "left"};
const char* const kFormatNames[] = {"q33p31", "float32", "q5p27"};

struct Music {
    std::vector<float> samples;  // interleaved stereo, as decoded
    std::string error;           // why there is no music
};

Music load_music() {
#ifndef TVL_BENCH_HAVE_SNDFILE
    return {{}, "built without libsndfile (pkg-config sndfile): no music to stream"};
#else
    SF_INFO info{};
    SNDFILE* file = sf_open(kMusicPath, SFM_READ, &info);
    if (!file) {
        return {{}, std::string("cannot read ") + kMusicPath + " (frozen-bubble-data): " + sf_strerror(nullptr)};
    }
    Music m;
    if (info.channels != kChannels) {
        m.error = std::string(kMusicPath) + " is not stereo";
    } else {
        const sf_count_t frames = sf_count_t(kSeconds) * info.samplerate;
        m.samples.resize(size_t(frames) * kChannels);
        if (sf_readf_float(file, m.samples.data(), frames) != frames) {
            m.error = std::string(kMusicPath) + " holds less than 30 s";
        }
    }
    sf_close(file);
    return m;
#endif
}

const Music& music() {
    static const Music m = load_music();
    return m;
}

// The music as the signal asks, in the input format's bytes.
std::vector<unsigned char> encode(const std::vector<float>& music, Signal signal, int format) {
    float peak = 0.0f;
    for (float x : music) peak = std::max(peak, std::fabs(x));
    const double scale = signal == kQuiet ? std::pow(10.0, -6.0 / 20.0) / peak : std::pow(10.0, 12.0 / 20.0);
    const size_t bytes = format == LMTR_PCM_Q33P31 ? 8 : 4;
    std::vector<unsigned char> out(music.size() * bytes);
    for (size_t i = 0; i < music.size(); ++i) {
        const double v = double(music[i]) * scale;
        if (format == LMTR_PCM_Q33P31) {
            const int64_t w = std::llround(std::clamp(v * 0x1p31, -0x1p62, 0x1p62));
            std::memcpy(&out[i * 8], &w, 8);
        } else if (format == LMTR_PCM_FLOAT32) {
            const float f = float(v);
            std::memcpy(&out[i * 4], &f, 4);
        } else {
            const int32_t w = int32_t(std::llround(std::clamp(v * 0x1p27, -0x1p31, 0x1p31 - 1)));
            std::memcpy(&out[i * 4], &w, 4);
        }
    }
    return out;
}

// Reads a buffer four times the size of this machine's last level cache, one
// load per cache line, so that nothing of the streamed buffers stays cached.
// Reads only: the lines it leaves are clean, so the pass that follows writes
// back none of them.
void evict_caches() {
    static const std::vector<unsigned char> walk(size_t(128) << 20, 1);
    unsigned sum = 0;
    for (size_t i = 0; i < walk.size(); i += 64) sum += walk[i];
    benchmark::DoNotOptimize(sum);
}

using Clock = std::chrono::steady_clock;

double elapsed_ns(Clock::time_point since) {
    return std::chrono::duration<double, std::nano>(Clock::now() - since).count();
}

// memcpy through a pointer the compiler cannot see through.
void* (*volatile copy_fn)(void*, const void*, size_t) = std::memcpy;

// One pass of memcpy: period after period of input bytes, into the next place
// of the output buffer.
double copy_pass(const std::vector<unsigned char>& input, std::vector<unsigned char>& output, size_t period_bytes,
                 size_t periods) {
    const auto a = Clock::now();
    for (size_t p = 0; p < periods; ++p) {
        copy_fn(output.data() + p * period_bytes, input.data() + p * period_bytes, period_bytes);
    }
    const double ns = elapsed_ns(a);
    benchmark::DoNotOptimize(output.data());
    return ns;
}

// One pass of the library from a freshly opened instance, as a host calls it:
// one Limiter_Process per period, from the next place of the input into the
// next place of the output.
double limiter_pass(const std::vector<unsigned char>& input, std::vector<unsigned char>& output, int format,
                    uint32_t period, size_t periods) {
    alignas(64) static unsigned char instance[LMTR_INSTANCE_SIZE];
    alignas(64) static unsigned char scratch[LMTR_SCRATCH_SIZE];
    const LimiterConfig config{kChannels, 0, uint32_t(format), LMTR_STATE_LIMITING};
    LimiterHandle* handle = nullptr;
    if (Limiter_Open(&handle, instance, &config) != LMTR_OK) std::abort();
    const uint32_t in_bytes = period * kChannels * (format == LMTR_PCM_Q33P31 ? 8 : 4);
    const uint32_t out_bytes = period * kChannels * 4;
    int32_t failed = 0;
    const auto a = Clock::now();
    for (size_t p = 0; p < periods; ++p) {
        uint32_t in_size = in_bytes, out_size = out_bytes;
        failed |= Limiter_Process(handle, scratch, input.data() + p * in_bytes, &in_size,
                                  output.data() + p * out_bytes, &out_size);
    }
    const double ns = elapsed_ns(a);
    if (failed != LMTR_OK) std::abort();
    benchmark::DoNotOptimize(output.data());
    return ns;
}

void BM_Streaming(benchmark::State& state) {
    const int format = int(state.range(0));
    const uint32_t period = uint32_t(state.range(1));
    const Signal signal = Signal(state.range(2));
    const Caches caches = Caches(state.range(3));
    state.SetLabel(std::string(kFormatNames[format]) + " stereo " + std::to_string(period) + " " +
                   kSignalNames[signal] + " " + kCachesNames[caches]);
    if (!music().error.empty()) {
        state.SkipWithError(music().error.c_str());
        return;
    }
    const std::vector<unsigned char> input = encode(music().samples, signal, format);
    // Sized for memcpy's walk (the larger); the library's Q1.31 output fills half of it for Q33.31.
    std::vector<unsigned char> output(input.size());  // zeroed: every page touched before timing
    const size_t frames = music().samples.size() / kChannels;
    const size_t periods = frames / period;
    const size_t samples = periods * period * kChannels;
    const size_t in_period_bytes = input.size() / frames * period;

    double best_copy = 1e300, best_lib = 1e300;
    std::vector<double> round_ratios;
    for (auto _ : state) {
        if (caches == kEvicted) evict_caches();
        const double copy = copy_pass(input, output, in_period_bytes, periods);
        if (caches == kEvicted) evict_caches();
        const double lib = limiter_pass(input, output, format, period, periods);
        best_copy = std::min(best_copy, copy);
        best_lib = std::min(best_lib, lib);
        round_ratios.push_back(lib / copy);
        state.SetIterationTime(lib * 1e-9);
    }
    std::sort(round_ratios.begin(), round_ratios.end());

    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(samples));
    state.counters["ns_per_sample"] = best_lib / double(samples);
    state.counters["x_memcpy"] = best_lib / best_copy;
    const size_t middle = round_ratios.size() / 2;  // kRounds is even: the mean of the middle two
    state.counters["x_memcpy_median"] = (round_ratios[middle - 1] + round_ratios[middle]) / 2;
    state.counters["memcpy_GBps"] = double(in_period_bytes * periods) / best_copy;
}

void all_cases(benchmark::internal::Benchmark* b) {
    for (int period : {960, 64}) {
        for (int format : {LMTR_PCM_FLOAT32, LMTR_PCM_Q33P31, LMTR_PCM_Q5P27}) {
            for (int signal : {kQuiet, kHot}) {
                for (int caches : {kEvicted, kLeft}) b->Args({format, period, signal, caches});
            }
        }
    }
}

BENCHMARK(BM_Streaming)
    ->Apply(all_cases)
    ->ArgNames({"format", "period", "signal", "caches"})
    ->Iterations(kRounds)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
