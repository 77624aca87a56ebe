// Four instances on four threads at once, each with its own format, channel
// mode and schedule, their instance and scratch memory packed side by side
// at odd addresses in one shared block: each thread's output must equal, byte
// for byte, what the same run gives alone. The library keeps no global
// state, so nothing one instance does may reach another. The tsan preset
// runs this under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/host_run.h"

namespace {

using namespace tvl_test;

constexpr size_t kThreads = 4, kInstance = LMTR_INSTANCE_SIZE + 3, kScratch = LMTR_SCRATCH_SIZE + 5;

TEST(Concurrency, InstancesOnThreadsMatchTheirRunsAlone) {
    Gen g(run_seed("concurrency"));
    std::vector<HostRun> runs(kThreads);
    std::vector<unsigned char> block(kThreads * (kInstance + kScratch) + 1);
    auto instance = [&](size_t t) { return block.data() + 1 + t * kInstance; };
    auto scratch = [&](size_t t) { return block.data() + 1 + kThreads * kInstance + t * kScratch; };
    std::vector<RunResult> alone(kThreads), together(kThreads);
    for (size_t t = 0; t < kThreads; ++t) {
        runs[t].fmt = uint32_t(t % 3), runs[t].stereo = t % 2, runs[t].seed = g.next();
        runs[t].steps = random_steps(g, 60, t >= 2);
        alone[t] = run_host(runs[t], direct, instance(t), scratch(t));
        ASSERT_EQ(alone[t].error, "") << "run " << t;
    }
    std::atomic<size_t> ready{0};
    std::vector<std::thread> threads;
    for (size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ready.fetch_add(1);
            while (ready.load() < kThreads) std::this_thread::yield();  // start all at once
            together[t] = run_host(runs[t], direct, instance(t), scratch(t));
        });
    }
    for (auto& th : threads) th.join();
    for (size_t t = 0; t < kThreads; ++t) {
        EXPECT_EQ(together[t].error, "") << "run " << t;
        EXPECT_TRUE(together[t].out == alone[t].out) << "run " << t << " differs from its run alone";
    }
}

}  // namespace
