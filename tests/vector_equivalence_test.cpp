// Every kernel's vector path (tvl::vector: the build's instruction set) against
// its scalar reference (tvl::scalar), byte for byte.
//
// One table lists the kernels; each row says what the kernel reads and
// writes, how its buffers may be placed (apart, in place, destination below
// the source) and which parameters to try. The driver runs every row over
// counts 0 to 140 and a few long ones, source and destination offsets of 0, 4
// and 8 bytes, three data sets (edge-heavy words of every size, in-range
// audio-like data, and samples that all need limiting), on two copies of the same guarded memory: the scalar call
// on one, the vector call on the other. Then the whole memory (guards, source,
// destination, ramp table) and the return value must be identical, and the
// guards intact.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "common/kernels.h"
#include "support/test_buffers.h"
#include "taviklimiter.h"

namespace {

using tvl_test::GuardedBuffer;
using tvl_test::SampleGen;

enum class Data { I64, I32, F32, Gain, None };
enum class Place { Apart, InPlace, Below };

size_t bytes_of(Data d) { return d == Data::I64 ? 8 : d == Data::None ? 0 : 4; }

// The scalar arguments beyond the buffers and the count.
struct Params {
    int32_t a = 0, b = 0;  // gain, ceiling or start/end gains, or start/step
    int32_t stereo = 0;
    int32_t stride = 1;
    bool random_table = false;
};

// Buffers of one call. table is null for kernels without one.
struct Call {
    void* src;
    void* dst;
    const int32_t* table;
    int64_t count;
    Params p;
};

// Elements of src and dst that a call with `count` reaches.
using Span = size_t (*)(int64_t count, const Params& p);

struct Kernel {
    const char* name;
    Data src, dst;  // dst None: returns a value only, or works in place on src
    std::vector<Place> places;
    std::vector<Params> params;
    Span span;
    bool table = false;     // takes a ramp table of count entries
    bool in_place_only = false;
    int64_t (*run)(bool vector, const Call& c);
};

size_t consecutive(int64_t n, const Params&) { return n > 0 ? size_t(n) : 0; }
// Position i * stride for i < n (strides >= 0).
size_t strided(int64_t n, const Params& p) { return n > 0 ? size_t(n - 1) * size_t(p.stride) + 1 : 0; }
// Kernels with an every-second-sample mode (stride 2) and consecutive otherwise.
size_t every_second(int64_t n, const Params& p) { return n > 0 ? (p.stride == 2 ? size_t(2 * n - 1) : size_t(n)) : 0; }
// Frame kernels: stereo frames of two samples; mono as every_second.
size_t frames(int64_t n, const Params& p) { return p.stereo ? (n > 0 ? size_t(2 * n) : 0) : every_second(n, p); }
size_t min_gain_words(int64_t n, const Params& p) { return p.stereo ? (n > 0 ? size_t(2 * n) : 0) : strided(n, p); }

#define TVL_PICK(use_vector, fn) ((use_vector) ? tvl::vector::fn : tvl::scalar::fn)

template <typename S>
S* as_src(const Call& c) { return static_cast<S*>(c.src); }
template <typename D>
D* as_dst(const Call& c) { return static_cast<D*>(c.dst); }

std::vector<Params> gains_list(std::initializer_list<int32_t> gains, std::initializer_list<int32_t> strides) {
    std::vector<Params> out;
    for (int32_t s : strides) {
        for (int32_t g : gains) {
            Params p;
            p.a = g;
            p.stride = s;
            out.push_back(p);
            if (s != 1) break;  // other strides: the first gain only
        }
    }
    return out;
}

// Start/end (or start/step) pairs in mono and stereo, with the library's
// table and a random one, plus (with_strides) the every-second-sample mode in
// mono.
std::vector<Params> ramp_list(std::initializer_list<std::pair<int32_t, int32_t>> pairs, bool with_strides = true) {
    std::vector<Params> out;
    bool random_table = false;
    for (auto [a, b] : pairs) {
        for (int32_t stereo : {0, 1}) {
            Params p;
            p.a = a;
            p.b = b;
            p.stereo = stereo;
            p.random_table = random_table;
            out.push_back(p);
        }
        random_table = !random_table;
    }
    if (!with_strides) return out;
    Params s2;
    s2.a = 32767;
    s2.b = 16384;
    s2.stride = 2;
    out.push_back(s2);
    s2.stride = 3;  // consecutive, like 1
    s2.stereo = 5;  // any non-zero value is stereo, stride unread
    out.push_back(s2);
    return out;
}

const std::initializer_list<std::pair<int32_t, int32_t>> kRampPairs = {
    {32767, 0},   {0, 32767},    {32767, 16384}, {20000, 32767},         {1000, 1001},
    {32767, 32766}, {-5, 100},   {24000, 20000}, {INT32_MIN, INT32_MAX}, {16384, 16384}};

// Gains far beyond the library's, up to the largest: the float32 emission
// forms its products in double precision, exact only while they stay small.
const std::initializer_list<std::pair<int32_t, int32_t>> kWideRampPairs = {
    {INT32_MAX, INT32_MIN}, {-268435456, -268435457}, {0x1FFFFFFF, 0}, {32767, 0}, {0, 32767}, {-5, 100}};
const std::initializer_list<std::pair<int32_t, int32_t>> kWideStepPairs = {
    {INT32_MAX, INT32_MAX}, {0x1FFFFFFF, 0x1234567}, {INT32_MIN, -1}, {-268435000, -8}, {16384, 4}, {0, -3}};

const std::initializer_list<std::pair<int32_t, int32_t>> kStepPairs = {
    {16384, 4},  {32763, 4}, {32767, 4},  {0, -3}, {20000, 100}, {INT32_MAX, INT32_MAX},
    {INT32_MIN, -1}, {-7, 65536}, {30000, 0}, {12345, 1}};

std::vector<Params> ceiling_list() {
    std::vector<Params> out;
    for (int32_t c : {32767, 16384, 1, 0, -1, -32768, 65535, 0x12345, 32730}) {
        Params p;
        p.a = c;
        out.push_back(p);
    }
    for (int32_t s : {2, 3}) {
        Params p;
        p.a = 32767;
        p.stride = s;
        out.push_back(p);
    }
    return out;
}

std::vector<Params> min_gain_list() {
    std::vector<Params> out;
    for (int32_t stereo : {0, 1, -3}) {
        for (int32_t stride : {1, 2, 0}) {
            Params p;
            p.stereo = stereo;
            p.stride = stride;
            out.push_back(p);
        }
    }
    return out;
}

std::vector<Params> stride_list(std::initializer_list<int32_t> strides) {
    std::vector<Params> out;
    for (int32_t s : strides) {
        Params p;
        p.stride = s;
        out.push_back(p);
    }
    return out;
}

const std::vector<Place> kNarrowing = {Place::Apart, Place::InPlace, Place::Below};
const std::vector<Place> kApartOrSame = {Place::Apart, Place::InPlace};
const std::vector<Place> kApart = {Place::Apart};
const std::vector<Place> kSame = {Place::InPlace};

// The table. Reencoding rows read `src` as their old format and leave the new
// one in the same buffer.
const std::vector<Kernel>& kernels() {
    static const std::vector<Kernel> table = {
        {"derive_gain", Data::I64, Data::I32, kApartOrSame, ceiling_list(), strided, false, false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, derive_gain)(as_src<const int64_t>(c), as_dst<int32_t>(c), uint32_t(c.count), c.p.a, c.p.stride);
             return 0;
         }},
        {"calculate_block_min_gain", Data::Gain, Data::None, kApart, min_gain_list(), min_gain_words, false, false,
         [](bool v, const Call& c) -> int64_t {
             return TVL_PICK(v, calculate_block_min_gain)(c.p.stereo, as_src<const int32_t>(c), int32_t(c.count),
                                                          c.p.stride);
         }},
        {"peak_q33p31", Data::I64, Data::None, kApart, {Params{}}, strided, false, false,
         [](bool v, const Call& c) -> int64_t {
             return int64_t(TVL_PICK(v, peak_q33p31)(as_src<const int64_t>(c), uint32_t(c.count)));
         }},
        {"peak_float32", Data::F32, Data::None, kApart, {Params{}}, strided, false, false,
         [](bool v, const Call& c) -> int64_t {
             return int64_t(TVL_PICK(v, peak_float32)(as_src<const float>(c), uint32_t(c.count)));
         }},
        {"peak_q5p27", Data::I32, Data::None, kApart, {Params{}}, strided, false, false,
         [](bool v, const Call& c) -> int64_t {
             return int64_t(TVL_PICK(v, peak_q5p27)(as_src<const int32_t>(c), uint32_t(c.count)));
         }},
        {"no_limiter", Data::I64, Data::I32, kNarrowing, stride_list({1, 2, 0, 3}), every_second, false, false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, no_limiter)(as_src<const int64_t>(c), as_dst<int32_t>(c), uint32_t(c.count), c.p.stride);
             return 0;
         }},
        {"apply_fix_gain", Data::I64, Data::I32, kNarrowing,
         gains_list({0, 1, 32767, 16384, 12345, -1, -32768, INT32_MAX, INT32_MIN, 0x10000}, {1, 2, 3}), strided, false,
         false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, apply_fix_gain)(c.p.a, as_src<const int64_t>(c), as_dst<int32_t>(c), int32_t(c.count),
                                         c.p.stride);
             return 0;
         }},
        {"apply_makeup_gain", Data::I32, Data::None, kSame,
         gains_list({0, 1, 16384, 32766, 32767, 65535, -1, 0x18000, INT32_MIN}, {1}), consecutive, false, true,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, apply_makeup_gain)(as_src<int32_t>(c), uint32_t(c.count), c.p.a);
             return 0;
         }},
        {"apply_step_gain_without_saturation", Data::I64, Data::I32, kApartOrSame, ramp_list(kStepPairs), frames,
         false, false,
         [](bool v, const Call& c) -> int64_t {
             return TVL_PICK(v, apply_step_gain_without_saturation)(c.p.stereo, c.p.a, c.p.b,
                                                                    as_src<const int64_t>(c), as_dst<int32_t>(c),
                                                                    uint32_t(c.count), c.p.stride);
         }},
        {"apply_targ_gain", Data::I64, Data::I32, kApartOrSame, ramp_list(kRampPairs), frames, true, false,
         [](bool v, const Call& c) -> int64_t {
             return TVL_PICK(v, apply_targ_gain)(c.p.stereo, c.p.a, c.p.b, as_src<const int64_t>(c),
                                                 as_dst<int32_t>(c), c.table, uint32_t(c.count), c.p.stride);
         }},
        {"apply_ramp_gain_for_q33p31", Data::I64, Data::I64, kApartOrSame, ramp_list(kRampPairs), frames, true, false,
         [](bool v, const Call& c) -> int64_t {
             return TVL_PICK(v, apply_ramp_gain_for_q33p31)(c.p.stereo, c.p.a, c.p.b, as_src<const int64_t>(c),
                                                            as_dst<int64_t>(c), c.table, uint32_t(c.count), c.p.stride);
         }},
        {"apply_ramp_gain_for_float32", Data::F32, Data::F32, kApartOrSame, ramp_list(kRampPairs), frames, true, false,
         [](bool v, const Call& c) -> int64_t {
             return TVL_PICK(v, apply_ramp_gain_for_float32)(c.p.stereo, c.p.a, c.p.b, as_src<const float>(c),
                                                             as_dst<float>(c), c.table, uint32_t(c.count), c.p.stride);
         }},
        {"apply_ramp_gain_for_q5p27", Data::I32, Data::I32, kApartOrSame, ramp_list(kRampPairs), frames, true, false,
         [](bool v, const Call& c) -> int64_t {
             return TVL_PICK(v, apply_ramp_gain_for_q5p27)(c.p.stereo, c.p.a, c.p.b, as_src<const int32_t>(c),
                                                           as_dst<int32_t>(c), c.table, uint32_t(c.count), c.p.stride);
         }},
        {"clipping_limiter", Data::I64, Data::I32, kNarrowing, stride_list({1, 2, 0}), every_second, false, false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, clipping_limiter)(as_src<const int64_t>(c), as_dst<int32_t>(c), uint32_t(c.count),
                                           c.p.stride);
             return 0;
         }},
        {"copy_float32_to_q33p31", Data::F32, Data::I64, kApartOrSame, stride_list({1}), consecutive, false, false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, copy_float32_to_q33p31)(as_src<const float>(c), as_dst<int64_t>(c), uint32_t(c.count));
             return 0;
         }},
        {"copy_q1p31_to_float32", Data::I32, Data::F32, kNarrowing, stride_list({1}), consecutive, false, false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, copy_q1p31_to_float32)(as_src<const int32_t>(c), as_dst<float>(c), uint32_t(c.count));
             return 0;
         }},
        {"copy_q5p27_to_q33p31", Data::I32, Data::I64, kApartOrSame, stride_list({1}), consecutive, false, false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, copy_q5p27_to_q33p31)(as_src<const int32_t>(c), as_dst<int64_t>(c), uint32_t(c.count));
             return 0;
         }},
        {"copy_q1p31_to_q5p27", Data::I32, Data::I32, kNarrowing, stride_list({1}), consecutive, false, false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, copy_q1p31_to_q5p27)(as_src<const int32_t>(c), as_dst<int32_t>(c), uint32_t(c.count));
             return 0;
         }},
        {"convert_from_float32_to_q33p31", Data::F32, Data::I64, kSame, stride_list({1}), consecutive, false, true,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, convert_from_float32_to_q33p31)(c.src, uint32_t(c.count));
             return 0;
         }},
        {"convert_from_q5p27_to_q33p31", Data::I32, Data::I64, kSame, stride_list({1}), consecutive, false, true,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, convert_from_q5p27_to_q33p31)(c.src, uint32_t(c.count));
             return 0;
         }},
        {"convert_from_q33p31_to_float32", Data::I64, Data::F32, kSame, stride_list({1}), consecutive, false, true,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, convert_from_q33p31_to_float32)(c.src, uint32_t(c.count));
             return 0;
         }},
        {"convert_from_q33p31_to_q5p27", Data::I64, Data::I32, kSame, stride_list({1}), consecutive, false, true,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, convert_from_q33p31_to_q5p27)(c.src, uint32_t(c.count));
             return 0;
         }},
        {"convert_from_q5p27_to_float32", Data::I32, Data::F32, kSame, stride_list({1}), consecutive, false, true,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, convert_from_q5p27_to_float32)(c.src, uint32_t(c.count));
             return 0;
         }},
        {"convert_from_float32_to_q5p27", Data::F32, Data::I32, kSame, stride_list({1}), consecutive, false, true,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, convert_from_float32_to_q5p27)(c.src, uint32_t(c.count));
             return 0;
         }},
        {"move_from_q33p31_to_q1p31", Data::I64, Data::I32, kNarrowing, stride_list({1}), consecutive, false, false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, move_from_q33p31_to_q1p31)(as_src<const int64_t>(c), as_dst<int32_t>(c), uint32_t(c.count));
             return 0;
         }},
        {"clip_from_q33p31_to_q1p31", Data::I64, Data::I32, kNarrowing, stride_list({1}), consecutive, false, false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, clip_from_q33p31_to_q1p31)(as_src<const int64_t>(c), as_dst<int32_t>(c), uint32_t(c.count));
             return 0;
         }},
        {"narrow_q33p31_to_float32", Data::I64, Data::F32, kNarrowing, stride_list({1}), consecutive, false, false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, narrow_q33p31_to_float32)(as_src<const int64_t>(c), as_dst<float>(c), uint32_t(c.count));
             return 0;
         }},
        {"emit_float32_at_unity", Data::F32, Data::F32, kNarrowing, stride_list({1}), consecutive, false, false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, emit_float32_at_unity)(as_src<const float>(c), as_dst<float>(c), uint32_t(c.count));
             return 0;
         }},
        {"emit_float32_fix_gain", Data::F32, Data::F32, kNarrowing,
         gains_list({0, 1, 32767, 16384, 12345, -1, -32768, INT32_MAX, INT32_MIN, 0x1FFFFFFF, -0x1234567}, {1}),
         consecutive, false, false,
         [](bool v, const Call& c) -> int64_t {
             TVL_PICK(v, emit_float32_fix_gain)(c.p.a, as_src<const float>(c), as_dst<float>(c), uint32_t(c.count));
             return 0;
         }},
        {"emit_float32_targ_gain", Data::F32, Data::F32, kNarrowing, ramp_list(kWideRampPairs, false), frames, true,
         false,
         [](bool v, const Call& c) -> int64_t {
             return TVL_PICK(v, emit_float32_targ_gain)(c.p.stereo, c.p.a, c.p.b, as_src<const float>(c),
                                                        as_dst<float>(c), c.table, uint32_t(c.count));
         }},
        {"emit_float32_step_gain", Data::F32, Data::F32, kNarrowing, ramp_list(kWideStepPairs, false), frames, false,
         false,
         [](bool v, const Call& c) -> int64_t {
             return TVL_PICK(v, emit_float32_step_gain)(c.p.stereo, c.p.a, c.p.b, as_src<const float>(c),
                                                        as_dst<float>(c), uint32_t(c.count));
         }},
    };
    return table;
}

