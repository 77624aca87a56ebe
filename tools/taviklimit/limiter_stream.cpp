#include "limiter_stream.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>

#include "sample_convert.h"

namespace taviklimit {
namespace {

constexpr int64_t kProbeWord = int64_t{1} << 30;  // 0.5 in Q33.31
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

uint64_t magnitude(int64_t w) {
    return w < 0 ? uint64_t{0} - static_cast<uint64_t>(w) : static_cast<uint64_t>(w);
}

std::unique_ptr<uint64_t[]> allocate(uint32_t bytes) {
    return std::make_unique<uint64_t[]>((bytes + 7) / 8);
}

}  // namespace

LimiterStream::Instance LimiterStream::open_instance(uint32_t channels, uint32_t pcm_format) {
    uint32_t instance_size = 0;
    uint32_t scratch_size = 0;
    check(Limiter_GetBufferSize(&instance_size, &scratch_size, pcm_format), "Limiter_GetBufferSize");
    Instance inst;
    inst.memory = allocate(instance_size);
    const LimiterConfig config{channels, 0, pcm_format, LMTR_STATE_LIMITING};
    check(Limiter_Open(&inst.handle, inst.memory.get(), &config), "Limiter_Open");
    return inst;
}

LimiterStream::LimiterStream(LibFormat format, int channels)
    : format_(format), channels_(channels) {
    audio_ = open_instance(static_cast<uint32_t>(channels), pcm_code(format));
    probe_ = open_instance(2, LMTR_PCM_Q33P31);
    uint32_t instance_size = 0;
    uint32_t scratch_size = 0;
    check(Limiter_GetBufferSize(&instance_size, &scratch_size, pcm_code(format)),
          "Limiter_GetBufferSize");
    scratch_ = allocate(scratch_size);  // one scratch serves both: calls never overlap
}

void LimiterStream::set_bypass(bool on) {
    const LimiterParam param{on ? uint32_t{LMTR_CMD_SET_BYPASS} : uint32_t{LMTR_CMD_SET_LIMITING}, 0};
    check(Limiter_SetParameters(audio_.handle, &param), "Limiter_SetParameters");
    check(Limiter_SetParameters(probe_.handle, &param), "Limiter_SetParameters");
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
    int64_t* dst = in_probe_.data() + first_frame * 2;
    for (size_t f = 0; f < frames; ++f) {
        int64_t peak = widened_[f * channels_];
        if (channels_ == 2) {
            const int64_t right = widened_[f * 2 + 1];
            if (magnitude(right) > magnitude(peak)) peak = right;
        }
        dst[2 * f] = peak;
        dst[2 * f + 1] = kProbeWord;
    }
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
    check(Limiter_Process(audio_.handle, scratch_.get(), input, &in_bytes, output, &out_bytes),
          "Limiter_Process");
    engine_seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    ++calls_;
    const size_t done = out_bytes / (4 * static_cast<size_t>(channels_));

    out_probe_.resize(pending_frames_ * 2);
    uint32_t probe_in = static_cast<uint32_t>(pending_frames_ * 2 * sizeof(int64_t));
    uint32_t probe_out = static_cast<uint32_t>(pending_frames_ * 2 * sizeof(int32_t));
    check(Limiter_Process(probe_.handle, scratch_.get(), in_probe_.data(), &probe_in,
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
        gains.push_back(std::min<int32_t>(out_probe_[2 * f + 1] >> 15, LMTR_UNITY_GAIN));
    }
    drop_consumed(done);
    return done;
}

}  // namespace taviklimit
