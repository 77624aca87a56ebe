#include "report.h"

#include <taviklimiter.h>

#include <cmath>
#include <cstdio>
#include <limits>

#include "levels.h"

namespace taviklimit {
namespace {

std::string printf_string(const char* fmt, auto... args) {
    const int n = std::snprintf(nullptr, 0, fmt, args...);
    std::string s(static_cast<size_t>(n), '\0');
    std::snprintf(s.data(), s.size() + 1, fmt, args...);
    return s;
}

std::string json_string(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    out += printf_string("\\u%04x", static_cast<unsigned>(c));
                } else {
                    out += c;
                }
        }
    }
    return out + "\"";
}

// A number, or null where JSON has none (silence has no dBFS). Never -0.
std::string json_number(double v, const char* fmt = "%.6g") {
    return std::isfinite(v) ? printf_string(fmt, v + 0.0) : std::string("null");
}

double share(uint64_t part, uint64_t whole) {
    return whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
}

double duration_s(const Summary& s) {
    return s.rate > 0 ? static_cast<double>(s.frames) / s.rate : 0.0;
}

double speed(const Summary& s, double seconds) {
    return seconds > 0 ? duration_s(s) / seconds : std::numeric_limits<double>::infinity();
}

}  // namespace

double to_dbfs(double magnitude) {
    return magnitude > 0 ? 20.0 * std::log10(magnitude) : -std::numeric_limits<double>::infinity();
}

double gain_db(int32_t q15) {
    if (q15 >= LMTR_UNITY_GAIN) return 0.0;
    return to_dbfs(static_cast<double>(q15) / 32768.0);
}

std::string db_text(double db, int decimals) {
    if (std::isnan(db)) return "nan";
    if (std::isinf(db)) return db < 0 ? "-inf" : "+inf";
    db += 0.0;  // -0 becomes 0
    int places = decimals;
    while (places < 6 && db != 0.0 && std::fabs(db) < 0.5 * std::pow(10.0, -places)) ++places;
    if (db != 0.0 && std::fabs(db) < 0.5e-6) return printf_string("%+.1e", db);
    return printf_string("%+.*f", places, db);
}

