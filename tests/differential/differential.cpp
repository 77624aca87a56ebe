// Stream-level differential: the same streams through two builds of libtaviklimiter_vendor.so, a
// candidate and a reference (scalar kernels only), each loaded with dlopen(RTLD_LOCAL) and driven
// through the public C API alone. After every call the results, the whole buffer and the whole
// instance memory must be the same bytes; the instances take turns at one address, so even the
// record's pointer to its delay line must agree.
//   taviklimiter_differential CANDIDATE.so REFERENCE.so [KEY=VALUE]...
//     music=RAW  stereo float32 samples (raw, native order), run in each format
//     float=N    N float32 streams with NaNs, N more with every special value (20000)
//     fixed=N    N Q5.27 and Q33.31 streams with extremes and switches (2000)
//     seconds=S  start no stream after S seconds (600)
//     seed=N     the run's seed (else $TAVIKLIMITER_DIFFERENTIAL_SEED, else a fresh one)
//     from=N     start at stream N (each stream is seeded from the seed and its number)
#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "taviklimiter.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Rng = std::mt19937_64;
using Result = std::array<uint64_t, 3>;    // what a call returned
constexpr int64_t kThreshold = 2147418110;  // the no-reduction threshold, Q1.31

[[noreturn]] void fail(const std::string& s) { std::fprintf(stderr, "differential: %s\n", s.c_str()); std::exit(2); }

void* find(void* library, const char* name) {
    if (void* symbol = library ? dlsym(library, name) : nullptr) return symbol;
    fail(library ? std::string("no ") + name : dlerror());
}

struct Library {
    explicit Library(const char* path) : so(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {}
    void* so;
    decltype(&Limiter_GetBufferSize) sizes = reinterpret_cast<decltype(sizes)>(find(so, "Limiter_GetBufferSize"));
    decltype(&Limiter_Open) open = reinterpret_cast<decltype(open)>(find(so, "Limiter_Open"));
    decltype(&Limiter_SetParameters) set = reinterpret_cast<decltype(set)>(find(so, "Limiter_SetParameters"));
    decltype(&Limiter_Process) process = reinterpret_cast<decltype(process)>(find(so, "Limiter_Process"));
};

size_t width(uint32_t format) { return format == LMTR_PCM_Q33P31 ? 8 : 4; }

// Stores sample i of a format: the word's low bytes, all 8 or the low 32 bits (little-endian).
static_assert(std::endian::native == std::endian::little);
void store(Bytes& bytes, uint32_t format, size_t i, uint64_t word) {
    std::memcpy(&bytes[i * width(format)], &word, width(format));
}

// The word of x (full scale 1.0, finite, below 16 in magnitude) in a format.
uint64_t word(uint32_t format, double x) {
    if (format == LMTR_PCM_FLOAT32) return std::bit_cast<uint32_t>(static_cast<float>(x));
    if (format == LMTR_PCM_Q5P27) return static_cast<uint32_t>(static_cast<int32_t>(std::lrint(x * 0x1p27)));
    return static_cast<uint64_t>(std::llrint(x * 0x1p31));
}

// A format's special words: float32 NaNs (quiet and signalling, both signs), and unless
// nan_only infinities, subnormals, +-0 and values at and beside +-1.0, +-16.0 and the
// threshold; Q5.27 and Q33.31 words at the extremes, +-2^46 and beside the threshold.
std::vector<uint64_t> specials(uint32_t format, bool nan_only) {
    std::vector<uint64_t> out;
    if (format == LMTR_PCM_FLOAT32) {
        out = {0x7FC00000, 0xFFC00000, 0x7F800001, 0x7FBFFFFF, 0xFFFFFFFF};
        if (nan_only) return out;
        for (float c : {1.0f, 16.0f, static_cast<float>(kThreshold * 0x1p-31)})
            for (float v : {std::nextafter(c, 0.0f), c, std::nextafter(c, 32.0f)})
                out.insert(out.end(), {std::bit_cast<uint32_t>(v), std::bit_cast<uint32_t>(-v)});
        out.insert(out.end(), {0x7F800000, 0xFF800000, 0x00000001, 0x807FFFFF, 0, 0x80000000});
    } else {
        const bool q5p27 = format == LMTR_PCM_Q5P27;
        out = q5p27 ? std::vector<uint64_t>{uint32_t(INT32_MIN), INT32_MAX}
                    : std::vector<uint64_t>{uint64_t(INT64_MIN), INT64_MAX, uint64_t(INT32_MIN), INT32_MAX};
        for (int64_t c : q5p27 ? std::vector<int64_t>{1 << 27, kThreshold >> 4}
                               : std::vector<int64_t>{int64_t(1) << 31, kThreshold, int64_t(1) << 46})
            for (int64_t v : {c - 1, c, c + 1}) out.insert(out.end(), {uint64_t(v), uint64_t(-v)});
    }
    return out;
}

// n samples of a format: music[i] where given, else uniform over +-2.0 of full scale (without
// nan_only, over +-2.0, 1.0 or 0.25, drawn per 64 samples) with `count` special words among them.
Bytes samples(Rng& rng, uint32_t format, size_t n, int count, bool nan_only, const float* music) {
    Bytes out(n * width(format));
    double level = 2.0;
    for (size_t i = 0; i < n; ++i) {
        if (i % 64 == 0 && !nan_only) level = std::array{2.0, 1.0, 0.25}[rng() % 3];
        store(out, format, i, word(format, music ? music[i] : std::uniform_real_distribution(-level, level)(rng)));
    }
    const std::vector<uint64_t> table = specials(format, nan_only);
    for (int k = 0; k < count; ++k) store(out, format, rng() % n, table[rng() % table.size()]);
    return out;
}

struct Differential {
    Differential(const char* candidate, const char* reference) : library{Library(candidate), Library(reference)} {}
    Library library[2];
    uint64_t seed = 0;
    long stream = 0, calls = 0;  // calls in this stream
    std::string what;
    Bytes image[2], work, scratch;  // the two instances, the memory they take turns in

