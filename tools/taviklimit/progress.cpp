#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace taviklimit {

constexpr double kMinSeconds = 5.0;
constexpr int kWidth = 40;

bool Progress::wanted(bool quiet, uint64_t total_frames, int rate) {
    return !quiet && isatty(STDERR_FILENO) == 1 && rate > 0 &&
           static_cast<double>(total_frames) / rate > kMinSeconds;
}

Progress::Progress(uint64_t total_frames, int rate, bool enabled)
    : total_(total_frames), rate_(rate), enabled_(enabled && total_frames > 0) {}

void Progress::update(uint64_t frames_done) {
    if (!enabled_) return;
    const auto now = std::chrono::steady_clock::now();
    if (drawn_ && now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    draw(frames_done);
}

void Progress::finish() {
    if (!enabled_) return;
    draw(total_);
    std::fputc('\n', stderr);
    std::fflush(stderr);
}

void Progress::draw(uint64_t frames_done) {
    const double share = std::min(1.0, static_cast<double>(frames_done) / static_cast<double>(total_));
    const int filled = static_cast<int>(share * kWidth);
    std::string bar(static_cast<size_t>(filled), '#');
    bar.resize(kWidth, '-');
    std::fprintf(stderr, "\r%3d%% [%s] %.1f / %.1f s", static_cast<int>(share * 100), bar.c_str(),
                 static_cast<double>(std::min(frames_done, total_)) / rate_,
                 static_cast<double>(total_) / rate_);
    std::fflush(stderr);
    drawn_ = true;
}

}  // namespace taviklimit