namespace {

std::string unsigned_db(double db, int decimals) {
    std::string t = db_text(db, decimals);
    return t[0] == '+' ? t.substr(1) : t;
}

// What the tool and then the library do with a NaN or infinite sample.
const char* damage_treatment(LibFormat format) {
    switch (format) {
        case LibFormat::Float32:
            return "handed on as float NaN and infinity: the library takes a NaN as 0 and "
                   "silences the 64-frame block of an infinity";
        case LibFormat::Q5p27:
            return "NaN handed on as 0, infinities as +-16.0 (the Q5.27 ends): the library "
                   "brings each down to the target with its 64-frame block";
        case LibFormat::Q33p31:
            return "NaN handed on as 0, infinities as the Q33.31 ends (the Q1.31 ends in "
                   "bypass): the library silences the 64-frame block of each";
    }
    return "";
}

std::string count_text(uint64_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

}  // namespace

std::string summary_text(const Summary& s) {
    auto line = [](const char* label, const std::string& value) {
        return printf_string("  %-16s%s\n", label, value.c_str());
    };
    auto columns = [&](const char* label, const std::string& driven, const std::string& out) {
        return line(label, printf_string("%-15s%s", driven.c_str(), out.c_str()));
    };
    auto name = [](const std::string& p, const char* stdio) { return p == kStdio ? stdio : p; };
    std::string t;
    t += "taviklimit: " + name(s.input, "standard input") + " -> " +
         name(s.output, "standard output") + "\n";
    t += line("input", printf_string("%s, %s, %d Hz, %.2f s, peak %s dBFS",
                                     s.input_description.c_str(),
                                     s.channels == 2 ? "stereo" : "mono", s.rate, duration_s(s),
                                     db_text(to_dbfs(s.input_peak)).c_str()));
    t += line("processing", printf_string("%s, drive %s dB, period %u frames, latency %s",
                                          format_name(s.format), db_text(s.drive_db).c_str(),
                                          s.period,
                                          s.keep_latency ? "kept (64 frames)" : "compensated"));
    for (const auto& [a, b] : s.bypass_s) t += line("bypass", printf_string("%.4f s to %.4f s", a, b));
    t += line("output", s.output_description);
    t += line("threshold", db_text(to_dbfs(kThreshold), 4) + " dBFS; peaks above it come down to " +
                               db_text(to_dbfs(kTarget), 4) + " dBFS");
    t += line("gain reduction", s.min_gain == 0 ? std::string("to silence (gain 0) in some block")
                                                : unsigned_db(-gain_db(s.min_gain), 2) + " dB at most");
    t += line("blocks limited", printf_string("%llu of %llu (%.1f %%)",
                                              static_cast<unsigned long long>(s.blocks_limited),
                                              static_cast<unsigned long long>(s.blocks),
                                              100.0 * share(s.blocks_limited, s.blocks)));
    t += columns("", "driven input", "output");
    t += columns("sample peak", db_text(to_dbfs(s.driven_peak)) + " dBFS",
                 db_text(to_dbfs(s.output_peak)) + " dBFS");
    const double over = to_dbfs(s.output_loudness.true_peak) - to_dbfs(s.output_peak);
    t += columns("true peak", db_text(to_dbfs(s.driven.true_peak)) + " dBTP",
                 db_text(to_dbfs(s.output_loudness.true_peak)) + " dBTP" +
                     (std::isfinite(over) ? ", " + unsigned_db(over, 2) + " dB above the sample peak"
                                          : std::string()));
    t += columns("loudness", db_text(s.driven.integrated_lufs, 1) + " LUFS",
                 db_text(s.output_loudness.integrated_lufs, 1) + " LUFS");
    t += columns("loudness range", unsigned_db(s.driven.range_lu, 1) + " LU",
                 unsigned_db(s.output_loudness.range_lu, 1) + " LU");
    t += line("frames", printf_string("%llu in, %llu out, %llu calls",
                                      static_cast<unsigned long long>(s.frames),
                                      static_cast<unsigned long long>(s.frames_written),
                                      static_cast<unsigned long long>(s.calls)));
    t += line("speed", printf_string("%.0fx realtime (%.3f s; the limiter alone %.0fx; loudness "
                                     "and true peak %.3f s)",
                                     speed(s, s.elapsed_s), s.elapsed_s, speed(s, s.engine_s),
                                     s.measure_s));
    for (const std::string& w : summary_warnings(s)) t += "  warning: " + w + "\n";
    if (s.saturated_input > 0) {
        t += printf_string("  note: %llu input samples saturated to the %s range\n",
                           static_cast<unsigned long long>(s.saturated_input),
                           s.format == LibFormat::Q5p27 ? "Q5.27 (+-16.0)"
                           : s.format == LibFormat::Q33p31 ? "Q1.31 bypass" : "float");
    }
    if (s.above_threshold > 0) {
        t += "  note: " + count_text(s.above_threshold, "output sample", "output samples") +
             " above the threshold" +
             (s.bypass_s.empty() ? std::string()
                                 : ": bypass passes audio unlimited, and so do the 64 frames "
                                   "after each return to limiting") + "\n";
    }
    if (s.above_full_scale > 0) {
        t += printf_string("  note: %llu output samples above full scale (kept by the float output)\n",
                           static_cast<unsigned long long>(s.above_full_scale));
    }
    if (s.nonfinite_output > 0) {
        t += "  note: " + count_text(s.nonfinite_output, "NaN or infinite output sample",
                                     "NaN or infinite output samples") +
             " (bypass passes them on): a float output keeps them and the figures leave them "
             "out; an integer output stores NaN as 0 and infinities as full scale\n";
    }
    return t;
}

std::vector<std::string> summary_warnings(const Summary& s) {
    std::vector<std::string> w;
    if (!s.shortfall.empty()) w.push_back(s.shortfall);
    if (s.nan_input + s.infinite_input > 0) {
        w.push_back(count_text(s.nan_input, "NaN", "NaN") + " and " +
                    count_text(s.infinite_input, "infinite input sample", "infinite input samples") +
                    printf_string(", the first at %.4f s, ", s.first_damage_s) +
                    damage_treatment(s.format) +
                    "; the peaks leave them out and the loudness counts them as silence");
    }
    if (s.saturated_output > 0) {
        w.push_back(std::to_string(s.saturated_output) + " output samples clipped to full scale");
    }
    return w;
}

std::string summary_json(const Summary& s) {
    std::string bypass = "[";
    for (const auto& [a, b] : s.bypass_s) {
        if (bypass.size() > 1) bypass += ", ";
        bypass += "[" + json_number(a, "%.9g") + ", " + json_number(b, "%.9g") + "]";
    }
    bypass += "]";
    std::string j = "{\n";
    auto field = [&](const char* name, const std::string& value, bool last = false) {
        j += std::string("  \"") + name + "\": " + value + (last ? "\n" : ",\n");
    };
    auto count = [](uint64_t v) { return std::to_string(v); };
    auto db = [](double linear) { return json_number(to_dbfs(linear)); };
    field("input", json_string(s.input));
    field("output", json_string(s.output));
    field("input_encoding", json_string(s.input_description));
    field("output_encoding", json_string(s.output_description));
    field("sample_rate", std::to_string(s.rate));
    field("channels", std::to_string(s.channels));
    field("format", json_string(format_name(s.format)));
    field("drive_db", json_number(s.drive_db));
    field("period_frames", std::to_string(s.period));
    field("latency_compensated", s.keep_latency ? "false" : "true");
    field("bypass_s", bypass);
    field("frames", count(s.frames));
    field("frames_written", count(s.frames_written));
    field("duration_s", json_number(duration_s(s), "%.9g"));
    field("input_shortfall", s.shortfall.empty() ? "null" : json_string(s.shortfall));
    field("nan_input_samples", count(s.nan_input));
    field("infinite_input_samples", count(s.infinite_input));
    field("first_nonfinite_input_s", s.nan_input + s.infinite_input > 0
                                         ? json_number(s.first_damage_s, "%.9g") : "null");
    field("threshold_dbfs", db(kThreshold));
    field("target_dbfs", db(kTarget));
    field("input_peak_dbfs", db(s.input_peak));
    field("driven_peak_dbfs", db(s.driven_peak));
    field("driven_true_peak_dbtp", db(s.driven.true_peak));
    field("driven_loudness_lufs", json_number(s.driven.integrated_lufs));
    field("driven_loudness_range_lu", json_number(s.driven.range_lu));
    field("output_peak_dbfs", db(s.output_peak));
    field("output_true_peak_dbtp", db(s.output_loudness.true_peak));
    field("output_true_peak_over_sample_peak_db",
          json_number(to_dbfs(s.output_loudness.true_peak) - to_dbfs(s.output_peak)));
    field("output_loudness_lufs", json_number(s.output_loudness.integrated_lufs));
    field("output_loudness_range_lu", json_number(s.output_loudness.range_lu));
    field("largest_gain_reduction_db", json_number(-gain_db(s.min_gain)));
    field("min_gain_q15", std::to_string(s.min_gain));
    field("blocks", count(s.blocks));
    field("blocks_limited", count(s.blocks_limited));
    field("blocks_limited_share", json_number(share(s.blocks_limited, s.blocks), "%.6f"));
    field("saturated_input_samples", count(s.saturated_input));
    field("clipped_output_samples", count(s.saturated_output));
    field("output_samples_above_full_scale", count(s.above_full_scale));
    field("output_samples_above_threshold", count(s.above_threshold));
    field("nonfinite_output_samples", count(s.nonfinite_output));
    field("process_calls", count(s.calls));
    field("elapsed_s", json_number(s.elapsed_s, "%.6f"));
    field("measure_s", json_number(s.measure_s, "%.6f"));
    field("speed_x_realtime", json_number(speed(s, s.elapsed_s), "%.1f"));
    field("limiter_speed_x_realtime", json_number(speed(s, s.engine_s), "%.1f"), true);
    return j + "}\n";
}

std::string gain_log_csv(const std::vector<int32_t>& block_gains, int rate) {
    std::string csv = "time_s,gain_db\n";
    for (size_t k = 0; k < block_gains.size(); ++k) {
        const double t = static_cast<double>(k * LMTR_BLOCK_FRAMES) / rate;
        csv += printf_string("%.6f,%.4f\n", t, gain_db(block_gains[k]));
    }
    return csv;
}

}  // namespace taviklimit
