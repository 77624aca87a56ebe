// The figures of a run and their three renderings: the summary printed at the
// end, the --json file and the --gain-log CSV.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "options.h"

namespace taviklimit {

struct Summary {
    std::string input;
    std::string output;
    std::string input_description;   // "16-bit PCM WAV"
    std::string output_description;
    int rate = 0;
    int channels = 0;
    uint64_t frames = 0;             // input frames processed
    uint64_t frames_written = 0;
    LibFormat format = LibFormat::Float32;
    double drive_db = 0.0;
    uint32_t period = 0;
    bool keep_latency = false;
    std::vector<std::pair<double, double>> bypass_s;  // as applied, on the block grid
    double input_peak = 0.0;         // linear, full scale 1.0, before the drive
    double driven_peak = 0.0;        // after the drive
    double output_peak = 0.0;        // of the values stored
    int32_t min_gain = 32767;        // the engine's lowest Q15 gain over the output
    uint64_t blocks = 0;             // 64-frame blocks of the output
    uint64_t blocks_limited = 0;     // blocks with any gain below unity
    uint64_t saturated_input = 0;    // samples saturated into the library format
    uint64_t saturated_output = 0;   // samples saturated into the output encoding
    uint64_t above_full_scale = 0;   // float output samples beyond 1.0
    uint64_t calls = 0;              // Limiter_Process calls
    double elapsed_s = 0.0;          // reading, processing and writing
    double engine_s = 0.0;           // inside Limiter_Process
};

// dBFS of a linear magnitude; -inf for 0.
double to_dbfs(double magnitude);
// The dB of a Q15 gain as the engine applies it: gain / 32768, 0 for unity.
double gain_db(int32_t q15);

std::string summary_text(const Summary& s);
std::string summary_json(const Summary& s);
// time_s,gain_db per block, times on the output's own timeline.
std::string gain_log_csv(const std::vector<int32_t>& block_gains, int rate);

}  // namespace taviklimit
