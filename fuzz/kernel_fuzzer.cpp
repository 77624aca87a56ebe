// Kernel fuzzer: runs one kernel, chosen by the input, in three variants on
// three identical copies of one memory arena: the scalar reference
// (tvl::scalar), the vector path of this build (tvl::vector: SSE/AVX2 on
// x86-64, NEON on arm64) and the exported kernel. Counts, strides, stereo
// mode, gains, ramp tables, sample bytes (with injected edge values), the
// misalignment of every buffer and the overlap of source and destination
// (apart, in place, destination below or above the source, as each kernel
// allows) all come from the input. The three arenas, guard bytes around the
// buffers included, and the returned values must be identical, and the
// guards must keep their pattern.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "byte_source.h"
#include "common/kernels.h"
#include "taviklimiter.h"

namespace {

using Source = tvl_fuzz::ByteSource;

constexpr size_t kGuard = 32;

[[noreturn]] void fail(const char* kernel, const char* what, long long a, long long b) {
    std::fprintf(stderr, "kernel_fuzzer: %s: %s (%lld, %lld)\n", kernel, what, a, b);
    std::abort();
}

unsigned char guard_byte(size_t i) { return static_cast<unsigned char>(0x96 ^ (i * 53)); }

// How the destination may lie relative to the source.
enum Overlap : unsigned { kApart = 1, kSame = 2, kBelow = 4, kAbove = 8 };

// One kernel call's memory: src_bytes at src, dst_bytes at dst, inside one
// arena framed by guards. Apart, the two regions are separate; otherwise dst
// is src moved down or up by some bytes (0 for in place).
struct Layout {
    size_t src = 0, dst = 0, size = 0;
};

Layout choose_layout(Source& in, size_t src_bytes, size_t dst_bytes, unsigned allowed) {
    unsigned modes[4];
    int n = 0;
    for (unsigned m : {kApart, kSame, kBelow, kAbove}) {
        if (allowed & m) modes[n++] = m;
    }
    const unsigned mode = modes[in.ConsumeIntegralInRange<int>(0, n - 1)];
    Layout l;
    l.size = kGuard + dst_bytes + src_bytes + 8 + 8 + dst_bytes + src_bytes + kGuard;
    l.src = kGuard + dst_bytes + in.ConsumeIntegralInRange<size_t>(0, 7);
    switch (mode) {
        case kApart: l.dst = l.src + src_bytes + in.ConsumeIntegralInRange<size_t>(0, 7); break;
        case kSame: l.dst = l.src; break;
        case kBelow: l.dst = l.src - in.ConsumeIntegralInRange<size_t>(dst_bytes ? 1 : 0, dst_bytes); break;
        default: l.dst = l.src + in.ConsumeIntegralInRange<size_t>(src_bytes ? 1 : 0, src_bytes); break;
    }
    return l;
}

// Edge values injected into the sample bytes, by element size.
const int64_t kEdges64[] = {0, 1, -1, INT64_MAX, INT64_MIN, int64_t(1) << 31, -(int64_t(1) << 31),
                            (int64_t(1) << 31) - 1, 2147418110, 2147418111, int64_t(1) << 46, int64_t(1) << 47,
                            (int64_t(1) << 47) + 32768, INT64_C(0x7FFFFFFF0), 0x3F80000000000000};
const uint32_t kEdges32[] = {0, 1, 0xFFFFFFFFu, 0x7FFFFFFFu, 0x80000000u, 0x08000000u, 0xF8000000u,
                             0x7F800000u /* +inf */, 0xFF800000u /* -inf */, 0x7FC00000u /* NaN */,
                             0x7F800001u /* signalling NaN */, 0xFFC00001u, 0x00000001u /* denormal */,
                             0x80000001u, 0x3F800000u /* 1.0 */, 0xBF800000u, 0x41800000u /* 16.0 */,
                             0xC1800000u, 0x417FFFFFu, 0x41880000u /* 17.0 */, 0x4F000000u /* 2^31 */,
                             0x5F000000u /* 2^63 */, 0xDF000000u, 0x7F7FFFFFu, 0x4B000001u};

// Fills the arena from the input: raw bytes, then source elements of `elem`
// bytes overwritten with edge values here and there; guards get their pattern.
std::vector<unsigned char> make_arena(Source& in, const Layout& l, size_t elem) {
    const size_t size = l.size;
    std::vector<unsigned char> a(size);
    const auto raw = in.ConsumeBytes<unsigned char>(size - 2 * kGuard);
    for (size_t i = 0; i < size; ++i) a[i] = guard_byte(i);
    if (!raw.empty()) std::memcpy(a.data() + kGuard, raw.data(), raw.size());
    std::memset(a.data() + kGuard + raw.size(), 0, size - 2 * kGuard - raw.size());
    const int edges = in.ConsumeIntegralInRange<int>(0, 32);
    for (int e = 0; e < edges; ++e) {
        const size_t at = l.src + in.ConsumeIntegralInRange<size_t>(0, (size - kGuard - l.src) / elem) * elem;
        if (at + elem > size - kGuard) continue;
        if (elem == 8) {
            const int64_t v = kEdges64[in.ConsumeIntegralInRange<size_t>(0, std::size(kEdges64) - 1)];
            std::memcpy(a.data() + at, &v, 8);
        } else {
            const uint32_t v = kEdges32[in.ConsumeIntegralInRange<size_t>(0, std::size(kEdges32) - 1)];
            std::memcpy(a.data() + at, &v, 4);
        }
    }
    return a;
}

int32_t pick_gain(Source& in) {
    static const int32_t kGains[] = {32767, 32766, 0, 1, 2, 16384, 16364, 32728, 30000, -1, -32768, 32768,
                                     65535, 65536, INT32_MAX, INT32_MIN};
    if (in.ConsumeBool()) return kGains[in.ConsumeIntegralInRange<size_t>(0, std::size(kGains) - 1)];
    return in.ConsumeIntegral<int32_t>();
}

// Every-second-sample kernels: 2 selects it, anything else is consecutive.
int32_t pick_mode_stride(Source& in) {
    static const int32_t kStrides[] = {1, 2, 0, -1, 3, INT32_MIN, INT32_MAX};
    return kStrides[in.ConsumeIntegralInRange<size_t>(0, std::size(kStrides) - 1)];
}

// Runs call(variant, arena) for the three variants on copies of `arena` and
// compares what they leave and return.
template <typename Call>
void run3(const char* kernel, const std::vector<unsigned char>& arena, Call call) {
    std::vector<unsigned char> a[3] = {arena, arena, arena};
    int64_t r[3];
    for (int v = 0; v < 3; ++v) r[v] = call(v, a[v].data());
    for (size_t i = 0; i < arena.size(); ++i) {
        if (i < kGuard || i >= arena.size() - kGuard) {
            for (int v = 0; v < 3; ++v) {
                if (a[v][i] != guard_byte(i)) fail(kernel, "guard byte written (variant, offset)", v, i);
            }
        }
        if (a[1][i] != a[0][i]) fail(kernel, "vector path differs from scalar at arena byte", i, a[1][i]);
        if (a[2][i] != a[0][i]) fail(kernel, "exported kernel differs from scalar at arena byte", i, a[2][i]);
    }
    if (r[1] != r[0] || r[2] != r[0]) fail(kernel, "returned values differ (vector, scalar)", r[1], r[0]);
}

template <typename T>
T* at(unsigned char* a, size_t off) {
    return reinterpret_cast<T*>(a + off);
}

// The three variants of a kernel, in the order run3 expects.
#define VARIANTS(name) decltype(&::name) const name##_v[3] = {&tvl::scalar::name, &tvl::vector::name, &::name}

VARIANTS(derive_gain);
VARIANTS(calculate_block_min_gain);
VARIANTS(no_limiter);
VARIANTS(apply_fix_gain);
VARIANTS(apply_makeup_gain);
VARIANTS(apply_step_gain_without_saturation);
VARIANTS(apply_targ_gain);
VARIANTS(apply_ramp_gain_for_q33p31);
VARIANTS(apply_ramp_gain_for_float32);
VARIANTS(apply_ramp_gain_for_q5p27);
VARIANTS(clipping_limiter);
VARIANTS(copy_float32_to_q33p31);
VARIANTS(copy_q1p31_to_float32);
VARIANTS(copy_q5p27_to_q33p31);
VARIANTS(copy_q1p31_to_q5p27);
VARIANTS(convert_from_float32_to_q33p31);
VARIANTS(convert_from_q5p27_to_q33p31);
VARIANTS(convert_from_q33p31_to_float32);
VARIANTS(convert_from_q33p31_to_q5p27);
VARIANTS(convert_from_q5p27_to_float32);
VARIANTS(convert_from_float32_to_q5p27);
VARIANTS(move_from_q33p31_to_q1p31);
VARIANTS(clip_from_q33p31_to_q1p31);

constexpr uint32_t kMaxCount = 300;

// A ramp table: the library's, or 64 entries from the input (in the arena's
// copy-independent storage, so that all variants read the same one).
const int32_t* pick_table(Source& in, std::vector<int32_t>& own) {
    if (in.ConsumeIntegralInRange<int>(0, 3) != 0) return LMTR_RAMP_TABLE;
    own.resize(64);
    for (auto& e : own) e = in.ConsumeBool() ? in.ConsumeIntegralInRange<int32_t>(0, 32768) : in.ConsumeIntegral<int32_t>();
    return own.data();
}

// Samples (positions) a frame-walking kernel touches: stereo 2 per frame,
// mono every second position with stride 2, else consecutive.
size_t frame_span(int32_t stereo, uint32_t count, int32_t stride) {
    if (count == 0) return 0;
    if (stereo) return size_t(count) * 2;
    return stride == 2 ? size_t(count) * 2 - 1 : count;
}

void fuzz_one(Source& in) {
    const int kernel = in.ConsumeIntegralInRange<int>(0, 22);
    const bool full = in.ConsumeIntegralInRange<int>(0, 3) == 0;  // the engine's counts: 64 or 128
    uint32_t count = full ? (in.ConsumeBool() ? 128 : 64) : in.ConsumeIntegralInRange<uint32_t>(0, kMaxCount);
    const int32_t stereo = in.ConsumeBool() ? 0 : (in.ConsumeBool() ? 1 : in.ConsumeIntegral<int32_t>() | 1);
    std::vector<int32_t> table_storage;

    // Each case: the bytes the kernel reads and writes, the overlaps it allows, the call.
    switch (kernel) {
        case 0: {  // derive_gain: positions i * stride, stride 0..3
            const int32_t stride = in.ConsumeIntegralInRange<int32_t>(0, 3), ceiling = pick_gain(in);
            const size_t span = count ? size_t(count - 1) * stride + 1 : 0;
            const Layout l = choose_layout(in, span * 8, span * 4, kApart);
            run3("derive_gain", make_arena(in, l, 8), [&](int v, unsigned char* a) {
                derive_gain_v[v](at<int64_t>(a, l.src), at<int32_t>(a, l.dst), count, ceiling, stride);
                return 0;
            });
            break;
        }
        case 1: {  // calculate_block_min_gain: reads only
            const int32_t n = in.ConsumeIntegralInRange<int32_t>(-3, int32_t(count));
            const int32_t stride = in.ConsumeIntegralInRange<int32_t>(0, 3);
            const size_t span = n <= 0 ? 0 : stereo ? size_t(n) * 2 : size_t(n - 1) * stride + 1;
            const Layout l = choose_layout(in, span * 4, 0, kApart);
            run3("calculate_block_min_gain", make_arena(in, l, 4), [&](int v, unsigned char* a) {
                return calculate_block_min_gain_v[v](stereo, at<int32_t>(a, l.src), n, stride);
            });
            break;
        }
        case 2: {  // no_limiter: any overlap (ascending loop order defines it)
            const int32_t stride = pick_mode_stride(in);
            const size_t span = frame_span(0, count, stride);
            const Layout l = choose_layout(in, span * 8, span * 4, kApart | kSame | kBelow | kAbove);
            run3("no_limiter", make_arena(in, l, 8), [&](int v, unsigned char* a) {
                no_limiter_v[v](at<int64_t>(a, l.src), at<int32_t>(a, l.dst), count, stride);
                return 0;
            });
            break;
        }
        case 3: {  // apply_fix_gain: positions i * stride, any overlap
            const int32_t n = in.ConsumeIntegralInRange<int32_t>(-3, int32_t(count));
            const int32_t stride = in.ConsumeIntegralInRange<int32_t>(0, 3), gain = pick_gain(in);
            const size_t span = n <= 0 ? 0 : size_t(n - 1) * stride + 1;
            const Layout l = choose_layout(in, span * 8, span * 4, kApart | kSame | kBelow | kAbove);
            run3("apply_fix_gain", make_arena(in, l, 8), [&](int v, unsigned char* a) {
                apply_fix_gain_v[v](gain, at<int64_t>(a, l.src), at<int32_t>(a, l.dst), n, stride);
                return 0;
            });
            break;
        }
        case 4: {  // apply_makeup_gain: in place
            const int32_t gain = pick_gain(in);
            const Layout l = choose_layout(in, size_t(count) * 4, 0, kApart);
            run3("apply_makeup_gain", make_arena(in, l, 4), [&](int v, unsigned char* a) {
                apply_makeup_gain_v[v](at<int32_t>(a, l.src), count, gain);
                return 0;
            });
            break;
        }
        case 5: {  // apply_step_gain_without_saturation: apart
            const int32_t stride = pick_mode_stride(in), start = pick_gain(in);
            const int32_t step = in.ConsumeBool() ? in.ConsumeIntegralInRange<int32_t>(-8, 8) : in.ConsumeIntegral<int32_t>();
            const size_t span = frame_span(stereo, count, stride);
            const Layout l = choose_layout(in, span * 8, span * 4, kApart);
            run3("apply_step_gain_without_saturation", make_arena(in, l, 8), [&](int v, unsigned char* a) {
                return apply_step_gain_without_saturation_v[v](stereo, start, step, at<int64_t>(a, l.src),
                                                               at<int32_t>(a, l.dst), count, stride);
            });
            break;
        }
        case 6: case 7: case 8: case 9: {  // attack ramp (apart) and the three fades (in place or apart)
            count = full ? 64 : in.ConsumeIntegralInRange<uint32_t>(0, 64);
            const int32_t stride = pick_mode_stride(in), start = pick_gain(in), end = pick_gain(in);
            const int32_t* table = pick_table(in, table_storage);
            const size_t span = frame_span(stereo, count, stride);
            if (kernel == 6) {
                const Layout l = choose_layout(in, span * 8, span * 4, kApart);
                run3("apply_targ_gain", make_arena(in, l, 8), [&](int v, unsigned char* a) {
                    return apply_targ_gain_v[v](stereo, start, end, at<int64_t>(a, l.src), at<int32_t>(a, l.dst), table,
                                                count, stride);
                });
            } else if (kernel == 7) {
                const Layout l = choose_layout(in, span * 8, span * 8, kApart | kSame);
                run3("apply_ramp_gain_for_q33p31", make_arena(in, l, 8), [&](int v, unsigned char* a) {
                    return apply_ramp_gain_for_q33p31_v[v](stereo, start, end, at<int64_t>(a, l.src),
                                                           at<int64_t>(a, l.dst), table, count, stride);
                });
            } else if (kernel == 8) {
                const Layout l = choose_layout(in, span * 4, span * 4, kApart | kSame);
                run3("apply_ramp_gain_for_float32", make_arena(in, l, 4), [&](int v, unsigned char* a) {
                    return apply_ramp_gain_for_float32_v[v](stereo, start, end, at<float>(a, l.src), at<float>(a, l.dst),
                                                            table, count, stride);
                });
            } else {
                const Layout l = choose_layout(in, span * 4, span * 4, kApart | kSame);
                run3("apply_ramp_gain_for_q5p27", make_arena(in, l, 4), [&](int v, unsigned char* a) {
                    return apply_ramp_gain_for_q5p27_v[v](stereo, start, end, at<int32_t>(a, l.src),
                                                          at<int32_t>(a, l.dst), table, count, stride);
                });
            }
            break;
        }
        case 10: {  // clipping_limiter: any overlap
            const int32_t stride = pick_mode_stride(in);
            const size_t span = frame_span(0, count, stride);
            const Layout l = choose_layout(in, span * 8, span * 4, kApart | kSame | kBelow | kAbove);
            run3("clipping_limiter", make_arena(in, l, 8), [&](int v, unsigned char* a) {
                clipping_limiter_v[v](at<int64_t>(a, l.src), at<int32_t>(a, l.dst), count, stride);
                return 0;
            });
            break;
        }
        case 11: case 12: {  // widening copies: apart
            const Layout l = choose_layout(in, size_t(count) * 4, size_t(count) * 8, kApart);
            run3(kernel == 11 ? "copy_float32_to_q33p31" : "copy_q5p27_to_q33p31", make_arena(in, l, 4),
                 [&](int v, unsigned char* a) {
                     if (kernel == 11) copy_float32_to_q33p31_v[v](at<float>(a, l.src), at<int64_t>(a, l.dst), count);
                     else copy_q5p27_to_q33p31_v[v](at<int32_t>(a, l.src), at<int64_t>(a, l.dst), count);
                     return 0;
                 });
            break;
        }
        case 13: case 14: {  // same-width copies: in place or apart
            const Layout l = choose_layout(in, size_t(count) * 4, size_t(count) * 4, kApart | kSame);
            run3(kernel == 13 ? "copy_q1p31_to_float32" : "copy_q1p31_to_q5p27", make_arena(in, l, 4),
                 [&](int v, unsigned char* a) {
                     if (kernel == 13) copy_q1p31_to_float32_v[v](at<int32_t>(a, l.src), at<float>(a, l.dst), count);
                     else copy_q1p31_to_q5p27_v[v](at<int32_t>(a, l.src), at<int32_t>(a, l.dst), count);
                     return 0;
                 });
            break;
        }
        case 15: case 16: case 17: case 18: case 19: case 20: {  // re-encoding in place
            static const char* const kNames[] = {"convert_from_float32_to_q33p31", "convert_from_q5p27_to_q33p31",
                                                 "convert_from_q33p31_to_float32", "convert_from_q33p31_to_q5p27",
                                                 "convert_from_q5p27_to_float32", "convert_from_float32_to_q5p27"};
            const int which = kernel - 15;
            const size_t bytes = size_t(count) * (which < 4 ? 8 : 4);
            const Layout l = choose_layout(in, bytes, 0, kApart);
            run3(kNames[which], make_arena(in, l, which == 2 || which == 3 ? 8 : 4), [&](int v, unsigned char* a) {
                void* p = a + l.src;
                switch (which) {
                    case 0: convert_from_float32_to_q33p31_v[v](p, count); break;
                    case 1: convert_from_q5p27_to_q33p31_v[v](p, count); break;
                    case 2: convert_from_q33p31_to_float32_v[v](p, count); break;
                    case 3: convert_from_q33p31_to_q5p27_v[v](p, count); break;
                    case 4: convert_from_q5p27_to_float32_v[v](p, count); break;
                    default: convert_from_float32_to_q5p27_v[v](p, count); break;
                }
                return 0;
            });
            break;
        }
        default: {  // narrowing: dst equal to src, below it, or apart
            const Layout l = choose_layout(in, size_t(count) * 8, size_t(count) * 4, kApart | kSame | kBelow);
            run3(kernel == 21 ? "move_from_q33p31_to_q1p31" : "clip_from_q33p31_to_q1p31", make_arena(in, l, 8),
                 [&](int v, unsigned char* a) {
                     if (kernel == 21) move_from_q33p31_to_q1p31_v[v](at<int64_t>(a, l.src), at<int32_t>(a, l.dst), count);
                     else clip_from_q33p31_to_q1p31_v[v](at<int64_t>(a, l.src), at<int32_t>(a, l.dst), count);
                     return 0;
                 });
            break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Source in(data, size);
    for (int calls = 0; calls < 8 && in.remaining_bytes() > 0; ++calls) fuzz_one(in);
    return 0;
}
