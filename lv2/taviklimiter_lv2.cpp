// LV2 plugin: the limiter in float32, mono and stereo, for any host block size.
//
// The library takes whole blocks of 64 frames and returns each block one block
// later. The host may call run() with any number of frames, so the plugin
// gathers input frames into a 64-frame block, processes the block as soon as it
// is whole, and plays its output from a FIFO.
//
// Latency. Library output frame t is input frame t - 64, and it exists only once
// the input block that holds frame t is whole: up to frame 64 * floor(t / 64) + 63.
// A frame that starts a block therefore needs the 127 frames up to the end of the
// next block before it can leave. With n = 1 frame per run() the host hears frame
// t at time t + L only if L >= 127, so for arbitrary block sizes the least
// constant latency is 64 + 63 = 127 frames: the output FIFO starts with 63 silent
// frames, and it never runs dry because at the end of a run() of frames [a, a + n)
// it holds 63 + 64 * floor((a + n) / 64) - a >= n frames.
// When the host promises that every run() is a multiple of 64 frames (buf-size
// features: powerOf2BlockLength with minBlockLength >= 64, or fixedBlockLength
// with a length that is a multiple of 64), whole blocks arrive in every call and
// the FIFO needs no silent start: latency 64, the library's own.
// If a host breaks that promise the FIFO plays the frames it lacks as silence and
// reports the longer latency from then on; it never lacks more than 63 frames in
// all (the latency stays at most 127) and drops or repeats nothing.
//
// Ports: 0 drive (dB), 1 bypass (toggle), 2 gain reduction (dB, output),
// 3 latency (frames, output), then audio: mono 4 in, 5 out; stereo 4 in L,
// 5 in R, 6 out L, 7 out R.
//
// Bypass goes through Limiter_SetParameters: the library fades into bypass and
// returns to limiting on the next whole block. The drive applies in both states.
//
// Gain reduction is measured, not estimated, by a gain probe (gain_probe.h).
//
// run() allocates nothing, takes no locks and makes no system calls.

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>

#include "gain_probe.h"
#include "taviklimiter.h"

#define TVL_LV2_URI "http://taviklimiter.example/lv2/"

namespace {

constexpr uint32_t kBlock = LMTR_BLOCK_FRAMES;
constexpr uint32_t kRing = 2 * kBlock;           // frames the output FIFO can hold
constexpr uint32_t kMaxPrefill = kBlock - 1;     // silent start for arbitrary block sizes
constexpr float kMinDriveDb = -24.0f, kMaxDriveDb = 24.0f;
constexpr float kMeterFloorDb = -60.0f;
constexpr int32_t kPassFactor = gain_probe::kUnscaled;

enum Port : uint32_t { kDrive = 0, kBypass = 1, kGainReduction = 2, kLatency = 3, kAudio = 4 };

struct Plugin {
    uint32_t channels = 1;
    uint32_t prefill = kMaxPrefill;  // silent frames the FIFO starts with
    uint32_t extra = kMaxPrefill;    // latency beyond the library's 64 frames

    const float* drive_port = nullptr;
    const float* bypass_port = nullptr;
    float* meter_port = nullptr;
    float* latency_port = nullptr;
    const float* in[2] = {nullptr, nullptr};
    float* out[2] = {nullptr, nullptr};

    LimiterHandle* limiter = nullptr;
    LimiterHandle* probe = nullptr;
    bool bypassed = false;

    float drive_db = 0.0f;   // last value seen on the port
    float gain = 1.0f;       // linear drive now
    float gain_target = 1.0f;
    float gain_step = 0.0f;
    uint32_t ramp_left = 0;  // frames until gain reaches gain_target
    bool first_run = true;
    bool probe_started = false;  // the probe's first block out is its silent delay line

    uint32_t fill = 0;                     // frames in in_block
    float in_block[kBlock * 2] = {};       // interleaved
    uint32_t ring_read = 0, ring_count = 0;
    float ring[kRing * 2] = {};            // interleaved output FIFO
    int32_t ring_gain[kRing] = {};         // probe factor of each FIFO frame
    int64_t probe_in[kBlock * 2] = {};
    int64_t wide[kBlock * 2] = {};
    int32_t probe_out[kBlock * 2] = {};

