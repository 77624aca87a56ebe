// taviklimit: runs an audio file through the taviklimiter library the way a
// host program does and reports what the limiter did. See usage.cpp.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>

#include <taviklimiter.h>

#include "atomic_file.h"
#include "audio_io.h"
#include "bypass_schedule.h"
#include "errors.h"
#include "options.h"
#include "output_sink.h"
#include "progress.h"
#include "report.h"
#include "run.h"
#include "usage.h"

namespace taviklimit {
namespace {

constexpr const char* kToolVersion = "1.0.0";

// An existing output that is the input under another name (a different
// spelling, a symbolic or a hard link) is the same device and inode.
void refuse_same_file(const std::string& input, const std::string& output) {
    struct stat in {};
    struct stat out {};
    if (input != kStdio && output != kStdio && stat(input.c_str(), &in) == 0 &&
        stat(output.c_str(), &out) == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino) {
        throw UsageError("output '" + output + "' is the input file");
    }
}

int run_tool(int argc, char** argv) {
    const Options options = parse_options(argc, argv);
    if (options.help) {
        std::fputs(usage_text(), stdout);
        return kExitOk;
    }
    if (options.version) {
        std::printf("taviklimit %s, %s\n", kToolVersion, Limiter_Get_Version());
        return kExitOk;
    }

    const bool to_stdout = options.output == kStdio;
    if (to_stdout && isatty(STDOUT_FILENO) == 1) {
        throw UsageError("standard output is a terminal; redirect it or name an OUTPUT file");
    }
    SndReader reader(options.input, options.raw_input);
    const InputInfo& in = reader.info();
    if (in.channels < 1 || in.channels > 2) {
        throw FileError(display_name(options.input) + " has " + std::to_string(in.channels) +
                        " channels; only mono and stereo are supported");
    }
    refuse_same_file(options.input, options.output);
    for (const std::string* side : {&options.json_path, &options.gain_log_path}) {
        if (!side->empty()) refuse_same_file(options.input, *side);
    }
    const OutputEncoding encoding =
        choose_output_encoding(options.output, options.output_type, to_stdout && stdout_is_stream(),
                               in, options.subtype);
    const std::vector<FrameRange> bypass = align_bypass(options.bypass, in.rate);

    install_cleanup_handlers();
    const auto started = std::chrono::steady_clock::now();
    std::optional<uint64_t> output_frames = in.frames;
    if (output_frames && options.keep_latency) *output_frames += LMTR_BLOCK_FRAMES;
    SndWriter writer(options.output, encoding, in.rate, in.channels, output_frames);
    OutputSink sink(writer, encoding, in.channels, in.rate, options.keep_latency);
    const uint64_t announced = in.frames.value_or(0);
    Progress progress(announced, in.rate, Progress::wanted(options.quiet, announced, in.rate));

    Summary summary;
    run(options, reader, bypass, sink, progress, summary);
    summary.shortfall = reader.shortfall();
    if (options.strict && !summary.shortfall.empty()) {
        throw FileError(summary.shortfall + " (--strict)");
    }
    if (options.strict && summary.nan_input + summary.infinite_input > 0) {
        throw FileError(display_name(options.input) + " holds " +
                        std::to_string(summary.nan_input + summary.infinite_input) +
                        " NaN or infinite samples (--strict)");
    }
    writer.commit();
    summary.elapsed_s =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    progress.finish();

    summary.input = options.input;
    summary.output = options.output;
    summary.input_description = describe_format(in.sf_format);
    summary.output_description = describe_format(encoding.sf_format);
    summary.rate = in.rate;
    summary.channels = in.channels;
    summary.frames_written = sink.frames_written();
    summary.format = options.format;
    summary.drive_db = options.drive_db;
    summary.period = options.period;
    summary.keep_latency = options.keep_latency;
    for (const FrameRange& r : bypass) {
        summary.bypass_s.emplace_back(static_cast<double>(r.start) / in.rate,
                                      static_cast<double>(r.end) / in.rate);
    }
    summary.output_peak = sink.peak();
    summary.output_loudness = sink.meter().result();
    summary.measure_s += sink.meter().seconds();
    summary.saturated_output = sink.saturated_samples();
    summary.above_full_scale = sink.above_full_scale();
    summary.above_threshold = sink.above_threshold();
    summary.nonfinite_output = sink.nonfinite_samples();
    summary.blocks = sink.block_gains().size();
    for (const int32_t g : sink.block_gains()) {
        summary.min_gain = std::min(summary.min_gain, g);
        if (g < LMTR_UNITY_GAIN) ++summary.blocks_limited;
    }

    if (!options.json_path.empty()) write_text_file(options.json_path, summary_json(summary));
    if (!options.gain_log_path.empty()) {
        write_text_file(options.gain_log_path, gain_log_csv(sink.block_gains(), in.rate));
    }
    // The summary goes to standard error when standard output carries the audio.
    if (!options.quiet) std::fputs(summary_text(summary).c_str(), to_stdout ? stderr : stdout);
    if (options.quiet) {
        // Not errors, but never silent: the output differs from what was asked.
        for (const std::string& w : summary_warnings(summary)) {
            std::fprintf(stderr, "taviklimit: warning: %s\n", w.c_str());
        }
    }
    return kExitOk;
}

}  // namespace
}  // namespace taviklimit

int main(int argc, char** argv) {
    using namespace taviklimit;
    try {
        return run_tool(argc, argv);
    } catch (const UsageError& e) {
        std::fprintf(stderr, "taviklimit: %s (see --help)\n", e.what());
        return kExitUsage;
    } catch (const FileError& e) {
        std::fprintf(stderr, "taviklimit: %s\n", e.what());
        return kExitFile;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "taviklimit: %s\n", e.what());
        return kExitFile;
    }
}
