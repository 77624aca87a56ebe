// The check build: every kernel call runs the vector path for real and the
// scalar reference on a copy, and traps on the first difference.
#if defined(TVL_CHECK_VECTOR) && TVL_CHECK_VECTOR

#include "common/check_kernels.h"

#include <stddef.h>

#include "common/kernels.h"
#include "common/memory.h"

namespace tvl::check {

namespace {

// A copy of the (at most two) byte ranges a call touches, taken before the
// call. Ranges that overlap or touch become one, so a kernel working in place
// or with overlapping buffers sees the same layout in the copy.
class Mirror {
public:
    static constexpr size_t kCapacity = 65536;

    Mirror(const void* a, size_t a_bytes, const void* b, size_t b_bytes) {
        add(reinterpret_cast<uintptr_t>(a), a_bytes);
        add(reinterpret_cast<uintptr_t>(b), b_bytes);
        size_t at = 0;
        for (int r = 0; r < ranges_; ++r) {
            if (at + size_[r] > kCapacity) {
                fits_ = false;
                return;
            }
            offset_[r] = at;
            copy_bytes(copy_ + at, reinterpret_cast<const void*>(base_[r]), size_[r]);
            at += size_[r];
        }
    }

    bool fits() const { return fits_; }

    // Where p's byte lies in the copy (p itself outside the ranges: nothing
    // is read or written there).
    template <typename T>
    T* map(T* p) const {
        const uintptr_t a = reinterpret_cast<uintptr_t>(p);
        for (int r = 0; r < ranges_; ++r) {
            if (a >= base_[r] && a <= base_[r] + size_[r]) {
                return reinterpret_cast<T*>(const_cast<unsigned char*>(copy_) + offset_[r] + (a - base_[r]));
            }
        }
        return p;
    }

    // Traps unless the memory now holds what the copy holds.
    void expect_same_as_memory() const {
        for (int r = 0; r < ranges_; ++r) {
            const auto* now = reinterpret_cast<const unsigned char*>(base_[r]);
            for (size_t i = 0; i < size_[r]; ++i) {
                if (now[i] != copy_[offset_[r] + i]) __builtin_trap();
            }
        }
    }

private:
    void add(uintptr_t base, size_t bytes) {
        if (bytes == 0) return;
        for (int r = 0; r < ranges_; ++r) {
            if (base <= base_[r] + size_[r] && base_[r] <= base + bytes) {  // overlapping or touching: merge
                const uintptr_t lo = base < base_[r] ? base : base_[r];
                const uintptr_t hi = base + bytes > base_[r] + size_[r] ? base + bytes : base_[r] + size_[r];
                base_[r] = lo;
                size_[r] = hi - lo;
                return;
            }
        }
        base_[ranges_] = base;
        size_[ranges_] = bytes;
        ++ranges_;
    }

    uintptr_t base_[2] = {0, 0};
    size_t size_[2] = {0, 0};
    size_t offset_[2] = {0, 0};
    int ranges_ = 0;
    bool fits_ = true;
    unsigned char copy_[kCapacity];
};

void expect_equal(int64_t a, int64_t b) {
    if (a != b) __builtin_trap();
}

// A kernel that only reads: the vector result, checked against the scalar one.
template <typename R, typename... Args>
R checked_result(R (*vector_kernel)(Args...), R (*scalar_kernel)(Args...), Args... args) {
    const R r = vector_kernel(args...);
    expect_equal(int64_t(r), int64_t(scalar_kernel(args...)));
    return r;
}

// Positions reached: count samples, every second with stride 2.
size_t every_second(uint32_t count, int32_t stride) {
    return count == 0 ? 0 : stride == 2 ? size_t(count) * 2 - 1 : size_t(count);
}
// Positions i * stride for i < count. A negative stride reaches below the
// base pointer, outside the copy: such calls run unchecked.
size_t strided(int64_t count, int32_t stride) {
    if (count <= 0 || stride < 0) return 0;
    return size_t(count - 1) * size_t(stride) + 1;
}
size_t frame_samples(int32_t is_stereo, uint32_t count, int32_t stride) {
    return is_stereo ? size_t(count) * 2 : every_second(count, stride);
}

}  // namespace

void derive_gain(const int64_t* src, int32_t* gains, uint32_t count, int32_t ceiling, int32_t stride) {
    const size_t n = strided(count, stride);
    Mirror m(src, n * 8, gains, n * 4);
    vector::derive_gain(src, gains, count, ceiling, stride);
    if (!m.fits() || (stride < 0 && count > 0)) return;
    scalar::derive_gain(m.map(src), m.map(gains), count, ceiling, stride);
    m.expect_same_as_memory();
}

int32_t calculate_block_min_gain(int32_t is_stereo, const int32_t* gains, int32_t count, int32_t stride) {
    return checked_result(vector::calculate_block_min_gain, scalar::calculate_block_min_gain, is_stereo, gains, count,
                          stride);
}

uint64_t peak_q33p31(const int64_t* src, uint32_t count) {
    return checked_result(vector::peak_q33p31, scalar::peak_q33p31, src, count);
}

uint64_t peak_float32(const float* src, uint32_t count) {
    return checked_result(vector::peak_float32, scalar::peak_float32, src, count);
}

uint64_t peak_q5p27(const int32_t* src, uint32_t count) {
    return checked_result(vector::peak_q5p27, scalar::peak_q5p27, src, count);
}

void no_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    const size_t n = every_second(count, stride);
    Mirror m(src, n * 8, dst, n * 4);
    vector::no_limiter(src, dst, count, stride);
    if (!m.fits()) return;
    scalar::no_limiter(m.map(src), m.map(dst), count, stride);
    m.expect_same_as_memory();
}

