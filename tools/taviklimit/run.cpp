#include "run.h"

#include <taviklimiter.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "limiter_stream.h"
#include "loudness_meter.h"

namespace taviklimit {

void run(const Options& options, SndReader& reader, const std::vector<FrameRange>& bypass,
         OutputSink& sink, Progress& progress, Summary& summary) {
    const int channels = reader.info().channels;
    LimiterStream stream(options.format, channels);
    LoudnessMeter meter(channels, reader.info().rate);  // of the driven input

    // The switch points, in stream frames: into bypass, back, into bypass...
    std::vector<uint64_t> switches;
    for (const FrameRange& r : bypass) {
        switches.push_back(r.start);
        switches.push_back(r.end);
    }
    size_t next_switch = 0;

    const double drive = std::pow(10.0, options.drive_db / 20.0);  // exactly 1 for 0 dB
    std::vector<double> in(static_cast<size_t>(options.period) * channels);
    std::vector<double> out;
    std::vector<int32_t> gains;
    uint64_t fed = 0;              // stream frames offered so far, silence included
    bool input_done = false;
    uint64_t silence_left = 0;     // flush frames still to feed once the input is done

    while (true) {
        // A switch takes effect on a block boundary: when everything offered
        // so far has been consumed and the stream stands exactly on it.
        while (next_switch < switches.size() && switches[next_switch] == fed &&
               stream.frames_consumed() == fed) {
            stream.set_bypass(next_switch % 2 == 0);
            ++next_switch;
        }
        size_t want = options.period;
        if (next_switch < switches.size()) {
            want = static_cast<size_t>(std::min<uint64_t>(want, switches[next_switch] - fed));
            if (want == 0) throw std::logic_error("a bypass switch fell between blocks");
        }

        size_t got = 0;
        if (!input_done) {
            got = reader.read(in.data(), want);
            if (got == 0) {
                input_done = true;
                summary.frames = fed;
                sink.set_input_frames(fed);
                // Complete the partial block, then one block more to push the
                // last input block out of the delay line.
                silence_left = (LMTR_BLOCK_FRAMES - fed % LMTR_BLOCK_FRAMES) % LMTR_BLOCK_FRAMES +
                               LMTR_BLOCK_FRAMES;
            } else {
                const size_t n = got * channels;
                for (size_t i = 0; i < n; ++i) {
                    if (!std::isfinite(in[i])) {
                        // Handed on as they are; the peaks leave them out.
                        if (summary.nan_input + summary.infinite_input == 0) {
                            summary.first_damage_s = static_cast<double>(fed + i / channels) /
                                                     reader.info().rate;
                        }
                        ++(std::isnan(in[i]) ? summary.nan_input : summary.infinite_input);
                        continue;
                    }
                    summary.input_peak = std::max(summary.input_peak, std::fabs(in[i]));
                    in[i] *= drive;
                    summary.driven_peak = std::max(summary.driven_peak, std::fabs(in[i]));
                }
                meter.add(in.data(), got);
            }
        }
        if (input_done) {
            if (silence_left == 0) break;
            got = static_cast<size_t>(std::min<uint64_t>(want, silence_left));
            std::fill_n(in.begin(), got * channels, 0.0);
            silence_left -= got;
        }

        out.clear();
        gains.clear();
        const size_t produced = stream.process(in.data(), got, out, gains);
        fed += got;
        sink.consume(out.data(), gains.data(), produced);
        if (!input_done) progress.update(fed);
    }
    if (stream.leftover_frames() != 0) throw std::runtime_error("frames left in the stream");
    summary.calls = stream.calls();
    summary.saturated_input = stream.saturated_samples();
    summary.engine_s = stream.engine_seconds();
    summary.driven = meter.result();
    summary.measure_s += meter.seconds();
}

}  // namespace taviklimit
