// Parses taviklimit's command line. Options may come before, between or after
// the two operands; values follow as the next word or after '='. "--" ends
// the options.

#include "options.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <string_view>

#include "errors.h"

namespace taviklimit {
namespace {

[[noreturn]] void bad_value(std::string_view option, std::string_view value,
                            std::string_view expected) {
    throw UsageError(std::string(option) + ": expected " + std::string(expected) + ", got '" +
                     std::string(value) + "'");
}

// A finite decimal number that fills the whole word.
bool parse_number(std::string_view text, double& out) {
    if (text.empty() || text.front() == ' ') return false;
    const std::string s(text);
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(s.c_str(), &end);
    if (end != s.c_str() + s.size() || errno == ERANGE || !std::isfinite(v)) return false;
    // strtod also takes hexadecimal and "inf"; keep to plain decimals.
    for (const char c : s) {
        if (!(std::isdigit(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '+' ||
              c == 'e' || c == 'E')) {
            return false;
        }
    }
    out = v;
    return true;
}

LibFormat parse_format(std::string_view v) {
    if (v == "float32") return LibFormat::Float32;
    if (v == "q5.27") return LibFormat::Q5p27;
    if (v == "q33.31") return LibFormat::Q33p31;
    bad_value("--format", v, "float32, q5.27 or q33.31");
}

Subtype parse_subtype(std::string_view v) {
    if (v == "pcm16") return Subtype::Pcm16;
    if (v == "pcm24") return Subtype::Pcm24;
    if (v == "pcm32") return Subtype::Pcm32;
    if (v == "float") return Subtype::Float;
    if (v == "double") return Subtype::Double;
    bad_value("--subtype", v, "pcm16, pcm24, pcm32, float or double");
}

double parse_drive(std::string_view v) {
    double db = 0.0;
    if (!parse_number(v, db) || db < kMinDriveDb || db > kMaxDriveDb) {
        bad_value("--drive", v, "a gain in dB from -120 to 60");
    }
    return db;
}

uint32_t parse_period(std::string_view v) {
    double frames = 0.0;
    if (v.find_first_not_of("0123456789") != std::string_view::npos || !parse_number(v, frames) ||
        frames < 1 || frames > kMaxPeriod) {
        bad_value("--period", v, "a whole number of frames from 1 to 1048576");
    }
    return static_cast<uint32_t>(frames);
}

// RATE,CHANNELS,ENCODING with an encoding that --subtype also names.
RawInput parse_raw_input(std::string_view v) {
    constexpr std::string_view kExpected = "RATE,CHANNELS,ENCODING, e.g. 48000,2,pcm16";
    const size_t a = v.find(',');
    const size_t b = a == std::string_view::npos ? a : v.find(',', a + 1);
    double rate = 0.0;
    double channels = 0.0;
    if (b == std::string_view::npos || !parse_number(v.substr(0, a), rate) ||
        !parse_number(v.substr(a + 1, b - a - 1), channels) || rate != std::floor(rate) ||
        rate < 1 || rate > 768000 || (channels != 1 && channels != 2)) {
        bad_value("--raw-input", v, kExpected);
    }
    const std::string_view encoding = v.substr(b + 1);
    for (const char* name : {"pcm16", "pcm24", "pcm32", "float", "double"}) {
        if (encoding == name) {
            return {static_cast<int>(rate), static_cast<int>(channels), parse_subtype(encoding)};
        }
    }
    bad_value("--raw-input", v, kExpected);
}

// START-END[,START-END...] in seconds; each range non-empty, in order, not
// overlapping.
std::vector<TimeRange> parse_bypass(std::string_view v) {
    constexpr std::string_view kExpected = "START-END[,START-END...] in seconds, in order";
    std::vector<TimeRange> ranges;
    size_t pos = 0;
    while (true) {
        const size_t comma = v.find(',', pos);
        const std::string_view item =
            v.substr(pos, comma == std::string_view::npos ? std::string_view::npos : comma - pos);
        const size_t dash = item.find('-');
        TimeRange r{};
        if (dash == std::string_view::npos || !parse_number(item.substr(0, dash), r.start_s) ||
            !parse_number(item.substr(dash + 1), r.end_s) || r.start_s < 0 ||
            r.end_s <= r.start_s) {
            bad_value("--bypass", item, kExpected);
        }
        if (!ranges.empty() && r.start_s < ranges.back().end_s) {
            bad_value("--bypass", v, kExpected);
        }
        ranges.push_back(r);
        if (comma == std::string_view::npos) break;
        pos = comma + 1;
    }
    return ranges;
}

}  // namespace

const char* format_name(LibFormat format) {
    switch (format) {
        case LibFormat::Float32: return "float32";
        case LibFormat::Q5p27: return "q5.27";
        case LibFormat::Q33p31: return "q33.31";
    }
    return "?";
}

Options parse_options(int argc, const char* const* argv) {
    Options o;
    std::vector<std::string> operands;
    bool options_done = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (options_done || arg.size() < 2 || arg.front() != '-') {
            operands.emplace_back(arg);
            continue;
        }
        if (arg == "--") {
            options_done = true;
            continue;
        }
        std::string_view name = arg;
        std::string_view inline_value;
        bool has_inline = false;
        if (const size_t eq = arg.find('='); arg.starts_with("--") && eq != std::string_view::npos) {
            name = arg.substr(0, eq);
            inline_value = arg.substr(eq + 1);
            has_inline = true;
        }
        auto value = [&]() -> std::string_view {
            if (has_inline) return inline_value;
            if (i + 1 >= argc) throw UsageError(std::string(name) + ": missing value");
            return argv[++i];
        };
        auto no_value = [&] {
            if (has_inline) throw UsageError(std::string(name) + ": takes no value");
        };
        if (name == "-h" || name == "--help") {
            no_value();
            o.help = true;
        } else if (name == "--version") {
            no_value();
            o.version = true;
        } else if (name == "-q" || name == "--quiet") {
            no_value();
            o.quiet = true;
        } else if (name == "--strict") {
            no_value();
            o.strict = true;
        } else if (name == "--keep-latency") {
            no_value();
            o.keep_latency = true;
        } else if (name == "--format") {
            o.format = parse_format(value());
        } else if (name == "--drive") {
            o.drive_db = parse_drive(value());
        } else if (name == "--period") {
            o.period = parse_period(value());
        } else if (name == "--bypass") {
            o.bypass = parse_bypass(value());
        } else if (name == "--subtype") {
            o.subtype = parse_subtype(value());
        } else if (name == "--output-type") {
            o.output_type = value();
            if (o.output_type.empty()) throw UsageError("--output-type: empty type name");
        } else if (name == "--raw-input") {
            o.raw_input = parse_raw_input(value());
        } else if (name == "--json") {
            o.json_path = value();
            if (o.json_path.empty()) throw UsageError("--json: empty file name");
        } else if (name == "--gain-log") {
            o.gain_log_path = value();
            if (o.gain_log_path.empty()) throw UsageError("--gain-log: empty file name");
        } else {
            throw UsageError("unknown option '" + std::string(name) + "'");
        }
    }
    if (o.help || o.version) return o;
    if (operands.size() < 2) {
        throw UsageError(operands.empty() ? "missing INPUT and OUTPUT" : "missing OUTPUT");
    }
    if (operands.size() > 2) throw UsageError("unexpected operand '" + operands[2] + "'");
    o.input = operands[0];
    o.output = operands[1];
    return o;
}

}  // namespace taviklimit