void apply_fix_gain(int32_t gain, const int64_t* src, int32_t* dst, int32_t count, int32_t stride) {
    const size_t n = strided(count, stride);
    Mirror m(src, n * 8, dst, n * 4);
    vector::apply_fix_gain(gain, src, dst, count, stride);
    if (!m.fits() || (stride < 0 && count > 0)) return;
    scalar::apply_fix_gain(gain, m.map(src), m.map(dst), count, stride);
    m.expect_same_as_memory();
}

void apply_makeup_gain(int32_t* samples, uint32_t count, int32_t gain) {
    Mirror m(samples, size_t(count) * 4, nullptr, 0);
    vector::apply_makeup_gain(samples, count, gain);
    if (!m.fits()) return;
    scalar::apply_makeup_gain(m.map(samples), count, gain);
    m.expect_same_as_memory();
}

int32_t apply_step_gain_without_saturation(int32_t is_stereo, int32_t start_gain, int32_t step, const int64_t* src,
                                           int32_t* dst, uint32_t count, int32_t stride) {
    const size_t n = frame_samples(is_stereo, count, stride);
    Mirror m(src, n * 8, dst, n * 4);
    const int32_t r = vector::apply_step_gain_without_saturation(is_stereo, start_gain, step, src, dst, count, stride);
    if (!m.fits()) return r;
    expect_equal(r, scalar::apply_step_gain_without_saturation(is_stereo, start_gain, step, m.map(src), m.map(dst),
                                                               count, stride));
    m.expect_same_as_memory();
    return r;
}

// The ramp kernels. The table is read only; a table that the destination
// overlaps would have to be copied too, and such calls run unchecked.
#define TVL_CHECK_RAMP(kernel, Sample, Out, out_size)                                                              \
    int32_t kernel(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const Sample* src, Out* dst,         \
                   const int32_t* ramp_table, uint32_t count, int32_t stride) {                                  \
        const size_t n = frame_samples(is_stereo, count, stride);                                                \
        const bool table_apart = !overlaps(ramp_table, size_t(count) * 4, dst, n * (out_size));                  \
        Mirror m(src, n * sizeof(Sample), dst, n * (out_size));                                                  \
        const int32_t r = vector::kernel(is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride); \
        if (!m.fits() || !table_apart) return r;                                                                 \
        expect_equal(r, scalar::kernel(is_stereo, start_gain, end_gain, m.map(src), m.map(dst), ramp_table,      \
                                       count, stride));                                                          \
        m.expect_same_as_memory();                                                                               \
        return r;                                                                                                \
    }

TVL_CHECK_RAMP(apply_targ_gain, int64_t, int32_t, 4)
TVL_CHECK_RAMP(apply_ramp_gain_for_q33p31, int64_t, int64_t, 8)
TVL_CHECK_RAMP(apply_ramp_gain_for_float32, float, float, 4)
TVL_CHECK_RAMP(apply_ramp_gain_for_q5p27, int32_t, int32_t, 4)
#undef TVL_CHECK_RAMP

