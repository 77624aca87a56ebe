#include "limiter_stream.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>

#include "gain_probe.h"
#include "sample_convert.h"

namespace taviklimit {
namespace {

constexpr size_t kBlock = LMTR_BLOCK_FRAMES;

uint32_t pcm_code(LibFormat f) {
    switch (f) {
        case LibFormat::Float32: return LMTR_PCM_FLOAT32;
        case LibFormat::Q5p27: return LMTR_PCM_Q5P27;
        case LibFormat::Q33p31: return LMTR_PCM_Q33P31;
    }
    return LMTR_PCM_FLOAT32;
}

void check(int32_t rc, const char* call) {
    if (rc != LMTR_OK) throw std::runtime_error(std::string(call) + " failed (" + std::to_string(rc) + ")");
}

std::unique_ptr<uint64_t[]> allocate(uint32_t bytes) {
    return std::make_unique<uint64_t[]>((bytes + 7) / 8);
}

}  // namespace

LimiterStream::LimiterStream(LibFormat format, int channels)
    : format_(format), channels_(channels) {
    uint32_t instance_size = 0;
    uint32_t scratch_size = 0;
    check(Limiter_GetBufferSize(&instance_size, &scratch_size, pcm_code(format)),
          "Limiter_GetBufferSize");
    audio_memory_ = allocate(instance_size);
    probe_memory_ = allocate(instance_size);  // LMTR_INSTANCE_SIZE in every format
    scratch_ = allocate(scratch_size);        // one scratch serves both: calls never overlap
    const LimiterConfig config{static_cast<uint32_t>(channels), 0, pcm_code(format), LMTR_STATE_LIMITING};
    check(Limiter_Open(&audio_, audio_memory_.get(), &config), "Limiter_Open");
    check(gain_probe::open(&probe_, probe_memory_.get()), "Limiter_Open");
}

void LimiterStream::set_bypass(bool on) {
    const LimiterParam param{on ? uint32_t{LMTR_CMD_SET_BYPASS} : uint32_t{LMTR_CMD_SET_LIMITING}, 0};
    check(Limiter_SetParameters(audio_, &param), "Limiter_SetParameters");
    check(Limiter_SetParameters(probe_, &param), "Limiter_SetParameters");
    bypass_ = on;
}

void LimiterStream::append_input(const double* in, size_t frames) {
    const size_t at = pending_frames_ * channels_;
    const size_t n = frames * channels_;
    switch (format_) {
        case LibFormat::Float32:
            in_f32_.resize(at + n);
            saturated_ += to_float32(in, in_f32_.data() + at, n);
            widened_.resize(n);
            copy_float32_to_q33p31(in_f32_.data() + at, widened_.data(), static_cast<uint32_t>(n));
            break;
        case LibFormat::Q5p27:
            in_q5p27_.resize(at + n);
            saturated_ += to_q5p27(in, in_q5p27_.data() + at, n);
            widened_.resize(n);
            copy_q5p27_to_q33p31(in_q5p27_.data() + at, widened_.data(), static_cast<uint32_t>(n));
            break;
        case LibFormat::Q33p31:
            in_q33p31_.resize(at + n);
            // In bypass the library narrows by keeping the low 32 bits.
            saturated_ += to_q33p31(in, in_q33p31_.data() + at, n, bypass_);
            widened_.assign(in_q33p31_.begin() + static_cast<ptrdiff_t>(at),
                            in_q33p31_.end());
            break;
    }
}

void LimiterStream::append_probe(size_t first_frame, size_t frames) {
    in_probe_.resize((first_frame + frames) * 2);
    gain_probe::fill(widened_.data(), static_cast<uint32_t>(channels_), frames,
                     in_probe_.data() + first_frame * 2);
}

void LimiterStream::drop_consumed(size_t frames) {
    const size_t samples = frames * channels_;
    auto shift = [&](auto& v, size_t n) { v.erase(v.begin(), v.begin() + static_cast<ptrdiff_t>(n)); };
    switch (format_) {
        case LibFormat::Float32: shift(in_f32_, samples); break;
        case LibFormat::Q5p27: shift(in_q5p27_, samples); break;
        case LibFormat::Q33p31: shift(in_q33p31_, samples); break;
    }
    shift(in_probe_, frames * 2);
    pending_frames_ -= frames;
    consumed_ += frames;
}

size_t LimiterStream::process(const double* in, size_t frames, std::vector<double>& out,
                              std::vector<int32_t>& gains) {
    const size_t first_new = pending_frames_;
    append_input(in, frames);
    append_probe(first_new, frames);
    pending_frames_ += frames;

    const size_t samples = pending_frames_ * channels_;
    const void* input = nullptr;
    uint32_t in_bytes = 0;
    switch (format_) {
        case LibFormat::Float32:
            input = in_f32_.data();
            in_bytes = static_cast<uint32_t>(samples * sizeof(float));
            out_f32_.resize(samples);
            break;
        case LibFormat::Q5p27:
            input = in_q5p27_.data();
            in_bytes = static_cast<uint32_t>(samples * sizeof(int32_t));
            out_words_.resize(samples);
            break;
        case LibFormat::Q33p31:
            input = in_q33p31_.data();
            in_bytes = static_cast<uint32_t>(samples * sizeof(int64_t));
            out_words_.resize(samples);
            break;
    }
    void* output = format_ == LibFormat::Float32 ? static_cast<void*>(out_f32_.data())
                                                  : static_cast<void*>(out_words_.data());
    uint32_t out_bytes = static_cast<uint32_t>(samples * 4);

    const auto t0 = std::chrono::steady_clock::now();
    check(Limiter_Process(audio_, scratch_.get(), input, &in_bytes, output, &out_bytes),
          "Limiter_Process");
    engine_seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    ++calls_;
    const size_t done = out_bytes / (4 * static_cast<size_t>(channels_));

    out_probe_.resize(pending_frames_ * 2);
    uint32_t probe_in = static_cast<uint32_t>(pending_frames_ * 2 * sizeof(int64_t));
    uint32_t probe_out = static_cast<uint32_t>(pending_frames_ * 2 * sizeof(int32_t));
    check(Limiter_Process(probe_, scratch_.get(), in_probe_.data(), &probe_in,
                          out_probe_.data(), &probe_out),
          "Limiter_Process");
    if (probe_out / (2 * sizeof(int32_t)) != done || done % kBlock != 0) {
        throw std::runtime_error("the gain probe fell out of step");
    }

    const size_t n = done * channels_;
    const size_t at = out.size();
    out.resize(at + n);
    switch (format_) {
        case LibFormat::Float32: from_float32(out_f32_.data(), out.data() + at, n); break;
        case LibFormat::Q5p27: from_q5p27(out_words_.data(), out.data() + at, n); break;
        case LibFormat::Q33p31: from_q1p31(out_words_.data(), out.data() + at, n); break;
    }
    for (size_t f = 0; f < done; ++f) {
        gains.push_back(std::min<int32_t>(gain_probe::factor(out_probe_.data(), f), LMTR_UNITY_GAIN));
    }
    drop_consumed(done);
    return done;
}

}  // namespace taviklimit
