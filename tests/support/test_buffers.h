// Test helpers shared by the unit tests: guarded buffers at any alignment,
// byte comparison with the first differing index, and a seeded generator of
// samples that mixes random values with the edge values of every format.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace tvl_test {

// "" when the n bytes at a and b are equal, else the first differing index and both bytes.
inline std::string first_difference(const void* expected, const void* actual, size_t n) {
    const auto* e = static_cast<const unsigned char*>(expected);
    const auto* a = static_cast<const unsigned char*>(actual);
    for (size_t i = 0; i < n; ++i) {
        if (e[i] != a[i]) {
            char text[96];
            std::snprintf(text, sizeof text, "first difference at byte %zu (0x%zx): expected 0x%02x, got 0x%02x", i,
                          i, e[i], a[i]);
            return text;
        }
    }
    return "";
}

// memcmp of n bytes as an assertion result that names the first differing index.
inline ::testing::AssertionResult same_bytes(const void* expected, const void* actual, size_t n) {
    if (n == 0 || std::memcmp(expected, actual, n) == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << first_difference(expected, actual, n);
}

// Element i of an array of T at any alignment (memcpy, never a misaligned access).
template <typename T>
T get(const void* base, size_t i) {
    T v;
    std::memcpy(&v, static_cast<const unsigned char*>(base) + i * sizeof(T), sizeof(T));
    return v;
}

// Stores v as element i of an array of T at any alignment.
template <typename T>
void put(void* base, size_t i, T v) {
    std::memcpy(static_cast<unsigned char*>(base) + i * sizeof(T), &v, sizeof(T));
}

// size data bytes at a chosen byte offset from a 16-byte boundary, with guard
// bytes of a position-dependent pattern on both sides. Copies keep offsets.
class GuardedBuffer {
public:
    static constexpr size_t kGuard = 32;

    // Data bytes are filled with `fill`; the guards with guard_byte().
    explicit GuardedBuffer(size_t size, size_t offset = 0, unsigned char fill = 0xCD)
        : size_(size), offset_(offset), storage_(kGuard + offset + size + kGuard) {
        for (size_t i = 0; i < storage_.size(); ++i) storage_[i] = guard_byte(i);
        std::memset(data(), fill, size);
    }

    unsigned char* data() { return storage_.data() + kGuard + offset_; }
    const unsigned char* data() const { return storage_.data() + kGuard + offset_; }
    // The data as a T pointer (possibly misaligned: pass it on, access through get/put).
    template <typename T>
    T* as() { return reinterpret_cast<T*>(data()); }
    size_t size() const { return size_; }
    // Guards and data together, for comparing a whole buffer with a copy of it.
    const std::vector<unsigned char>& storage() const { return storage_; }

    // True when every guard byte still holds its pattern.
    bool guards_intact() const {
        for (size_t i = 0; i < storage_.size(); ++i) {
            const bool guard = i < kGuard + offset_ || i >= kGuard + offset_ + size_;
            if (guard && storage_[i] != guard_byte(i)) return false;
        }
        return true;
    }

    // The guard pattern at storage position i (varies, so shifted writes show).
    static unsigned char guard_byte(size_t i) { return static_cast<unsigned char>(0xA5 ^ (i * 29)); }

private:
    size_t size_;
    size_t offset_;
    std::vector<unsigned char> storage_;
};

// Seeded source of test samples: about a quarter edge values, the rest random.
class SampleGen {
public:
    explicit SampleGen(uint64_t seed) : rng_(seed) {}

    // Q33.31 word: 64-bit edges, full scale, the gain threshold, ties of the >> 15, or a random word.
    int64_t q33p31() {
        static const int64_t edges[] = {
            0, 1, -1, INT64_MAX, INT64_MIN, INT64_MAX - 1, INT64_MIN + 1,
            INT64_C(2147483648), -INT64_C(2147483648), INT64_C(2147483647), -INT64_C(2147483649),
            INT64_C(2147483649), INT64_C(2147418110), INT64_C(2147418111), -INT64_C(2147418110),
            -INT64_C(2147418111), INT64_C(2147418112), INT64_C(1) << 32, -(INT64_C(1) << 32),
            (INT64_C(1) << 32) + 5, INT64_C(1) << 35, (INT64_C(1) << 46) - 1, INT64_C(1) << 46,
            INT64_C(1) << 47, (INT64_C(1) << 47) + 32768, INT64_C(0x7FFFFFFF0), -INT64_C(0x800000000),
            16384, -16384, 49152, -49152, 32767, 32768, 65535, 98304, INT64_C(16777217)};
        if (pick_edge()) return edges[rng_() % std::size(edges)];
        if (rng_() % 4 == 0) return static_cast<int64_t>(rng_());
        return static_cast<int64_t>(rng_()) >> (rng_() % 63);  // magnitudes of every size
    }

    // 32-bit word (Q1.31, Q5.27 or gain): 32-bit edges, +-1.0 of Q5.27, float ties, or a random word.
    int32_t word32() {
        static const int32_t edges[] = {
            0, 1, -1, INT32_MAX, INT32_MIN, INT32_MAX - 1, INT32_MIN + 1, 2147418110, 2147418111,
            0x08000000, -0x08000000, 0x07FFFFFF, 16, -16, 15, -17, 0x01000001, 0x7FFFFFC0, 0x7FFFFFBF,
            0x40000001, 32767, 32766, 16384, 65535, -32768, 0x00FFFFFF, -0x01000001};
        if (pick_edge()) return edges[rng_() % std::size(edges)];
        uint32_t v = static_cast<uint32_t>(rng_()) >> (rng_() % 32);  // magnitudes of every size
        if (rng_() % 2) v = 0u - v;
        return static_cast<int32_t>(v);
    }

    // float32: +-0, +-1, half steps of the conversions, +-16, +-2^32, infinities, NaNs (quiet and
    // signalling), subnormals, or random.
    float float32() {
        constexpr float inf = std::numeric_limits<float>::infinity();
        static const float edges[] = {
            0.0f, -0.0f, 1.0f, -1.0f, 0.5f, -0.5f, 0x1p-31f, -0x1p-31f, 0x1p-32f, -0x1p-32f, 0x1.8p-31f,
            -0x1.8p-31f, 0x1p-28f, -0x1p-28f, 0x1p-27f, -0x1p-27f, 16.0f, -16.0f, 0x1.fffffep3f,
            -0x1.fffffep3f, 0x1p32f, -0x1p32f, 0x1p21f, inf, -inf, std::numeric_limits<float>::quiet_NaN(),
            -std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::signaling_NaN(),
            std::numeric_limits<float>::denorm_min(),
            -std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::min(),
            std::numeric_limits<float>::max(), -std::numeric_limits<float>::max(), 2e34f, 0.999969482421875f,
            0x1p20f, -0x1p20f, 0x1.000002p20f, -0x1.000002p20f, -0x1p21f, -0x1.fffffep20f};
        if (pick_edge()) return edges[rng_() % std::size(edges)];
        const float unit = std::uniform_real_distribution<float>(-1.0f, 1.0f)(rng_);
        return std::ldexp(unit, static_cast<int>(rng_() % 72) - 40);  // 2^-40 .. 2^31
    }

    // Q15 gain word: unity half the time, else anywhere in 0..32767, now and then any 32-bit word.
    int32_t gain() {
        const uint64_t r = rng_() % 16;
        if (r < 8) return 32767;
        if (r < 14) return static_cast<int32_t>(rng_() % 32768);
        return word32();
    }

    // Uniform integer in [lo, hi].
    int64_t between(int64_t lo, int64_t hi) { return std::uniform_int_distribution<int64_t>(lo, hi)(rng_); }

    // Fills n elements at base (any alignment) with the sample kind of T (int64_t, int32_t or float).
    template <typename T>
    void fill(void* base, size_t n) {
        for (size_t i = 0; i < n; ++i) {
            if constexpr (sizeof(T) == 8) put<int64_t>(base, i, q33p31());
            else if constexpr (std::is_same_v<T, float>) put<float>(base, i, float32());
            else put<int32_t>(base, i, word32());
        }
    }

private:
    bool pick_edge() { return rng_() % 4 == 0; }
    std::mt19937_64 rng_;
};

}  // namespace tvl_test