void clipping_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    const size_t n = every_second(count, stride);
    Mirror m(src, n * 8, dst, n * 4);
    vector::clipping_limiter(src, dst, count, stride);
    if (!m.fits()) return;
    scalar::clipping_limiter(m.map(src), m.map(dst), count, stride);
    m.expect_same_as_memory();
}

// Element-wise copies and narrowings: src of count elements of SrcSize bytes,
// dst of count elements of DstSize bytes.
#define TVL_CHECK_COPY(kernel, Src, Dst)                                  \
    void kernel(const Src* src, Dst* dst, uint32_t count) {               \
        Mirror m(src, size_t(count) * sizeof(Src), dst, size_t(count) * sizeof(Dst)); \
        vector::kernel(src, dst, count);                                  \
        if (!m.fits()) return;                                            \
        scalar::kernel(m.map(src), m.map(dst), count);                    \
        m.expect_same_as_memory();                                        \
    }

TVL_CHECK_COPY(copy_float32_to_q33p31, float, int64_t)
TVL_CHECK_COPY(copy_q1p31_to_float32, int32_t, float)
TVL_CHECK_COPY(copy_q5p27_to_q33p31, int32_t, int64_t)
TVL_CHECK_COPY(copy_q1p31_to_q5p27, int32_t, int32_t)
TVL_CHECK_COPY(move_from_q33p31_to_q1p31, int64_t, int32_t)
TVL_CHECK_COPY(clip_from_q33p31_to_q1p31, int64_t, int32_t)
TVL_CHECK_COPY(narrow_q33p31_to_float32, int64_t, float)
TVL_CHECK_COPY(emit_float32_at_unity, float, float)
#undef TVL_CHECK_COPY

void emit_float32_fix_gain(int32_t gain, const float* src, float* dst, uint32_t count) {
    Mirror m(src, size_t(count) * 4, dst, size_t(count) * 4);
    vector::emit_float32_fix_gain(gain, src, dst, count);
    if (!m.fits()) return;
    scalar::emit_float32_fix_gain(gain, m.map(src), m.map(dst), count);
    m.expect_same_as_memory();
}

int32_t emit_float32_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src, float* dst,
                               const int32_t* ramp_table, uint32_t count) {
    const size_t n = frame_samples(is_stereo, count, 1);
    const bool table_apart = !overlaps(ramp_table, size_t(count) * 4, dst, n * 4);
    Mirror m(src, n * 4, dst, n * 4);
    const int32_t r = vector::emit_float32_targ_gain(is_stereo, start_gain, end_gain, src, dst, ramp_table, count);
    if (!m.fits() || !table_apart) return r;
    expect_equal(r, scalar::emit_float32_targ_gain(is_stereo, start_gain, end_gain, m.map(src), m.map(dst), ramp_table,
                                                   count));
    m.expect_same_as_memory();
    return r;
}

int32_t emit_float32_step_gain(int32_t is_stereo, int32_t start_gain, int32_t step, const float* src, float* dst,
                               uint32_t count) {
    const size_t n = frame_samples(is_stereo, count, 1);
    Mirror m(src, n * 4, dst, n * 4);
    const int32_t r = vector::emit_float32_step_gain(is_stereo, start_gain, step, src, dst, count);
    if (!m.fits()) return r;
    expect_equal(r, scalar::emit_float32_step_gain(is_stereo, start_gain, step, m.map(src), m.map(dst), count));
    m.expect_same_as_memory();
    return r;
}

// In-place re-encodings touching `bytes` bytes per sample (the wider format).
#define TVL_CHECK_REENCODE(kernel, bytes)                   \
    void kernel(void* samples, uint32_t count) {            \
        Mirror m(samples, size_t(count) * (bytes), nullptr, 0); \
        vector::kernel(samples, count);                     \
        if (!m.fits()) return;                              \
        scalar::kernel(m.map(samples), count);              \
        m.expect_same_as_memory();                          \
    }

TVL_CHECK_REENCODE(convert_from_float32_to_q33p31, 8)
TVL_CHECK_REENCODE(convert_from_q5p27_to_q33p31, 8)
TVL_CHECK_REENCODE(convert_from_q33p31_to_float32, 8)
TVL_CHECK_REENCODE(convert_from_q33p31_to_q5p27, 8)
TVL_CHECK_REENCODE(convert_from_q5p27_to_float32, 4)
TVL_CHECK_REENCODE(convert_from_float32_to_q5p27, 4)
#undef TVL_CHECK_REENCODE

}  // namespace tvl::check

#endif  // TVL_CHECK_VECTOR