    alignas(8) unsigned char instance_mem[LMTR_INSTANCE_SIZE];
    alignas(8) unsigned char probe_mem[LMTR_INSTANCE_SIZE];
    alignas(8) unsigned char scratch[LMTR_SCRATCH_SIZE];
};

const LV2_Feature* find_feature(const LV2_Feature* const* features, const char* uri) {
    for (; features && *features; ++features) {
        if (std::strcmp((*features)->URI, uri) == 0) return *features;
    }
    return nullptr;
}

// 0 when the host promises run() calls of whole multiples of 64 frames, else 63.
uint32_t choose_prefill(const LV2_Feature* const* features) {
    const LV2_Feature* map_feature = find_feature(features, LV2_URID__map);
    const LV2_Feature* options_feature = find_feature(features, LV2_OPTIONS__options);
    const bool pow2 = find_feature(features, LV2_BUF_SIZE__powerOf2BlockLength) != nullptr;
    const bool fixed = find_feature(features, LV2_BUF_SIZE__fixedBlockLength) != nullptr;
    if (!map_feature || !map_feature->data || !options_feature || !options_feature->data ||
        !(pow2 || fixed)) {
        return kMaxPrefill;
    }
    auto* map = static_cast<const LV2_URID_Map*>(map_feature->data);
    const LV2_URID atom_int = map->map(map->handle, LV2_ATOM__Int);
    const LV2_URID min_key = map->map(map->handle, LV2_BUF_SIZE__minBlockLength);
    const LV2_URID max_key = map->map(map->handle, LV2_BUF_SIZE__maxBlockLength);
    const LV2_URID nominal_key = map->map(map->handle, LV2_BUF_SIZE__nominalBlockLength);
    int64_t min_len = -1, max_len = -1, nominal = -1;
    for (auto* o = static_cast<const LV2_Options_Option*>(options_feature->data);
         o->key != 0 || o->value != nullptr; ++o) {
        if (o->context != LV2_OPTIONS_INSTANCE || o->type != atom_int ||
            o->size != sizeof(int32_t) || !o->value) {
            continue;
        }
        int32_t v;
        std::memcpy(&v, o->value, sizeof v);
        if (o->key == min_key) min_len = v;
        if (o->key == max_key) max_len = v;
        if (o->key == nominal_key) nominal = v;
    }
    const int64_t fixed_len = nominal > 0 ? nominal : (min_len == max_len ? max_len : -1);
    const bool whole_blocks = (pow2 && min_len >= kBlock) ||
                              (fixed && fixed_len > 0 && fixed_len % kBlock == 0);
    return whole_blocks ? 0 : kMaxPrefill;
}

bool open_instance(LimiterHandle** handle, void* mem, uint32_t channels) {
    const LimiterConfig config{channels, 0, LMTR_PCM_FLOAT32, LMTR_STATE_LIMITING};
    return Limiter_Open(handle, mem, &config) == LMTR_OK;
}

void restart(Plugin& p) {
    Limiter_Reset(p.limiter);
    Limiter_Reset(p.probe);
    p.fill = 0;
    p.ring_read = 0;
    p.ring_count = p.prefill;
    std::fill(std::begin(p.ring), std::end(p.ring), 0.0f);
    std::fill(std::begin(p.ring_gain), std::end(p.ring_gain), kPassFactor);
    p.extra = p.prefill;
    p.first_run = true;
    p.probe_started = false;
}

LV2_Handle instantiate(const LV2_Descriptor* descriptor, double, const char*,
                       const LV2_Feature* const* features) {
    uint32_t instance_size = 0, scratch_size = 0;
    if (Limiter_GetBufferSize(&instance_size, &scratch_size, LMTR_PCM_FLOAT32) != LMTR_OK ||
        instance_size > LMTR_INSTANCE_SIZE || scratch_size > LMTR_SCRATCH_SIZE) {
        return nullptr;
    }
    auto* p = new (std::nothrow) Plugin;
    if (!p) return nullptr;
    p->channels = std::strcmp(descriptor->URI, TVL_LV2_URI "stereo") == 0 ? 2 : 1;
    if (!open_instance(&p->limiter, p->instance_mem, p->channels) ||
        gain_probe::open(&p->probe, p->probe_mem) != LMTR_OK) {
        delete p;
        return nullptr;
    }
    p->prefill = choose_prefill(features);
    restart(*p);
    return p;
}

void connect_port(LV2_Handle instance, uint32_t port, void* data) {
    auto& p = *static_cast<Plugin*>(instance);
    switch (port) {
        case kDrive: p.drive_port = static_cast<const float*>(data); return;
        case kBypass: p.bypass_port = static_cast<const float*>(data); return;
        case kGainReduction: p.meter_port = static_cast<float*>(data); return;
        case kLatency: p.latency_port = static_cast<float*>(data); return;
        default: break;
    }
    const uint32_t audio = port - kAudio;
    if (audio < p.channels) {
        p.in[audio] = static_cast<const float*>(data);
    } else if (audio < 2 * p.channels) {
        p.out[audio - p.channels] = static_cast<float*>(data);
    }
}

void activate(LV2_Handle instance) { restart(*static_cast<Plugin*>(instance)); }

float drive_gain(float db) {
    return static_cast<float>(std::pow(10.0, static_cast<double>(db) / 20.0));
}

void read_controls(Plugin& p) {
    const bool bypass = p.bypass_port && *p.bypass_port > 0.5f;
    if (bypass != p.bypassed) {
        const LimiterParam param{bypass ? uint32_t{LMTR_CMD_SET_BYPASS} : uint32_t{LMTR_CMD_SET_LIMITING}, 0};
        Limiter_SetParameters(p.limiter, &param);
        Limiter_SetParameters(p.probe, &param);
        p.bypassed = bypass;
    }
    float db = p.drive_port ? *p.drive_port : 0.0f;
    db = std::isfinite(db) ? std::clamp(db, kMinDriveDb, kMaxDriveDb) : 0.0f;
    if (p.first_run) {
        p.drive_db = db;
        p.gain = p.gain_target = drive_gain(db);
        p.ramp_left = 0;
        p.first_run = false;
    } else if (db != p.drive_db) {
        // A new drive glides in over one block instead of stepping.
        p.drive_db = db;
        p.gain_target = drive_gain(db);
        p.gain_step = (p.gain_target - p.gain) / kBlock;
        p.ramp_left = kBlock;
    }
}

// Processes the whole input block: the probe first (it reads the input), then
// the audio in place, and appends both to the FIFO.
void process_block(Plugin& p) {
    const uint32_t samples = kBlock * p.channels;
    copy_float32_to_q33p31(p.in_block, p.wide, samples);
    gain_probe::fill(p.wide, p.channels, kBlock, p.probe_in);
    uint32_t in_size = sizeof p.probe_in, out_size = sizeof p.probe_out;
    Limiter_Process(p.probe, p.scratch, p.probe_in, &in_size, p.probe_out, &out_size);

    in_size = out_size = samples * sizeof(float);
    Limiter_Process(p.limiter, p.scratch, p.in_block, &in_size, p.in_block, &out_size);

    uint32_t w = (p.ring_read + p.ring_count) % kRing;
    for (uint32_t f = 0; f < kBlock; ++f, w = (w + 1) % kRing) {
        for (uint32_t c = 0; c < p.channels; ++c) p.ring[w * 2 + c] = p.in_block[f * p.channels + c];
        p.ring_gain[w] = p.probe_started ? gain_probe::factor(p.probe_out, f) : kPassFactor;
    }
    p.probe_started = true;
    p.ring_count += kBlock;
}

void run(LV2_Handle instance, uint32_t n_samples) {
    auto& p = *static_cast<Plugin*>(instance);
    read_controls(p);
    int32_t least = kPassFactor;
    bool emitted = false;
    for (uint32_t i = 0; i < n_samples;) {
        const uint32_t k = std::min(n_samples - i, kBlock - p.fill);
        // Read the chunk's input before writing its output: ports may share buffers.
        for (uint32_t j = 0; j < k; ++j) {
            if (p.ramp_left) {
                p.gain = --p.ramp_left ? p.gain + p.gain_step : p.gain_target;
            }
            for (uint32_t c = 0; c < p.channels; ++c) {
                p.in_block[(p.fill + j) * p.channels + c] = p.in[c][i + j] * p.gain;
            }
        }
        p.fill += k;
        if (p.fill == kBlock) {
            process_block(p);
            p.fill = 0;
        }
        // A host that broke its block-size promise: play the missing frames as
        // silence now, and keep the longer latency.
        uint32_t j = 0;
        if (p.ring_count < k) {
            const uint32_t missing = k - p.ring_count;
            for (; j < missing; ++j) {
                for (uint32_t c = 0; c < p.channels; ++c) p.out[c][i + j] = 0.0f;
            }
            p.extra += missing;
        }
        for (; j < k; ++j) {
            for (uint32_t c = 0; c < p.channels; ++c) p.out[c][i + j] = p.ring[p.ring_read * 2 + c];
            least = std::min(least, p.ring_gain[p.ring_read]);
            emitted = true;
            p.ring_read = (p.ring_read + 1) % kRing;
            --p.ring_count;
        }
        i += k;
    }
    if (p.meter_port && emitted) {
        // The deepest reduction among the frames this call played.
        *p.meter_port = least >= kPassFactor ? 0.0f
                        : least <= 0 ? kMeterFloorDb
                                     : std::max(kMeterFloorDb,
                                                20.0f * std::log10(static_cast<float>(least) / kPassFactor));
    }
    if (p.latency_port) *p.latency_port = static_cast<float>(kBlock + p.extra);
}

void cleanup(LV2_Handle instance) { delete static_cast<Plugin*>(instance); }

const void* extension_data(const char*) { return nullptr; }

const LV2_Descriptor kDescriptors[2] = {
    {TVL_LV2_URI "mono", instantiate, connect_port, activate, run, nullptr, cleanup, extension_data},
    {TVL_LV2_URI "stereo", instantiate, connect_port, activate, run, nullptr, cleanup, extension_data},
};

}  // namespace

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    return index < 2 ? &kDescriptors[index] : nullptr;
}
