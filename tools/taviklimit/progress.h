// A one-line progress bar on standard error.
#pragma once

#include <chrono>
#include <cstdint>

namespace taviklimit {

class Progress {
public:
    // Draws nothing unless enabled.
    Progress(uint64_t total_frames, int rate, bool enabled);
    // Redraws at most ten times a second.
    void update(uint64_t frames_done);
    // Draws the full bar and ends the line.
    void finish();

    // Wanted when not quiet, standard error is a terminal and the input is
    // longer than five seconds.
    static bool wanted(bool quiet, uint64_t total_frames, int rate);

private:
    void draw(uint64_t frames_done);

    uint64_t total_;
    int rate_;
    bool enabled_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point last_{};
};

}  // namespace taviklimit