    // Runs run_one on each library in turn, with its instance in `work` and a copy of `buffer`:
    // the buffer, the instance and what run_one returns (and `both` passes on) must be the same bytes.
    template <class Call> Result both(const Bytes& buffer, Call run_one) {
        Bytes seen[2];
        Result result{};
        for (int k : {0, 1}) {
            std::copy(image[k].begin(), image[k].end(), work.begin());
            seen[k] = buffer;
            result = run_one(library[k], work.data(), seen[k].data());
            image[k] = work;
            seen[k].insert(seen[k].end(), work.begin(), work.end());
            const auto* bytes = reinterpret_cast<const unsigned char*>(result.data());
            seen[k].insert(seen[k].end(), bytes, bytes + sizeof result);
        }
        const size_t n = buffer.size(), m = n + work.size(), call = calls++;
        if (seen[0] == seen[1]) return result;
        const size_t at = std::mismatch(seen[0].begin(), seen[0].end(), seen[1].begin()).first - seen[0].begin();
        std::printf("differential: seed %llu, stream %ld (%s), call %zu: %s byte %zu differs: candidate 0x%02x, "
                    "reference 0x%02x\n", static_cast<unsigned long long>(seed), stream, what.c_str(), call,
                    at < n ? "buffer" : at < m ? "instance" : "result", at < n ? at : at < m ? at - n : at - m,
                    seen[0][at], seen[1][at]);
        std::exit(1);
    }

