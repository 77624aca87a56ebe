#include "report.h"

#include <taviklimiter.h>

#include <cmath>
#include <cstdio>
#include <limits>

namespace taviklimit {
namespace {

std::string printf_string(const char* fmt, auto... args) {
    const int n = std::snprintf(nullptr, 0, fmt, args...);
    std::string s(static_cast<size_t>(n), '\0');
    std::snprintf(s.data(), s.size() + 1, fmt, args...);
    return s;
}

std::string db_text(double db) {
    return std::isinf(db) ? std::string("-inf") : printf_string("%+.2f", db);
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

// A number, or null where JSON has none (silence has no dBFS).
std::string json_number(double v, const char* fmt = "%.6g") {
    return std::isfinite(v) ? printf_string(fmt, v) : std::string("null");
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

std::string summary_text(const Summary& s) {
    std::string t;
    t += "taviklimit: " + s.input + " -> " + s.output + "\n";
    t += printf_string("  input           %s, %s, %d Hz, %.2f s\n", s.input_description.c_str(),
                       s.channels == 2 ? "stereo" : "mono", s.rate, duration_s(s));
    std::string processing = printf_string("%s, drive %+.2f dB, period %u frames, latency %s",
                                           format_name(s.format), s.drive_db, s.period,
                                           s.keep_latency ? "kept (64 frames)" : "compensated");
    t += "  processing      " + processing + "\n";
    for (const auto& [a, b] : s.bypass_s) t += printf_string("  bypass          %.4f s to %.4f s\n", a, b);
    t += "  output          " + s.output_description + "\n";
    t += "  input peak      " + db_text(to_dbfs(s.input_peak)) + " dBFS";
    if (s.drive_db != 0.0) t += " (" + db_text(to_dbfs(s.driven_peak)) + " dBFS after drive)";
    t += "\n";
    t += "  output peak     " + db_text(to_dbfs(s.output_peak)) + " dBFS\n";
    t += "  gain reduction  " + printf_string("%.2f dB at most", -gain_db(s.min_gain)) + "\n";
    t += printf_string("  blocks limited  %llu of %llu (%.1f %%)\n",
                       static_cast<unsigned long long>(s.blocks_limited),
                       static_cast<unsigned long long>(s.blocks), 100.0 * share(s.blocks_limited, s.blocks));
    t += printf_string("  frames          %llu in, %llu out, %llu calls\n",
                       static_cast<unsigned long long>(s.frames),
                       static_cast<unsigned long long>(s.frames_written),
                       static_cast<unsigned long long>(s.calls));
    t += printf_string("  speed           %.0fx realtime (%.3f s; the limiter alone %.0fx)\n",
                       speed(s, s.elapsed_s), s.elapsed_s, speed(s, s.engine_s));
    if (s.saturated_input > 0) {
        t += printf_string("  note: %llu input samples saturated to the %s range\n",
                           static_cast<unsigned long long>(s.saturated_input),
                           s.format == LibFormat::Q5p27 ? "Q5.27 (+-16.0)"
                           : s.format == LibFormat::Q33p31 ? "Q1.31 bypass" : "float");
    }
    if (s.saturated_output > 0) {
        t += printf_string("  note: %llu output samples clipped to full scale\n",
                           static_cast<unsigned long long>(s.saturated_output));
    }
    if (s.above_full_scale > 0) {
        t += printf_string("  note: %llu output samples above full scale (kept by the float output)\n",
                           static_cast<unsigned long long>(s.above_full_scale));
    }
    return t;
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
    field("input_peak_dbfs", json_number(to_dbfs(s.input_peak), "%.4f"));
    field("driven_peak_dbfs", json_number(to_dbfs(s.driven_peak), "%.4f"));
    field("output_peak_dbfs", json_number(to_dbfs(s.output_peak), "%.4f"));
    field("largest_gain_reduction_db", json_number(-gain_db(s.min_gain), "%.4f"));
    field("min_gain_q15", std::to_string(s.min_gain));
    field("blocks", count(s.blocks));
    field("blocks_limited", count(s.blocks_limited));
    field("blocks_limited_share", json_number(share(s.blocks_limited, s.blocks), "%.6f"));
    field("saturated_input_samples", count(s.saturated_input));
    field("clipped_output_samples", count(s.saturated_output));
    field("output_samples_above_full_scale", count(s.above_full_scale));
    field("process_calls", count(s.calls));
    field("elapsed_s", json_number(s.elapsed_s, "%.6f"));
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
