// A small LV2 host: loads the plugin module with dlopen and checks it against the
// library itself, for every kind of block size a host may use.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "taviklimiter.h"

// Counts allocations made while a plugin call runs (the module's malloc and
// operator new resolve to these first).
namespace {
std::atomic<bool> g_counting{false};
std::atomic<int> g_allocations{0};
}  // namespace
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void* malloc(size_t n) {
    if (g_counting) ++g_allocations;
    return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t m) {
    if (g_counting) ++g_allocations;
    return __libc_calloc(n, m);
}
extern "C" void* realloc(void* p, size_t n) {
    if (g_counting) ++g_allocations;
    return __libc_realloc(p, n);
}

namespace {

constexpr uint32_t kDrive = 0, kBypass = 1, kMeter = 2, kLatency = 3, kAudio = 4;

const LV2_Descriptor* descriptor(uint32_t channels) {
    static void* module = [] {
        const char* path = std::getenv("TAVIKLIMITER_LV2_MODULE");
        return path ? dlopen(path, RTLD_NOW | RTLD_LOCAL) : nullptr;
    }();
    if (!module) return nullptr;
    auto fn = reinterpret_cast<LV2_Descriptor_Function>(dlsym(module, "lv2_descriptor"));
    return fn ? fn(channels == 2 ? 1 : 0) : nullptr;
}

// URID map and the buf-size promises a host may make.
struct Host {
    std::vector<std::string> uris;
    LV2_URID_Map map{this, [](LV2_URID_Map_Handle h, const char* uri) -> LV2_URID {
                         auto& v = static_cast<Host*>(h)->uris;
                         for (size_t i = 0; i < v.size(); ++i)
                             if (v[i] == uri) return static_cast<LV2_URID>(i + 1);
                         v.emplace_back(uri);
                         return static_cast<LV2_URID>(v.size());
                     }};
    int32_t min_len = 0, max_len = 0;
    std::vector<LV2_Options_Option> options;
    LV2_Feature map_f{LV2_URID__map, &map}, opt_f{LV2_OPTIONS__options, nullptr};
    LV2_Feature pow2_f{LV2_BUF_SIZE__powerOf2BlockLength, nullptr};
    LV2_Feature fixed_f{LV2_BUF_SIZE__fixedBlockLength, nullptr};
    std::vector<const LV2_Feature*> features;

