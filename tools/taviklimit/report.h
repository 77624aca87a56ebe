// The figures of a run and their three renderings: the summary printed at the
// end, the --json file and the --gain-log CSV.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "loudness_meter.h"
#include "options.h"

namespace taviklimit {

struct Summary {
    std::string input;               // as named on the command line; "-" for a pipe
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
    std::string shortfall;           // why the input held less than it announced
    double input_peak = 0.0;         // linear, full scale 1.0, before the drive; finite samples
    double driven_peak = 0.0;        // after the drive
    double output_peak = 0.0;        // of the values stored
    Loudness driven;                 // of the driven input, NaN and infinities as 0
    Loudness output_loudness;        // of the values stored
    uint64_t nan_input = 0;          // input samples that are NaN
    uint64_t infinite_input = 0;     // and +-infinity
    double first_damage_s = 0.0;     // where the first of them is
    uint64_t nonfinite_output = 0;   // NaN or infinite samples stored (float output in bypass)
    uint64_t above_threshold = 0;    // output samples stored above the threshold
    int32_t min_gain = 32767;        // the engine's lowest Q15 gain over the output
    uint64_t blocks = 0;             // 64-frame blocks of the output
    uint64_t blocks_limited = 0;     // blocks with any gain below unity
    uint64_t saturated_input = 0;    // samples saturated into the library format
    uint64_t saturated_output = 0;   // samples saturated into the output encoding
    uint64_t above_full_scale = 0;   // float output samples beyond 1.0
    uint64_t calls = 0;              // Limiter_Process calls
    double elapsed_s = 0.0;          // reading, processing and writing
    double engine_s = 0.0;           // inside Limiter_Process
    double measure_s = 0.0;          // measuring loudness and true peak
};

// dBFS of a linear magnitude; -inf for 0.
double to_dbfs(double magnitude);
// "+1.25", "-0.0003", "0.00", "-inf": decimals places, more when that would
// show a value that is not 0 as zero, and never "-0".
std::string db_text(double db, int decimals = 2);
// The dB of a Q15 gain as the engine applies it: gain / 32768, 0 for unity.
double gain_db(int32_t q15);

std::string summary_text(const Summary& s);
// What a user must hear about even with -q: a short input, damaged samples,
// clipping.
std::vector<std::string> summary_warnings(const Summary& s);
std::string summary_json(const Summary& s);
// time_s,gain_db per block, times on the output's own timeline.
std::string gain_log_csv(const std::vector<int32_t>& block_gains, int rate);

}  // namespace taviklimit
