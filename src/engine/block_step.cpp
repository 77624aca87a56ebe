// The limiter proper: a held block leaves with its gain moving as planned
// (gain_plan.h). The same moves render a Q33.31 block from the delay line to
// Q1.31, and a float32 or Q5.27 block still in the input straight to its own
// format. Each renderer offers the four ways of scaling frames `frame` to 63
// of the block: unity(frame), fix(gain, frame), ramp(from, to) (the whole
// block) and step(from, step, frames) (from frame 0).
#include "common/kernels.h"
#include "common/sample_rules.h"
#include "engine/engine.h"

namespace tvl {

namespace {

template <typename Renderer>
void render(const GainMove& move, Renderer r) {
    switch (move.kind) {
        case GainMove::kUnity: r.unity(0); break;
        case GainMove::kHold: r.fix(move.gain, 0); break;
        case GainMove::kRamp: r.ramp(move.gain, move.to); break;
        case GainMove::kStep:
            r.step(move.gain, move.step, move.frames);
            if (move.frames == kBlockFrames) break;
            if (move.to == kUnityGain) {
                r.unity(move.frames);
            } else {
                r.fix(move.to, move.frames);
            }
            break;
    }
}

// Samples from frame `frame` on, for a block of `samples` samples.
struct Frames {
    uint32_t stereo, samples;
    uint32_t first(uint32_t frame) const { return stereo ? frame * 2 : frame; }
    uint32_t from(uint32_t frame) const { return samples - first(frame); }
};

struct Q33p31ToQ1p31 : Frames {
    const int64_t* held;
    int32_t* out;

    void unity(uint32_t f) const { active::no_limiter(held + first(f), out + first(f), from(f), 1); }
    void fix(int32_t g, uint32_t f) const { active::apply_fix_gain(g, held + first(f), out + first(f), int32_t(from(f)), 1); }
    void ramp(int32_t a, int32_t b) const {
        active::apply_targ_gain(int32_t(stereo), a, b, held, out, LMTR_RAMP_TABLE, kBlockFrames, 1);
    }
    void step(int32_t a, int32_t s, uint32_t n) const {
        active::apply_step_gain_without_saturation(int32_t(stereo), a, s, held, out, n, 1);
    }
};

// A block still in the input, leaving in its own format through the emit
// kernels of that format.
template <typename T, void (*Unity)(const T*, T*, uint32_t), void (*Fix)(int32_t, const T*, T*, uint32_t),
          int32_t (*Ramp)(int32_t, int32_t, int32_t, const T*, T*, const int32_t*, uint32_t),
          int32_t (*Step)(int32_t, int32_t, int32_t, const T*, T*, uint32_t)>
struct FromInput : Frames {
    const T* held;
    T* out;

    void unity(uint32_t f) const { Unity(held + first(f), out + first(f), from(f)); }
    void fix(int32_t g, uint32_t f) const { Fix(g, held + first(f), out + first(f), from(f)); }
    void ramp(int32_t a, int32_t b) const { Ramp(int32_t(stereo), a, b, held, out, LMTR_RAMP_TABLE, kBlockFrames); }
    void step(int32_t a, int32_t s, uint32_t n) const { Step(int32_t(stereo), a, s, held, out, n); }
};

using Float32FromInput = FromInput<float, active::emit_float32_at_unity, active::emit_float32_fix_gain,
                                   active::emit_float32_targ_gain, active::emit_float32_step_gain>;
using Q5p27FromInput = FromInput<int32_t, active::emit_q5p27_at_unity, active::emit_q5p27_fix_gain,
                                 active::emit_q5p27_targ_gain, active::emit_q5p27_step_gain>;

}  // namespace

void limiter_primary_q33p31_to_q1p31(const GainMove& move, uint32_t is_stereo, const int64_t* held, int32_t* out) {
    render(move, Q33p31ToQ1p31{{is_stereo, samples_per_block(is_stereo)}, held, out});
}

void limiter_primary_float32_to_float32(const GainMove& move, uint32_t is_stereo, const float* held, float* out) {
    render(move, Float32FromInput{{is_stereo, samples_per_block(is_stereo)}, held, out});
}

void limiter_primary_q5p27_to_q5p27(const GainMove& move, uint32_t is_stereo, const int32_t* held, int32_t* out) {
    render(move, Q5p27FromInput{{is_stereo, samples_per_block(is_stereo)}, held, out});
}

}  // namespace tvl