    // promise: "" none, "pow2" or "fixed"; min/max block lengths as options.
    Host(const std::string& promise, int32_t min_length, int32_t max_length)
        : min_len(min_length), max_len(max_length) {
        const LV2_URID int_type = map.map(this, LV2_ATOM__Int);
        options = {{LV2_OPTIONS_INSTANCE, 0, map.map(this, LV2_BUF_SIZE__minBlockLength), 4, int_type, &min_len},
                   {LV2_OPTIONS_INSTANCE, 0, map.map(this, LV2_BUF_SIZE__maxBlockLength), 4, int_type, &max_len},
                   {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr}};
        opt_f.data = options.data();
        features = {&map_f, &opt_f};
        if (promise == "pow2") features.push_back(&pow2_f);
        if (promise == "fixed") features.push_back(&fixed_f);
        features.push_back(nullptr);
    }
};

struct Played {
    std::vector<float> out;                   // interleaved
    std::vector<float> latency, meter;        // after each run()
    int allocations = 0;
};

// Plays `frames` of interleaved x through the plugin, run() sizes taken from
// `sizes` in turn. bypass_at: run() indices before which the bypass port flips.
Played play(uint32_t channels, const std::vector<float>& x, const std::vector<uint32_t>& sizes,
         const Host& host, float drive_db = 0.0f, std::vector<size_t> bypass_at = {},
         bool in_place = false) {
    Played r;
    const LV2_Descriptor* d = descriptor(channels);
    if (!d) {
        ADD_FAILURE() << "cannot load the plugin (TAVIKLIMITER_LV2_MODULE)";
        return r;
    }
    LV2_Handle h = d->instantiate(d, 48000.0, "", host.features.data());
    if (!h) {
        ADD_FAILURE() << "instantiate failed";
        return r;
    }
    float drive = drive_db, bypass = 0.0f, meter = 99.0f, latency = -1.0f;
    d->connect_port(h, kDrive, &drive);
    d->connect_port(h, kBypass, &bypass);
    d->connect_port(h, kMeter, &meter);
    d->connect_port(h, kLatency, &latency);
    d->activate(h);
    const size_t frames = x.size() / channels;
    r.out.assign(x.size(), 0.0f);
    std::vector<float> in[2], out[2];
    size_t pos = 0;
    for (size_t call = 0; pos < frames; ++call) {
        const uint32_t n = static_cast<uint32_t>(std::min<size_t>(sizes[call % sizes.size()], frames - pos));
        for (size_t b : bypass_at)
            if (b == call) bypass = bypass > 0.5f ? 0.0f : 1.0f;
        for (uint32_t c = 0; c < channels; ++c) {
            in[c].resize(n);
            out[c].assign(n, NAN);
            for (uint32_t i = 0; i < n; ++i) in[c][i] = x[(pos + i) * channels + c];
            d->connect_port(h, kAudio + c, in[c].data());
            d->connect_port(h, kAudio + channels + c, in_place ? in[c].data() : out[c].data());
        }
        g_counting = true;
        d->run(h, n);
        g_counting = false;
        for (uint32_t c = 0; c < channels; ++c)
            for (uint32_t i = 0; i < n; ++i)
                r.out[(pos + i) * channels + c] = in_place ? in[c][i] : out[c][i];
        r.latency.push_back(latency);
        r.meter.push_back(meter);
        pos += n;
    }
    r.allocations = g_allocations.exchange(0);
    d->cleanup(h);
    return r;
}

// The library's own float32 output for x (interleaved), with bypass requested
// before the given block indices (toggling), as one stream.
std::vector<float> reference(uint32_t channels, std::vector<float> x, float drive_db,
                             std::vector<size_t> toggle_blocks = {}) {
    const float g = static_cast<float>(std::pow(10.0, static_cast<double>(drive_db) / 20.0));
    for (float& v : x) v *= g;
    alignas(8) unsigned char mem[LMTR_INSTANCE_SIZE], scratch[LMTR_SCRATCH_SIZE];
    LimiterHandle* lim = nullptr;
    const LimiterConfig cfg{channels, 0, LMTR_PCM_FLOAT32, LMTR_STATE_LIMITING};
    EXPECT_EQ(Limiter_Open(&lim, mem, &cfg), LMTR_OK);
    const size_t block = 64 * channels;
    x.resize((x.size() + block - 1) / block * block, 0.0f);
    std::vector<float> y(x.size());
    bool bypassed = false;
    for (size_t b = 0; b * block < x.size(); ++b) {
        for (size_t t : toggle_blocks) {
            if (t == b) {
                bypassed = !bypassed;
                const LimiterParam p{bypassed ? uint32_t{LMTR_CMD_SET_BYPASS} : uint32_t{LMTR_CMD_SET_LIMITING}, 0};
                Limiter_SetParameters(lim, &p);
            }
        }
        uint32_t in_size = static_cast<uint32_t>(block * 4), out_size = in_size;
        EXPECT_EQ(Limiter_Process(lim, scratch, &x[b * block], &in_size, &y[b * block], &out_size), LMTR_OK);
    }
    return y;
}

// Noise with loud bursts and a sine above full scale: every gain case occurs.
std::vector<float> test_signal(uint32_t channels, size_t frames) {
    std::vector<float> x(frames * channels);
    uint32_t s = 12345;
    for (size_t i = 0; i < frames; ++i) {
        for (uint32_t c = 0; c < channels; ++c) {
            s = s * 1664525u + 1013904223u;
            const float noise = (static_cast<float>(s >> 8) / 16777216.0f - 0.5f) * 0.4f;
            const float burst = (i / 1500) % 3 == 1 ? 1.8f * std::sin(0.013f * i + c) : 0.0f;
            x[i * channels + c] = noise + burst;
        }
    }
    return x;
}

// y[t] == ref[t - delay] (silence before), sample for sample.
void expect_delayed(const std::vector<float>& y, const std::vector<float>& ref, uint32_t channels,
                    size_t delay, size_t from_frame = 0) {
    size_t bad = 0;
    for (size_t i = from_frame * channels; i < y.size(); ++i) {
        const size_t t = i / channels;
        const float want = t < delay ? 0.0f : ref[i - delay * channels];
        if (std::memcmp(&y[i], &want, sizeof want) != 0 && bad++ < 3)
            ADD_FAILURE() << "frame " << t << " channel " << i % channels << ": " << y[i] << " != " << want;
    }
    EXPECT_EQ(bad, 0u);
}

struct BlockCase {
    const char* name;
    uint32_t channels;
    std::vector<uint32_t> sizes;
    std::string promise;
    int32_t min_len, max_len;
    float drive_db;
    uint32_t latency;
};

const BlockCase kBlockCases[] = {
    {"mono_1", 1, {1}, "", 0, 0, 0.0f, 127},
    {"mono_7", 1, {7}, "", 0, 0, 6.0f, 127},
    {"mono_64", 1, {64}, "", 0, 0, 0.0f, 127},
    {"mono_100", 1, {100}, "", 0, 0, 6.0f, 127},
    {"mono_mixed", 1, {1, 7, 0, 64, 100, 333, 4096}, "", 0, 0, 3.0f, 127},
    {"stereo_1", 2, {1}, "", 0, 0, 6.0f, 127},
    {"stereo_7", 2, {7}, "", 0, 0, 0.0f, 127},
    {"stereo_64", 2, {64}, "", 0, 0, 6.0f, 127},
    {"stereo_100", 2, {100}, "", 0, 0, 0.0f, 127},
    {"stereo_mixed", 2, {5, 1000, 63, 65, 0, 129}, "", 0, 0, 9.0f, 127},
    {"pow2_min64", 2, {64, 256, 128, 512, 64}, "pow2", 64, 1024, 6.0f, 64},
    {"pow2_min32", 1, {32, 64, 256}, "pow2", 32, 256, 6.0f, 127},
    {"fixed_256", 1, {256}, "fixed", 256, 256, 6.0f, 64},
    {"fixed_100", 2, {100}, "fixed", 100, 100, 6.0f, 127},
    {"options_no_promise", 1, {128}, "", 128, 128, 6.0f, 127},
};

void PrintTo(const BlockCase& c, std::ostream* os) { *os << c.name; }

class BlockSizes : public ::testing::TestWithParam<BlockCase> {};

TEST_P(BlockSizes, OutputIsTheLibrarysDelayedToTheReportedLatency) {
    const BlockCase& c = GetParam();
    const auto x = test_signal(c.channels, 9216);  // whole runs of every case's sizes
    const Host host(c.promise, c.min_len, c.max_len);
    const Played r = play(c.channels, x, c.sizes, host, c.drive_db);
    ASSERT_FALSE(r.latency.empty());
    for (float l : r.latency) ASSERT_EQ(l, static_cast<float>(c.latency));
    expect_delayed(r.out, reference(c.channels, x, c.drive_db), c.channels, c.latency - 64);
    EXPECT_EQ(r.allocations, 0) << "run() allocated";
    float peak = 0.0f;
    for (float v : r.out) peak = std::max(peak, std::fabs(v));
    EXPECT_GT(peak, 0.99f);
    EXPECT_LE(peak, 32730.0f / 32768.0f);
}

INSTANTIATE_TEST_SUITE_P(Lv2, BlockSizes, ::testing::ValuesIn(kBlockCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Lv2Plugin, InPlaceBuffersGiveTheSameOutput) {
    for (uint32_t ch : {1u, 2u}) {
        const auto x = test_signal(ch, 5000);
        const Host host("", 0, 0);
        const Played apart = play(ch, x, {7, 100, 64}, host, 6.0f);
        const Played same = play(ch, x, {7, 100, 64}, host, 6.0f, {}, true);
        EXPECT_EQ(apart.out, same.out) << ch << " channels";
    }
}

TEST(Lv2Plugin, BypassTogglesOnTheNextWholeBlock) {
    // run() of 100 frames; the port flips before runs 5 and 20, that is after
    // 500 and 2000 frames: the library switches on blocks 7 and 31.
    for (uint32_t ch : {1u, 2u}) {
        const auto x = test_signal(ch, 6000);
        const Host host("", 0, 0);
        const Played r = play(ch, x, {100}, host, 6.0f, {5, 20});
        expect_delayed(r.out, reference(ch, x, 6.0f, {7, 31}), ch, 63);
    }
}

TEST(Lv2Plugin, BrokenPromiseInsertsSilenceAndReportsIt) {
    // Promised whole blocks, given 96 frames: the first run plays block 0, then
    // lacks 32 frames and plays them silent; every later run ends 0 or 32 frames
    // into a block, so the latency stays 64 + 32 and nothing is dropped.
    const auto x = test_signal(1, 3072);
    const Host host("pow2", 64, 1024);
    const Played r = play(1, x, {96}, host);
    const auto ref = reference(1, x, 0.0f);
    for (float l : r.latency) EXPECT_EQ(l, 96.0f);
    std::vector<float> expected(ref.begin(), ref.begin() + 64);
    expected.resize(96, 0.0f);
    expected.insert(expected.end(), ref.begin() + 64, ref.begin() + (3072 - 32));
    EXPECT_EQ(r.out, expected);
}

TEST(Lv2Plugin, MeterReadsTheGainReduction) {
    // A sine at +6 dBFS, 800 frames a run: once the gain holds, the meter equals
    // the ratio of output to input level of the frames the run played.
    const size_t frames = 48000;
    std::vector<float> x(frames);
    for (size_t i = 0; i < frames; ++i) x[i] = 2.0f * std::sin(0.05f * static_cast<float>(i));
    const Host host("", 0, 0);
    const Played r = play(1, x, {800}, host);
    const size_t last = r.meter.size() - 1;
    float in_peak = 0.0f, out_peak = 0.0f;
    for (size_t t = last * 800; t < frames; ++t) {
        in_peak = std::max(in_peak, std::fabs(x[t - 127]));
        out_peak = std::max(out_peak, std::fabs(r.out[t]));
    }
    EXPECT_NEAR(r.meter[last], 20.0f * std::log10(out_peak / in_peak), 0.01f);
    EXPECT_NEAR(r.meter[last], -6.03f, 0.05f);

    std::vector<float> quiet(x.size());
    for (size_t i = 0; i < frames; ++i) quiet[i] = x[i] * 0.25f;  // -6 dBFS peaks
    for (float m : play(1, quiet, {800}, host).meter) EXPECT_EQ(m, 0.0f);
    // Bypassed from run 10 on: the meter goes back to 0 dB after the fade.
    const Played b = play(1, x, {800}, host, 0.0f, {10});
    EXPECT_LT(b.meter[9], -5.0f);
    EXPECT_EQ(b.meter.back(), 0.0f);
}

TEST(Lv2Plugin, ZeroFramesAndReactivation) {
    const LV2_Descriptor* d = descriptor(2);
    ASSERT_NE(d, nullptr);
    EXPECT_STREQ(d->URI, "http://taviklimiter.example/lv2/stereo");
    EXPECT_STREQ(descriptor(1)->URI, "http://taviklimiter.example/lv2/mono");
    const Host host("", 0, 0);
    LV2_Handle h = d->instantiate(d, 44100.0, "", host.features.data());
    ASSERT_NE(h, nullptr);
    float drive = 0.0f, bypass = 0.0f, meter = 5.0f, latency = 0.0f, buf[4][64] = {};
    d->connect_port(h, kDrive, &drive);
    d->connect_port(h, kBypass, &bypass);
    d->connect_port(h, kMeter, &meter);
    d->connect_port(h, kLatency, &latency);
    for (uint32_t p = 0; p < 4; ++p) d->connect_port(h, kAudio + p, buf[p]);
    d->activate(h);
    d->run(h, 0);
    EXPECT_EQ(latency, 127.0f);
    EXPECT_EQ(meter, 5.0f);  // nothing played, nothing measured
    // An impulse that would leave at frame 127, then a restart: nothing of it may leave.
    buf[0][0] = 0.5f;
    d->run(h, 64);
    if (d->deactivate) d->deactivate(h);
    d->activate(h);
    buf[0][0] = 0.0f;
    for (int call = 0; call < 3; ++call) {
        d->run(h, 64);
        for (float v : buf[2]) EXPECT_EQ(v, 0.0f) << "run " << call;
    }
    d->cleanup(h);
}

}  // namespace
