// Test data: a seeded generator (splitmix64, the same numbers on every
// platform) that mixes each format's special values in at random positions
// among ordinary ones, the seed of a run, and byte access at any alignment.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace tvl_test {

template <typename T>
T get(const void* base, size_t i) {
    T v;
    std::memcpy(&v, static_cast<const unsigned char*>(base) + i * sizeof(T), sizeof(T));
    return v;
}
template <typename T>
void put(void* base, size_t i, T v) {
    std::memcpy(static_cast<unsigned char*>(base) + i * sizeof(T), &v, sizeof(T));
}

constexpr int64_t kThreshold = 2147418110;  // largest Q1.31 magnitude that needs no reduction
constexpr int64_t kTarget = 2144993280;     // 32730/32768 of full scale

// Special values (RULES of the project): NaNs quiet and signalling of both
// signs, infinities, subnormals, zeros, values at and beside +-1.0, +-16.0
// and the threshold; 64-bit extremes, +-2^46 and the threshold in Q33.31;
// the Q5.27 words at the extremes and beside the threshold.
inline constexpr uint32_t kSpecialF32[] = {
    0x7FC00000, 0xFFC00000, 0x7F800001, 0x7FBFFFFF, 0xFFFFFFFF, 0xFF800001, 0x7F800000, 0xFF800000,
    0x00000001, 0x80000001, 0x007FFFFF, 0x807FFFFF, 0x00000000, 0x80000000, 0x3F800000, 0xBF800000,
    0x3F7FFFFF, 0xBF7FFFFF, 0x3F800001, 0xBF800001, 0x41800000, 0xC1800000, 0x417FFFFF, 0xC17FFFFF,
    0x41800001, 0xC1800001, 0x3F7FFE00, 0xBF7FFE00, 0x3F7FFDFF, 0xBF7FFDFF, 0x3F7FFE01, 0x47000000,
    0xC7000000, 0x5F000000, 0xDF000000, 0x4F800000, 0xCF800000, 0x7F7FFFFF, 0xFF7FFFFF, 0x30000000, 0x2F800000, 0xB0400000};
inline constexpr int64_t kSpecialQ33[] = {
    INT64_MIN, INT64_MAX, INT64_MIN + 1, INT64_MAX - 1, INT32_MIN, INT32_MAX, -INT64_C(2147483649),
    INT64_C(2147483648), INT64_C(1) << 46, -(INT64_C(1) << 46), (INT64_C(1) << 46) - 1, 1 - (INT64_C(1) << 46),
    kThreshold, -kThreshold, kThreshold + 1, -kThreshold - 1, kThreshold + 2, kThreshold - 1, 0, 1, -1,
    INT64_C(1) << 32, INT64_C(1) << 47, (INT64_C(2144993280) / 7 << 15) + 32767, 32768, -32769};
inline constexpr int32_t kSpecialQ5[] = {
    INT32_MIN, INT32_MAX, INT32_MIN + 1, INT32_MAX - 1, 0x08000000, -0x08000000, 0x07FFFFFF, -0x08000001,
    0x07FFEFFF, -0x07FFEFFF, 0x07FFF000, -0x07FFF000, 0x07FFF001, 0, 1, -1, 15, -17, 0x07FDA000, 0x01000001};

class Gen {
public:
    explicit Gen(uint64_t seed) : s_(seed) {}
    uint64_t next() {
        uint64_t z = (s_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    uint64_t below(uint64_t n) { return n ? next() % n : 0; }
    int64_t between(int64_t lo, int64_t hi) { return lo + int64_t(below(uint64_t(hi - lo) + 1)); }
    bool one_in(uint64_t n) { return below(n) == 0; }

    // A word of random magnitude (every size up to the type's), either sign.
    int64_t any64() { return int64_t(next()) >> below(64); }
    int32_t any32() { return int32_t(uint32_t(next())) >> below(32); }
    // An ordinary audio value in [-level, level] of full scale, on the 2^-31 grid.
    double audio(double level) { return (double(next() >> 11) * 0x1p-52 - 1.0) * level; }

    // Samples with one in `special` a special value (0: none).
    int64_t q33(uint64_t special = 8) {
        if (special && one_in(special)) return kSpecialQ33[below(std::size(kSpecialQ33))];
        return one_in(2) ? any64() : int64_t(audio(4.0) * 0x1p31);
    }
    int32_t q5(uint64_t special = 8) {
        if (special && one_in(special)) return kSpecialQ5[below(std::size(kSpecialQ5))];
        return one_in(2) ? any32() : int32_t(audio(4.0) * 0x1p27);
    }
    float f32(uint64_t special = 8) {
        if (special && one_in(special)) {
            float f;
            std::memcpy(&f, &kSpecialF32[below(std::size(kSpecialF32))], 4);
            return f;
        }
        if (one_in(2)) return float(audio(1.0) * 0x1p-40 * double(uint64_t(1) << below(56)));
        return float(audio(4.0));
    }
    // A Q15 gain: unity, a gain of the library's range, or any word now and then.
    int32_t gain() {
        const uint64_t r = below(8);
        return r < 3 ? 32767 : r < 7 ? int32_t(below(32769)) : any32();
    }

private:
    uint64_t s_;
};

// The seed of this run: TVL_SEED from the environment, or a fresh one.
// Printed either way, so that a failure can be replayed.
inline uint64_t run_seed(const char* what) {
    const char* env = std::getenv("TVL_SEED");
    const uint64_t seed = env && *env ? std::strtoull(env, nullptr, 0)
                                      : uint64_t(std::chrono::steady_clock::now().time_since_epoch().count());
    std::printf("%s: seed %llu (set TVL_SEED=%llu to repeat)\n", what, (unsigned long long)seed,
                (unsigned long long)seed);
    return seed;
}

// Seconds a randomised test keeps drawing new cases: TVL_TEST_SECONDS or `fallback`.
inline double test_seconds(double fallback) {
    const char* env = std::getenv("TVL_TEST_SECONDS");
    return env && *env ? std::atof(env) : fallback;
}

}  // namespace tvl_test