// A sample above the gain threshold, either sign: mostly 1.0 to 32.0 of full
// scale; now and then a magnitude whose divisor d = m >> 15 lies just under
// 2144993280 / q for a small q (a remainder below q, d above 2^24, so that
// float(d) rounds and a single-precision quotient can fall on either side).
int64_t hot_q33p31(SampleGen& gen) {
    int64_t m = gen.between(INT64_C(2147418111), INT64_C(1) << 36);
    if (gen.between(0, 3) == 0) {
        const int64_t d = 2144993280 / gen.between(2, 127);
        m = (d << 15) + gen.between(0, 32767);
    }
    return gen.between(0, 1) ? m : -m;
}

// Data set 0: SampleGen's edge-heavy words of every size. Data set 1:
// in-range audio-like samples (Q33.31 within +-1.125 of full scale, floats
// within +-1.25), so that whole vectors often take the common fast paths.
// Data set 2: every sample above the threshold (floats from 1.0 up), the
// paths of limited audio.
void fill(SampleGen& gen, Data kind, void* base, size_t n, int data_set) {
    for (size_t i = 0; i < n; ++i) {
        switch (kind) {
            case Data::I64:
                tvl_test::put<int64_t>(base, i, data_set == 0   ? gen.q33p31()
                                                : data_set == 1 ? gen.between(-(INT64_C(9) << 28), INT64_C(9) << 28)
                                                                : hot_q33p31(gen));
                break;
            case Data::F32:
                tvl_test::put<float>(base, i, data_set == 0   ? gen.float32()
                                              : data_set == 1 ? float(gen.between(-(5 << 21), 5 << 21)) * 0x1p-23f
                                                              : float(hot_q33p31(gen)) * 0x1p-31f);
                break;
            case Data::I32: tvl_test::put<int32_t>(base, i, gen.word32()); break;
            case Data::Gain: tvl_test::put<int32_t>(base, i, data_set == 0 ? gen.word32() : gen.gain()); break;
            case Data::None: break;
        }
    }
}

