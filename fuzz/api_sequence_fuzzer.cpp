// API sequence fuzzer: a host run (tests/support/host_run.h) whose format,
// channel mode, state, placement and schedule of periods, switches, format
// changes and resets come from the input; the stream's samples (special
// values mixed in) from a seed the input also gives. Every call is checked
// for its result, its sizes and writes outside its buffers, the output for
// the bound and the exact bypass copy; a broken rule aborts.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "support/host_run.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 10) return 0;
    tvl_test::HostRun s;
    s.fmt = data[0] % 3, s.stereo = data[1] & 1, s.state = data[1] >> 1 & 1, s.in_place = data[1] >> 2 & 1;
    s.offset = data[1] >> 4;
    for (size_t i = 2; i < 10; ++i) s.seed = s.seed << 8 | data[i];
    for (size_t i = 10; i + 1 < size && s.steps.size() < 48; i += 2) {
        const uint32_t arg = data[i + 1] | (data[i] & 0x3) << 8;  // 0 to 1023
        switch (data[i] >> 3 & 7) {
            case 0: s.steps.push_back({'b', 0}); break;
            case 1: s.steps.push_back({'l', 0}); break;
            case 2: s.steps.push_back({'f', arg % 3}); break;
            case 3: s.steps.push_back({'r', 0}); break;
            default: s.steps.push_back({'p', arg}); break;
        }
    }
    const tvl_test::RunResult r = tvl_test::run_host(s, tvl_test::direct);
    if (!r.error.empty()) {
        std::fprintf(stderr, "api_sequence_fuzzer: %s (format %u, stereo %d, seed %llu)\n", r.error.c_str(), s.fmt,
                     s.stereo, (unsigned long long)s.seed);
        std::abort();
    }
    return 0;
}
