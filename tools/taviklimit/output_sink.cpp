#include "output_sink.h"

#include <taviklimiter.h>

#include <algorithm>
#include <cmath>

#include "levels.h"
#include "sample_convert.h"

namespace taviklimit {

OutputSink::OutputSink(SndWriter& writer, const OutputEncoding& encoding, int channels, int rate,
                       bool keep_latency)
    : writer_(writer),
      encoding_(encoding),
      channels_(channels),
      skip_(keep_latency ? 0 : LMTR_BLOCK_FRAMES),
      meter_(channels, rate) {}

void OutputSink::set_input_frames(uint64_t frames) {
    // Input frame i leaves as stream frame i + 64.
    end_ = frames + LMTR_BLOCK_FRAMES;
}

void OutputSink::consume(const double* samples, const int32_t* gains, size_t frames) {
    const uint64_t begin = std::max(position_, skip_);
    const uint64_t end = std::min(position_ + frames, end_.value_or(UINT64_MAX));
    if (end > begin) {
        const size_t first = static_cast<size_t>(begin - position_);
        const size_t count = static_cast<size_t>(end - begin);
        const double* src = samples + first * channels_;
        const size_t n = count * channels_;
        nonfinite_ += static_cast<uint64_t>(
            std::count_if(src, src + n, [](double x) { return !std::isfinite(x); }));
        stored_.resize(n);
        if (encoding_.int_bits > 0) {
            words_.resize(n);
            saturated_ += to_integer_words(src, words_.data(), n, encoding_.int_bits);
            for (size_t i = 0; i < n; ++i) stored_[i] = std::ldexp(static_cast<double>(words_[i]), -31);
            writer_.write(words_.data(), count);
        } else {
            // Float files (and the lossy codecs, before encoding) store
            // floats; double files doubles.
            const bool doubles = (encoding_.sf_format & SF_FORMAT_SUBMASK) == SF_FORMAT_DOUBLE;
            for (size_t i = 0; i < n; ++i) stored_[i] = doubles ? src[i] : static_cast<float>(src[i]);
            writer_.write(src, count);
        }
        measure(count);
        for (size_t f = 0; f < count; ++f) {
            const uint64_t out_frame = written_ + f;
            const int32_t g = gains[first + f];
            if (out_frame % LMTR_BLOCK_FRAMES == 0) {
                block_gains_.push_back(g);
            } else {
                block_gains_.back() = std::min(block_gains_.back(), g);
            }
        }
        written_ += count;
    }
    position_ += frames;
}

void OutputSink::measure(size_t frames) {
    const size_t n = frames * channels_;
    for (size_t i = 0; i < n; ++i) {
        const double m = std::fabs(stored_[i]);
        if (!std::isfinite(m)) continue;
        peak_ = std::max(peak_, m);
        above_threshold_ += m > kThresholdStored;
        above_full_scale_ += m > 1.0;
    }
    meter_.add(stored_.data(), frames);
}

}  // namespace taviklimit