// Memory of one run: src and dst apart (two buffers) or in one buffer
// (in place, or dst `below` bytes under src), plus the ramp table.
struct Memory {
    GuardedBuffer a, b, table;
    void* src;
    void* dst;
    const int32_t* table_ptr;
};

const char* place_name(Place p) { return p == Place::Apart ? "apart" : p == Place::InPlace ? "in place" : "dst below src"; }

int64_t counts_end() { return 141; }

std::vector<int64_t> counts_for(const Kernel& k) {
    std::vector<int64_t> counts;
    for (int64_t n = 0; n < counts_end(); ++n) counts.push_back(n);
    counts.push_back(1000);
    counts.push_back(4096 + 3);
    if (std::string(k.name) == "apply_fix_gain" || std::string(k.name) == "calculate_block_min_gain") {
        counts.push_back(-1);  // signed counts: below 1 does nothing
        counts.push_back(INT32_MIN);
    }
    return counts;
}

TEST(VectorEquivalence, EveryKernelMatchesScalarByteForByte) {
    uint64_t runs = 0;
    for (size_t ki = 0; ki < kernels().size(); ++ki) {
        const Kernel& k = kernels()[ki];
        int failures = 0;
        for (int64_t count : counts_for(k)) {
            for (size_t pi = 0; pi < k.params.size(); ++pi) {
                const Params& p = k.params[pi];
                const size_t n = k.span(count, p);
                const size_t src_bytes = n * bytes_of(k.src);
                const size_t dst_bytes = n * bytes_of(k.dst);
                for (Place place : k.places) {
                    for (size_t src_off : {0, 4, 8}) {
                        for (int data_set : {0, 1, 2}) {
                            // Long counts: one offset and data set of each, to keep the run short.
                            if (count > counts_end() && (src_off == 4 || data_set != 0)) continue;
                            const size_t dst_off = src_off == 4 ? 0 : 4;
                            const uint64_t seed = (uint64_t(ki) << 40) ^ (uint64_t(count) << 20) ^ (pi << 8) ^
                                                  (size_t(place) << 5) ^ (src_off << 1) ^ uint64_t(data_set);
                            SampleGen gen(seed);

                            const size_t shift = place == Place::Below ? (src_off == 8 ? 16 : 4) : 0;
                            const size_t one_buffer = std::max(src_bytes + shift, dst_bytes);
                            Memory m{GuardedBuffer(place == Place::Apart ? src_bytes : one_buffer, src_off),
                                     GuardedBuffer(place == Place::Apart ? dst_bytes : 0, dst_off),
                                     GuardedBuffer(k.table ? size_t(std::max<int64_t>(count, 0)) * 4 : 0, src_off),
                                     nullptr, nullptr, nullptr};
                            // Whatever the kernel does not write must come through unchanged.
                            fill(gen, Data::I32, m.a.data(), m.a.size() / 4, 0);
                            fill(gen, Data::I32, m.b.data(), m.b.size() / 4, 0);
                            if (place == Place::Apart) {
                                m.src = m.a.data();
                                m.dst = m.b.data();
                            } else {
                                m.src = m.a.data() + shift;
                                m.dst = m.a.data();
                            }
                            fill(gen, k.src, m.src, n, data_set);
                            m.table_ptr = nullptr;
                            if (k.table) {
                                for (size_t i = 0; i < size_t(std::max<int64_t>(count, 0)); ++i) {
                                    tvl_test::put<int32_t>(m.table.data(), i, p.random_table ? gen.word32() : int32_t(512 * (i % 64)));
                                }
                                m.table_ptr = count <= 64 && !p.random_table ? LMTR_RAMP_TABLE : m.table.as<int32_t>();
                            }

                            // Same memory, twice: the reference on one copy, the vector path on the other.
                            Memory ref = m;
                            const ptrdiff_t src_at = static_cast<unsigned char*>(m.src) - m.a.data();
                            const ptrdiff_t dst_at = static_cast<unsigned char*>(m.dst) -
                                                     (place == Place::Apart ? m.b.data() : m.a.data());
                            ref.src = ref.a.data() + src_at;
                            ref.dst = (place == Place::Apart ? ref.b.data() : ref.a.data()) + dst_at;
                            if (m.table_ptr && m.table_ptr != LMTR_RAMP_TABLE) ref.table_ptr = ref.table.as<int32_t>();

                            const int64_t expected = k.run(false, Call{ref.src, ref.dst, ref.table_ptr, count, p});
                            const int64_t actual = k.run(true, Call{m.src, m.dst, m.table_ptr, count, p});
                            ++runs;

                            const auto describe = [&] {
                                char text[256];
                                std::snprintf(text, sizeof text,
                                              "%s: count %lld, params {%d, %d, stereo %d, stride %d, %s table}, "
                                              "%s, src offset %zu, dst offset %zu, data set %d",
                                              k.name, static_cast<long long>(count), p.a, p.b, p.stereo, p.stride,
                                              p.random_table ? "random" : "ramp", place_name(place), src_off, dst_off,
                                              data_set);
                                return std::string(text);
                            };
                            const ::testing::AssertionResult checks[] = {
                                expected == actual ? ::testing::AssertionSuccess()
                                                   : ::testing::AssertionFailure()
                                                         << "returned " << actual << ", expected " << expected,
                                tvl_test::same_bytes(ref.a.storage().data(), m.a.storage().data(), m.a.storage().size()),
                                tvl_test::same_bytes(ref.b.storage().data(), m.b.storage().data(), m.b.storage().size()),
                                tvl_test::same_bytes(ref.table.storage().data(), m.table.storage().data(),
                                                     m.table.storage().size()),
                                m.a.guards_intact() && m.b.guards_intact() && m.table.guards_intact()
                                    ? ::testing::AssertionSuccess()
                                    : ::testing::AssertionFailure() << "guard bytes overwritten"};
                            const char* what[] = {"result", "first buffer (guards included)",
                                                  "destination buffer (guards included)", "ramp table", "guards"};
                            bool ok = true;
                            for (size_t c = 0; c < std::size(checks); ++c) {
                                EXPECT_TRUE(checks[c]) << what[c] << ", " << describe();
                                ok = ok && bool(checks[c]);
                            }
                            if (!ok && ++failures >= 3) goto next_kernel;
                        }
                    }
                }
            }
        }
    next_kernel:;
    }
    std::printf("vector equivalence: %llu runs over %zu kernels\n", static_cast<unsigned long long>(runs),
                kernels().size());
}

// The table covers every kernel of the scalar reference: a kernel added to
// the list of kernels without a row here fails this count.
#define TVL_COUNT_ONE(name) +1
TEST(VectorEquivalence, TableCoversEveryKernel) { EXPECT_EQ(kernels().size(), size_t(0 TVL_ALL_KERNELS(TVL_COUNT_ONE))); }

}  // namespace