    // A stream of `frames` frames from make(format, samples) into a fresh instance, offered in
    // periods of 64 to max_period frames at a random alignment, the output in place or apart;
    // what a call does not take is offered again. With `switches`, one call in eight follows a
    // random request (bypass, limiting, a format, a reset).
    template <class Make>
    void run(Rng& rng, uint32_t format, bool stereo, size_t frames, size_t max_period, bool switches, Make make) {
        uint32_t size[2] = {};
        library[0].sizes(&size[0], &size[1], format);
        work.resize(size[0]);
        scratch.resize(size[1]);
        image[0] = image[1] = Bytes(work.size(), static_cast<unsigned char>(rng()));  // what the caller left
        const LimiterConfig config{stereo ? 2u : 1u, static_cast<uint32_t>(rng()), format, LMTR_STATE_LIMITING};
        both({}, [&](const Library& l, unsigned char* memory, unsigned char*) {  // the sizes, then Open
            LimiterHandle* handle = nullptr;
            const int32_t sizes = l.sizes(&size[0], &size[1], format), rc = l.open(&handle, memory, &config);
            return Result{uint64_t(size[0]) << 32 | size[1], uint64_t(uint32_t(sizes)) << 32 | uint32_t(rc),
                          reinterpret_cast<unsigned char*>(handle) == memory};
        });
        const size_t channels = stereo ? 2 : 1;
        Bytes data = make(format, frames * channels);
        for (size_t at = 0; frames - at >= 64;) {
            if (switches && rng() % 8 == 0) {
                const LimiterParam param{static_cast<uint32_t>(rng() % 4), static_cast<uint32_t>(rng() % 4)};
                both({}, [&](const Library& l, unsigned char* memory, unsigned char*) {
                    return Result{uint32_t(l.set(reinterpret_cast<LimiterHandle*>(memory), &param)), 0, 0};
                });
                if (param.command == LMTR_CMD_SET_PCM_FORMAT && param.value < 3 && param.value != format)
                    format = param.value, data = make(format, (frames -= at) * channels), at = 0;  // the rest, anew
            }
            const size_t in_frame = channels * width(format), out_frame = 4 * channels, align = rng() % 8;
            const size_t period = std::min(frames - at, 64 + rng() % (max_period - 63)), in_bytes = period * in_frame;
            const size_t apart = rng() & 1 ? in_bytes : 0;  // where the output starts: in place or after the input
            Bytes buffer(align + in_bytes + (apart ? period * out_frame : 0), static_cast<unsigned char>(rng()));
            std::copy_n(&data[at * in_frame], in_bytes, buffer.begin() + align);
            const Result taken = both(buffer, [&](const Library& l, unsigned char* memory, unsigned char* b) {
                uint32_t in_size = in_bytes, out_size = period * out_frame;
                const int32_t rc = l.process(reinterpret_cast<LimiterHandle*>(memory), scratch.data(), b + align,
                                             &in_size, b + align + apart, &out_size);
                return Result{uint32_t(rc), in_size, out_size};
            });
            if (taken[1] == 0) fail("a call took no frames");
            at += taken[1] / in_frame;
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) fail("usage: taviklimiter_differential CANDIDATE.so REFERENCE.so [KEY=VALUE]...");
    const char* seed = std::getenv("TAVIKLIMITER_DIFFERENTIAL_SEED");
    std::map<std::string, std::string> option{{"music", ""}, {"float", "20000"}, {"fixed", "2000"}, {"seconds", "600"},
        {"from", "0"}, {"seed", seed ? seed : std::to_string(std::random_device{}())}};
    for (const std::string& arg : std::vector<std::string>(argv + 3, argv + argc)) {
        if (!option.contains(arg.substr(0, arg.find('=')))) fail("not an option: " + arg);
        option[arg.substr(0, arg.find('='))] = arg.substr(arg.find('=') + 1);
    }
    Differential d(argv[1], argv[2]);
    d.seed = std::stoull(option["seed"]);
    std::fprintf(stderr, "differential: seed=%llu\n", static_cast<unsigned long long>(d.seed));  // unbuffered

    std::vector<float> music;  // driven +12 dB by its decoder, peaks below 16
    std::ifstream file(option["music"], std::ios::binary);
    for (float two[2]; file.read(reinterpret_cast<char*>(two), sizeof two);) music.insert(music.end(), two, two + 2);
    if (!option["music"].empty() && music.empty()) fail("no music in " + option["music"]);
    const long music_streams = music.empty() ? 0 : 3, floats = std::stol(option["float"]);
    const long total = music_streams + 2 * floats + std::stol(option["fixed"]), cap = std::stol(option["seconds"]);
    const auto start = std::chrono::steady_clock::now();
    auto seconds = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
    long ran = 0, calls = 0;
    for (d.stream = std::stol(option["from"]); d.stream < total && seconds() < cap; ++d.stream, ++ran) {
        Rng rng(d.seed ^ (uint64_t(d.stream) * 0x9E3779B97F4A7C15u));
        const long n = d.stream - music_streams;  // music, float32 with NaNs, with special values, fixed point
        const bool is_music = n < 0, nan_only = n < floats, stereo = is_music || rng() & 1;
        const uint32_t fixed = rng() & 1 ? LMTR_PCM_Q5P27 : LMTR_PCM_Q33P31;
        const uint32_t format = is_music ? uint32_t(d.stream) : n < 2 * floats ? uint32_t(LMTR_PCM_FLOAT32) : fixed;
        const int count = is_music ? 0 : nan_only ? int(1 + rng() % 5) : int(1 + rng() % 24);
        d.what = std::string(std::array{"Q33.31", "float32", "Q5.27"}[format]) + (stereo ? " stereo" : " mono") +
                 (is_music ? ", music" : nan_only ? ", NaNs" : ", special values");
        d.run(rng, format, stereo, is_music ? music.size() / 2 : 1024, is_music ? 1024 : 512, n >= 2 * floats,
              [&](uint32_t f, size_t m) { return samples(rng, f, m, count, nan_only, is_music ? music.data() : 0); });
        calls += std::exchange(d.calls, 0);
    }
    std::printf("differential: %ld of %ld streams, %ld calls, the same bytes in %.1f s (%.0f streams/s)\n", ran,
                total, calls, seconds(), double(ran) / seconds());
}
