// The bypass path: audio passes unscaled, but still through the one-block
// delay line, so the latency stays 64 frames and no sample is dropped or
// repeated across a switch. In bypass the delay line holds its block in the
// input's own format (Q33.31 input leaves narrowed to Q1.31).
//
// The switch from limiting fades twice on the call's first block: the held
// block leaves faded from the gain reached so far (cur_gain) to the gain it
// needs itself (last_min_gain), and the first input block is held faded from
// that gain back up to unity. Every later block passes untouched.
#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"
#include "engine/engine.h"

namespace tvl {

namespace {

struct Blocks {
    uint32_t samples;      // samples per block
    size_t bytes32;        // one block of 32-bit samples
    size_t bytes64;        // one block of Q33.31 samples
};

// The switch from limiting into bypass, on the first block of the call.
// Advances the cursors past that block.
void switch_into_bypass(LimiterHandle& rec, const Blocks& b, const unsigned char*& input, unsigned char*& output,
                        int64_t* scratch_block) {
    const int32_t stereo = int32_t(rec.is_stereo);
    const int32_t g0 = rec.cur_gain, g1 = rec.last_min_gain;
    unsigned char* held = rec.delay_line;
    if (!(g0 == kUnityGain && g1 == kUnityGain)) {
        auto* held64 = reinterpret_cast<int64_t*>(held);
        active::apply_ramp_gain_for_q33p31(stereo, g0, g1, held64, held64, LMTR_RAMP_TABLE, kBlockFrames, 1);
    }
    if (rec.pcm_format == LMTR_PCM_Q33P31) {
        copy_bytes(scratch_block, input, b.bytes64);
        active::move_from_q33p31_to_q1p31(reinterpret_cast<const int64_t*>(held), reinterpret_cast<int32_t*>(output),
                                  b.samples);
        copy_bytes(held, scratch_block, b.bytes64);
        if (g1 != kUnityGain) {
            auto* held64 = reinterpret_cast<int64_t*>(held);
            active::apply_ramp_gain_for_q33p31(stereo, g1, kUnityGain, held64, held64, LMTR_RAMP_TABLE, kBlockFrames, 1);
        }
        input += b.bytes64;
    } else {
        reencode_delay_line(held, LMTR_PCM_Q33P31, rec.pcm_format, b.samples);
        copy_bytes(scratch_block, input, b.bytes32);
        copy_bytes(output, held, b.bytes32);
        copy_bytes(held, scratch_block, b.bytes32);
        if (g1 != kUnityGain && rec.pcm_format == LMTR_PCM_FLOAT32) {
            auto* heldf = reinterpret_cast<float*>(held);
            active::apply_ramp_gain_for_float32(stereo, g1, kUnityGain, heldf, heldf, LMTR_RAMP_TABLE, kBlockFrames, 1);
        } else if (g1 != kUnityGain && rec.pcm_format == LMTR_PCM_Q5P27) {
            auto* held32 = reinterpret_cast<int32_t*>(held);
            active::apply_ramp_gain_for_q5p27(stereo, g1, kUnityGain, held32, held32, LMTR_RAMP_TABLE, kBlockFrames, 1);
        }
        input += b.bytes32;
    }
    output += b.bytes32;
    rec.cur_gain = kUnityGain;
    rec.last_min_gain = kUnityGain;
    rec.prev_state = LMTR_STATE_BYPASS;
    rec.prev_pcm_format = rec.pcm_format;
}

// n blocks through the delay line: the output is the held block followed by
// input blocks 0 to n - 2, and input block n - 1 is held. The order of moves
// keeps input and output at the same address correct: the blocks that the
// output overwrites before they are read are saved first.
void steady_copy(const LimiterHandle& rec, const Blocks& b, const unsigned char* input, unsigned char* output,
                 int64_t* scratch_block, uint32_t n) {
    unsigned char* held = rec.delay_line;
    if (rec.pcm_format != LMTR_PCM_Q33P31) {
        copy_bytes(scratch_block, input + (n - 1) * b.bytes32, b.bytes32);
        move_bytes(output + b.bytes32, input, (n - 1) * b.bytes32);
        copy_bytes(output, held, b.bytes32);
        copy_bytes(held, scratch_block, b.bytes32);
        return;
    }
    // Q33.31 in, Q1.31 out: 8 bytes read for every 4 written, so each output
    // block lies at or below its input block.
    auto narrow = [&](const void* src, void* dst, uint32_t count) {
        active::move_from_q33p31_to_q1p31(static_cast<const int64_t*>(src), static_cast<int32_t*>(dst), count);
    };
    copy_bytes(scratch_block, input, b.bytes64);
    narrow(held, output, b.samples);
    if (n == 1) {
        copy_bytes(held, scratch_block, b.bytes64);
        return;
    }
    narrow(scratch_block, output + b.bytes32, b.samples);
    copy_bytes(held, input + (n - 1) * b.bytes64, b.bytes64);
    narrow(input + b.bytes64, output + 2 * b.bytes32, (n - 2) * b.samples);
}

}  // namespace

int32_t run_bypass_path(LimiterHandle& rec, const unsigned char* input, unsigned char* output,
                        int64_t* scratch_block, uint32_t frames) {
    const uint32_t samples = samples_per_block(rec.is_stereo);
    const Blocks b{samples, samples * 4u, samples * 8u};
    uint32_t remaining = frames;
    bool damaged = false;

    if (rec.prev_state == LMTR_STATE_LIMITING) {
        if (rec.prev_pcm_format != LMTR_PCM_Q33P31) {
            damaged = true;  // limiting recorded with another format held: touch no audio
        } else {
            switch_into_bypass(rec, b, input, output, scratch_block);
            remaining -= kBlockFrames;
        }
    }
    if (!valid_pcm_format(rec.prev_pcm_format) || !valid_pcm_format(rec.pcm_format)) return LMTR_ERR_PCM_FORMAT;

    // A format change while in bypass: the held block leaves in the new format.
    reencode_delay_line(rec.delay_line, rec.prev_pcm_format, rec.pcm_format, samples);
    rec.prev_pcm_format = rec.pcm_format;
    if (damaged) return LMTR_ERR_PCM_FORMAT;

    if (remaining >= uint32_t(kBlockFrames)) steady_copy(rec, b, input, output, scratch_block, remaining / kBlockFrames);
    return LMTR_OK;
}

}  // namespace tvl
