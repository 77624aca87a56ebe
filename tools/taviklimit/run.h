// The processing loop: reads the input period by period, applies the drive,
// switches bypass on the block grid, runs the LimiterStream, flushes the
// last partial block and the latency with silence, and hands the output to
// the sink.
#pragma once

#include <vector>

#include "audio_io.h"
#include "bypass_schedule.h"
#include "options.h"
#include "output_sink.h"
#include "progress.h"
#include "report.h"

namespace taviklimit {

// Fills the input-side and engine figures of summary (frames, peaks, calls,
// saturated input, engine time).
void run(const Options& options, SndReader& reader, const std::vector<FrameRange>& bypass,
         OutputSink& sink, Progress& progress, Summary& summary);

}  // namespace taviklimit
