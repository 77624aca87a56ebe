// Command-line options of taviklimit and their parser.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace taviklimit {

// The sample format handed to the library.
enum class LibFormat { Float32, Q5p27, Q33p31 };

// The output file's sample encoding; Auto keeps the input's where it can.
enum class Subtype { Auto, Pcm16, Pcm24, Pcm32, Float, Double };

// A stretch of the input, in seconds, to run in bypass.
struct TimeRange {
    double start_s;
    double end_s;
};

// --raw-input: INPUT is headerless little-endian samples in this layout.
struct RawInput {
    int rate = 0;
    int channels = 0;
    Subtype subtype = Subtype::Auto;  // never Auto once parsed
};

// "-" as INPUT or OUTPUT: standard input or output.
inline constexpr const char* kStdio = "-";

struct Options {
    std::string input;
    std::string output;
    LibFormat format = LibFormat::Float32;
    double drive_db = 0.0;
    uint32_t period = 480;
    bool keep_latency = false;
    std::vector<TimeRange> bypass;  // sorted, not overlapping
    Subtype subtype = Subtype::Auto;
    std::string output_type;         // a container name; empty: from OUTPUT's extension
    std::optional<RawInput> raw_input;
    bool strict = false;             // a truncated or damaged input is an error
    std::string json_path;
    std::string gain_log_path;
    bool quiet = false;
    bool help = false;
    bool version = false;
};

inline constexpr uint32_t kMaxPeriod = 1u << 20;
inline constexpr double kMinDriveDb = -120.0;
inline constexpr double kMaxDriveDb = 60.0;

// Parses argv; throws UsageError naming the first problem. With --help or
// --version the operands may be missing.
Options parse_options(int argc, const char* const* argv);

const char* format_name(LibFormat format);

}  // namespace taviklimit
