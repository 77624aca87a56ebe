// Eight instances on eight threads at once, each with its own material,
// format, channel mode and schedule of switches, format changes and resets,
// their instance and scratch memory packed side by side at odd addresses in
// one shared block: each thread's output must equal, byte for byte, what the
// same session gives when run alone. The library keeps no global state, so
// nothing one instance does may reach another. The tsan preset runs this
// under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/session_runner.h"

namespace {

using namespace tvl_test;

constexpr size_t kThreads = 8;
constexpr size_t kCalls = 160;

std::vector<SessionSpec> sessions() {
    std::vector<SessionSpec> s;
    for (size_t t = 0; t < kThreads; ++t) {
        const uint32_t fmt = uint32_t(t % 3), state = uint32_t(t / 3 % 2);
        const bool stereo = t % 2 == 1, in_place = t % 4 >= 2, change_formats = t >= 4;
        s.push_back({fmt, stereo, state, 1000 + t, in_place, session_schedule(77 * t + 5, kCalls, change_formats)});
    }
    return s;
}

// All instances, then all scratch areas, adjacent in one block, each at an odd offset.
struct SharedMemory {
    static constexpr size_t kInstanceStride = LMTR_INSTANCE_SIZE + 3, kScratchStride = LMTR_SCRATCH_SIZE + 5;
    std::vector<unsigned char> block = std::vector<unsigned char>(kThreads * (kInstanceStride + kScratchStride) + 16);
    void* instance(size_t t) { return block.data() + 1 + t * kInstanceStride; }
    void* scratch(size_t t) { return block.data() + 1 + kThreads * kInstanceStride + t * kScratchStride; }
};

auto direct = [](auto&& call) { call(); };

TEST(Concurrency, EightInstancesOnEightThreadsMatchTheirRunsAlone) {
    const auto specs = sessions();
    std::vector<std::vector<unsigned char>> alone(kThreads);
    {
        SharedMemory memory;
        for (size_t t = 0; t < kThreads; ++t) {
            std::string error;
            alone[t] = run_session(specs[t], memory.instance(t), memory.scratch(t), direct, &error);
            ASSERT_EQ(error, "") << "session " << t;
            ASSERT_GT(alone[t].size(), kCalls * 64 * 4) << "session " << t << " must carry real audio";
        }
    }
    for (int round = 0; round < 3; ++round) {
        SharedMemory memory;
        std::vector<std::vector<unsigned char>> together(kThreads);
        std::vector<std::string> errors(kThreads);
        std::atomic<size_t> ready{0};
        std::vector<std::thread> threads;
        for (size_t t = 0; t < kThreads; ++t) {
            threads.emplace_back([&, t] {
                ready.fetch_add(1);
                while (ready.load() < kThreads) std::this_thread::yield();  // start all at once
                together[t] = run_session(specs[t], memory.instance(t), memory.scratch(t), direct, &errors[t]);
            });
        }
        for (auto& th : threads) th.join();
        for (size_t t = 0; t < kThreads; ++t) {
            SCOPED_TRACE(::testing::Message() << "round " << round << " session " << t);
            EXPECT_EQ(errors[t], "");
            ASSERT_EQ(together[t].size(), alone[t].size());
            EXPECT_TRUE(together[t] == alone[t]) << "the output differs from the session's run alone";
        }
    }
}

}  // namespace
