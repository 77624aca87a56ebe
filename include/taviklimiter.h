/*
 * taviklimiter: a look-ahead peak limiter for mono and interleaved stereo PCM.
 *
 * The caller owns all memory. Ask Limiter_GetBufferSize() for the two sizes,
 * allocate an instance area (LMTR_INSTANCE_SIZE bytes) and a scratch area
 * (LMTR_SCRATCH_SIZE bytes), open an instance in the first with Limiter_Open(),
 * then call Limiter_Process() once per audio period. There is no close call:
 * free the memory when done. The library allocates nothing, keeps no global
 * mutable state and starts no threads; calls on different instances may run
 * in parallel, each with its own scratch area.
 *
 * Audio is processed in blocks of 64 frames and leaves exactly one block
 * (64 frames) late: the gain of each emitted block is chosen knowing the
 * peaks of the block that follows it.
 *
 * Levels, in Q1.31 words (full scale 2^31):
 *   threshold  2147418110 = 1 - 65538/2^31 of full scale (about -0.0003 dBFS):
 *              a sample of this magnitude or less needs no reduction;
 *   target     2144993280 = 32730/32768 of full scale (about -0.01 dBFS):
 *              a sample above the threshold is brought down to about this.
 * While limiting, every sample emitted stays at or below the threshold
 * (float32: 1 - 2^-15; Q5.27: -0x07FFF000 to 0x07FFEFFF), and a sample that
 * was above it leaves at or below the target; samples up to the threshold
 * pass unreduced unless a peak near them lowers the gain, so output peaks
 * between the target and the threshold are normal. This holds for any input
 * (NaN widens to 0), from Limiter_Open and from a reset. It does not hold in
 * bypass, nor for the one block that the delay line holds when limiting
 * resumes after bypass: that block was never examined and leaves starting
 * from unity gain, without look-ahead; from the next block on it holds again.
 *
 * Sample formats (the pcm_format code):
 *   0  Q33.31 in (int64_t), answered with Q1.31 (int32_t)
 *   1  float32 in, float32 out; full scale is +-1.0
 *   2  Q5.27 in (int32_t), Q5.27 out; output uses [-1.0, 1.0) of the range
 *
 * Fixed-point notation: q<I>p<F> is a signed word with I integer bits
 * (the sign included) and F fraction bits, value = word / 2^F. So q1p31 is
 * the usual "1.31" and q33p31 a 64-bit word with 32 bits of headroom above
 * full scale. Gains are Q15 fractions in int32_t words: 32767 means no
 * reduction, 16384 half.
 *
 * Kernel conventions (every function below "Kernels"):
 *   - They check nothing and return no codes; a count of 0 does nothing.
 *   - Products are formed in 64 bits; right shifts are floors (no rounding
 *     constant); narrowing to 32 bits keeps the low 32 bits unless the
 *     kernel's name says it clips. Nothing saturates unless documented.
 *   - Floating-point work follows the caller's environment (round to
 *     nearest, ties to even) and changes nothing in it.
 *   - Buffers may have any alignment.
 *   - Results equal a plain loop over the samples in ascending order.
 *   - "stride": the library always passes 1. Where a kernel documents an
 *     every-second-sample mode, a stride of 2 takes positions 0, 2, 4, ...
 *     of both arrays and leaves the positions between untouched.
 *   - "is_stereo": 0 is mono; any other value means interleaved frames of two
 *     samples (left first), both of a frame treated alike, count in frames.
 */
#ifndef TAVIKLIMITER_H
#define TAVIKLIMITER_H

#include <stdint.h>

#if defined(__GNUC__)
#define LMTR_API __attribute__((visibility("default")))
#else
#define LMTR_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Sizes and codes ---------------------------------------------------- */

enum {
    LMTR_INSTANCE_SIZE = 1096, /* bytes of instance memory */
    LMTR_SCRATCH_SIZE = 1536,  /* bytes of scratch memory per call */
    LMTR_BLOCK_FRAMES = 64,    /* frames per block, and the latency */
    LMTR_UNITY_GAIN = 32767    /* Q15 gain that means no reduction */
};

/* Result codes. -2 is not used. */
enum {
    LMTR_OK = 0,
    LMTR_ERR_NULL_POINTER = -1, /* a required pointer is null */
    LMTR_ERR_PCM_FORMAT = -3,   /* format code above 2, or a damaged record */
    LMTR_ERR_COMMAND = -4,      /* LimiterParam.command above 3 */
    LMTR_ERR_STATE = -5         /* state code above 1 */
};

/* pcm_format codes. */
enum {
    LMTR_PCM_Q33P31 = 0, /* int64_t Q33.31 in, int32_t Q1.31 out */
    LMTR_PCM_FLOAT32 = 1,
    LMTR_PCM_Q5P27 = 2
};

/* state codes. */
enum {
    LMTR_STATE_LIMITING = 0,
    LMTR_STATE_BYPASS = 1
};

/* LimiterParam.command codes. */
enum {
    LMTR_CMD_SET_LIMITING = 0,  /* request limiting */
    LMTR_CMD_SET_BYPASS = 1,    /* request bypass */
    LMTR_CMD_SET_PCM_FORMAT = 2,/* request the input format in value */
    LMTR_CMD_RESET = 3          /* as Limiter_Reset() */
};

/* ---- Records that cross the boundary (plain 32-bit words) --------------- */

typedef struct LimiterConfig {
    uint32_t channels;   /* exactly 2 selects stereo; any other value mono */
    uint32_t aux_config; /* stored, never read */
    uint32_t pcm_format; /* 0, 1 or 2 */
    uint32_t state;      /* 0 limiting, 1 bypass */
} LimiterConfig;

typedef struct LimiterParam {
    uint32_t command; /* LMTR_CMD_* */
    uint32_t value;   /* the format code, read by LMTR_CMD_SET_PCM_FORMAT only */
} LimiterParam;

typedef struct LimiterStatus {
    uint32_t pcm_format; /* the requested format */
    uint32_t state;      /* the requested state */
} LimiterStatus;

/* The instance record. It lives at the start of the caller's instance memory
 * and is opaque to callers; the handle is the instance memory's address. */
typedef struct LimiterHandle LimiterHandle;

/* ---- Entry points -------------------------------------------------------- */

/* Stores 1096 in *instance_size and 1536 in *scratch_size and returns LMTR_OK,
 * or returns LMTR_ERR_PCM_FORMAT (storing nothing) when pcm_format is above 2.
 * The sizes depend on nothing else. Both pointers must be valid. */
LMTR_API int32_t Limiter_GetBufferSize(uint32_t *instance_size, uint32_t *scratch_size,
                                       uint32_t pcm_format);

/* Opens an instance in instance_mem (1096 bytes, any alignment) and stores
 * its handle (instance_mem itself) in *handle_out. Checks, in order:
 * a null argument -> LMTR_ERR_NULL_POINTER; config->pcm_format above 2 ->
 * LMTR_ERR_PCM_FORMAT; config->state above 1 -> LMTR_ERR_STATE. On failure
 * nothing is written, not even *handle_out. The instance starts at unity gain
 * with a silent delay line. */
LMTR_API int32_t Limiter_Open(LimiterHandle **handle_out, void *instance_mem,
                              const LimiterConfig *config);

/* Restarts the look-ahead: silent delay line, unity gain. The requested and
 * current state, the format and the channel mode stay. A reset in bypass
 * leaves the instance in bypass. LMTR_ERR_NULL_POINTER for a null handle. */
LMTR_API int32_t Limiter_Reset(LimiterHandle *handle);

/* Records a request; audio work happens in the next Limiter_Process() call
 * that carries at least one whole block. Checks, in order: a null argument
 * -> LMTR_ERR_NULL_POINTER; command above 3 -> LMTR_ERR_COMMAND; for
 * LMTR_CMD_SET_PCM_FORMAT a value above 2 -> LMTR_ERR_PCM_FORMAT with the
 * format unchanged. The switch into bypass fades; the switch back does not. */
LMTR_API int32_t Limiter_SetParameters(LimiterHandle *handle, const LimiterParam *param);

/* Fills *status with the requested format and state (not necessarily the ones
 * the last call processed with). LMTR_ERR_NULL_POINTER for a null argument. */
LMTR_API int32_t Limiter_GetStatus(const LimiterHandle *handle, LimiterStatus *status);

/* 0x127: version 1.2.7 spelt in hexadecimal digits. */
LMTR_API uint32_t Limiter_GetVersion(void);

/* The version text, limiter_version; the same pointer on every call. */
LMTR_API const char *Limiter_Get_Version(void);

/* Processes the largest whole number of 64-frame blocks that both buffers
 * hold. On entry *in_size and *out_size are the bytes available; they are
 * set to 0 first, before any check (so they must be valid pointers), and on
 * success to the bytes consumed and produced. The caller keeps the rest of
 * its input (a partial block) and offers it again with the next call.
 *
 * Bytes per frame, input / output: format 0 mono 8/4, stereo 16/8;
 * formats 1 and 2 mono 4/4, stereo 8/8.
 *
 * scratch: LMTR_SCRATCH_SIZE bytes, any alignment; nothing in it survives the
 * call. input and output may be the same address (in place); no other overlap.
 *
 * Checks, in order: a null scratch, handle, input or output ->
 * LMTR_ERR_NULL_POINTER; a format code in the record above 2 ->
 * LMTR_ERR_PCM_FORMAT; a state code above 1 -> LMTR_ERR_STATE. Fewer than 64
 * frames on either side returns LMTR_OK with both sizes 0 and the instance
 * untouched (a pending switch waits for a call that carries a block). */
LMTR_API int32_t Limiter_Process(LimiterHandle *handle, void *scratch, const void *input,
                                 uint32_t *in_size, void *output, uint32_t *out_size);

/* Returns 0 when format is 0, 1 or 2, else -1. */
LMTR_API int32_t limiter_check_pcm_format(uint32_t format);

/* Returns 0 when state is 0 or 1, else -1. */
LMTR_API int32_t limiter_check_state(uint32_t state);

/* The block engine behind Limiter_Process(): processes frames (a non-zero
 * multiple of 64) from input to output through the instance's delay line,
 * limiting or in bypass as the record's state asks, using scratch_block
 * (1024 bytes) and out_block (512 bytes). Fewer than 64 frames process no
 * block. Returns LMTR_OK; LMTR_ERR_STATE for a state above 1;
 * LMTR_ERR_PCM_FORMAT when the record is damaged (limiting recorded with a
 * delay line in another format than Q33.31, or a format code above 2). */
LMTR_API int32_t limiter_all_format(LimiterHandle *handle, const void *input, void *output,
                                    int64_t *scratch_block, int32_t *out_block, uint32_t frames);

/* The version text: "Version: v1.2.7, Build Time: 2024-Jun-04 14:32". */
LMTR_API extern const char limiter_version[47];

/* The attack and fade ramp: entry i is 512 * i, a Q15 share of the way from
 * the start gain to the end gain (the last entry, 32256, is 63/64). */
LMTR_API extern const int32_t LMTR_RAMP_TABLE[64];

/* ---- Kernels: gain derivation --------------------------------------------- */

/* Required Q15 gain of each Q33.31 sample. ceiling: the low 16 bits of the
 * argument, sign-extended (c). Threshold T = ((c * 0xFFFFFFFE0000) >> 32)
 * with bit 0 cleared (2147418110 for c = 32767). For magnitude m <= T the
 * gain is 32767; otherwise d = m >> 15, q = 2144993280 / d (truncated; 0 when
 * d is 0) and the gain is (c * q) >> 15 (floor, low 32 bits) with bit 0
 * cleared. Magnitudes of 2^46 and more (m of -2^63 taken as 2^63) give 0.
 * Sample i is read at src[i * stride] and its gain written at
 * gains[i * stride]. */
LMTR_API void derive_gain(const int64_t *src, int32_t *gains, uint32_t count, int32_t ceiling,
                          int32_t stride);

/* The smallest of 32767 and the words taken (signed). Stereo: count frames,
 * words 2k and 2k + 1, stride unread. Mono: words at i * stride. A count
 * below 1 reads nothing and returns 32767. */
LMTR_API int32_t calculate_block_min_gain(int32_t is_stereo, const int32_t *gains, int32_t count,
                                          int32_t stride);

/* ---- Kernels: gain application (Q33.31 in, Q1.31 out unless stated) ------ */

/* Unity: each output is the low 32 bits of its input (wraps, no saturation).
 * Stride 2 is every-second-sample mode; other strides take consecutive
 * samples. count counts samples taken. */
LMTR_API void no_limiter(const int64_t *src, int32_t *dst, uint32_t count, int32_t stride);

/* Q15 scaling rule: dst = bits 15..46 of the 64-bit product src * gain, that
 * is floor(src * gain / 32768) when it fits, else its low 32 bits. Sample i
 * at position i * stride of both arrays; a count below 1 does nothing. */
LMTR_API void apply_fix_gain(int32_t gain, const int64_t *src, int32_t *dst, int32_t count,
                             int32_t stride);

/* In place on Q1.31 samples: the low 32 bits of (x * g) >> 15, bit 0 cleared,
 * where g is the low 16 bits of gain sign-extended. */
LMTR_API void apply_makeup_gain(int32_t *samples, uint32_t count, int32_t gain);

/* Release: frame k (0-based) is scaled by start_gain + (k + 1) * step (64-bit,
 * unbounded) with the Q15 scaling rule. Returns the low 32 bits of
 * start_gain + count * step (start_gain when count is 0). count: frames
 * (stereo) or samples (mono); mono stride 2 is every-second-sample mode. */
LMTR_API int32_t apply_step_gain_without_saturation(int32_t is_stereo, int32_t start_gain,
                                                    int32_t step, const int64_t *src,
                                                    int32_t *dst, uint32_t count, int32_t stride);

/* Attack ramp: frame i is scaled by the ramp gain
 * start_gain + ((ramp_table[i] * (end_gain - start_gain)) >> 15) (32-bit
 * wrap, arithmetic shift) with the Q15 scaling rule. Returns end_gain.
 * count: frames (stereo) or samples (mono), at most the table's length; mono
 * stride 2 is every-second-sample mode. dst must not overlap src. */
LMTR_API int32_t apply_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain,
                                 const int64_t *src, int32_t *dst, const int32_t *ramp_table,
                                 uint32_t count, int32_t stride);

/* Fades: the ramp gain of apply_targ_gain() applied in each format, with the
 * same count, stereo and stride rules; returns end_gain. dst is src or does
 * not overlap it.
 * Q33.31: floor(x * g / 32768) of the 64-bit product, kept as 64 bits. */
LMTR_API int32_t apply_ramp_gain_for_q33p31(int32_t is_stereo, int32_t start_gain,
                                            int32_t end_gain, const int64_t *src, int64_t *dst,
                                            const int32_t *ramp_table, uint32_t count,
                                            int32_t stride);
/* float32: (x * (float)g) * 2^-15, two single-precision multiplies in this
 * order; infinities and NaN pass through the arithmetic unchanged. */
LMTR_API int32_t apply_ramp_gain_for_float32(int32_t is_stereo, int32_t start_gain,
                                             int32_t end_gain, const float *src, float *dst,
                                             const int32_t *ramp_table, uint32_t count,
                                             int32_t stride);
/* Q5.27: the low 32 bits of (x * g) >> 15 (exact product, floor). */
LMTR_API int32_t apply_ramp_gain_for_q5p27(int32_t is_stereo, int32_t start_gain,
                                           int32_t end_gain, const int32_t *src, int32_t *dst,
                                           const int32_t *ramp_table, uint32_t count,
                                           int32_t stride);

/* Hard clipping: each sample clamped to [-2^31, 2^31 - 1]. Stride 2 is
 * every-second-sample mode. dst may equal src or lie below it. */
LMTR_API void clipping_limiter(const int64_t *src, int32_t *dst, uint32_t count, int32_t stride);

/* ---- Kernels: block boundary copies (src and dst separate unless stated) - */

/* float32 -> Q33.31: (double)x * 2^31 + 0.5 in double precision, then
 * truncated toward zero; beyond the 64-bit range the nearest bound, NaN 0.
 * Rounds half up for non-negative values; -1.0 gives -2147483647. */
LMTR_API void copy_float32_to_q33p31(const float *src, int64_t *dst, uint32_t count);

/* Q1.31 -> float32: (float)w (round to nearest even) times 2^-31, exactly.
 * dst may equal src. */
LMTR_API void copy_q1p31_to_float32(const int32_t *src, float *dst, uint32_t count);

/* Q5.27 -> Q33.31: sign-extended and shifted left by 4; exact. */
LMTR_API void copy_q5p27_to_q33p31(const int32_t *src, int64_t *dst, uint32_t count);

/* Q1.31 -> Q5.27: arithmetic shift right by 4 (floor). dst may equal src. */
LMTR_API void copy_q1p31_to_q5p27(const int32_t *src, int32_t *dst, uint32_t count);

/* ---- Kernels: re-encoding a buffer in place ------------------------------ */
/* Each converts count samples packed at the start of samples from one format
 * to another in the same memory; bytes the new format does not use keep what
 * they held. samples holds 8 * count bytes when either format is Q33.31,
 * else 4 * count. */

/* Per copy_float32_to_q33p31(). */
LMTR_API void convert_from_float32_to_q33p31(void *samples, uint32_t count);
/* Per copy_q5p27_to_q33p31(). */
LMTR_API void convert_from_q5p27_to_q33p31(void *samples, uint32_t count);
/* The 64-bit word / 2^31 rounded once to single precision (no wrap). */
LMTR_API void convert_from_q33p31_to_float32(void *samples, uint32_t count);
/* The low 32 bits as Q1.31, shifted right arithmetically by 4 (+1.0 wraps). */
LMTR_API void convert_from_q33p31_to_q5p27(void *samples, uint32_t count);
/* (float)w (round to nearest even) times 2^-27, exactly. */
LMTR_API void convert_from_q5p27_to_float32(void *samples, uint32_t count);
/* (double)x * 2^27 + 0.5, truncated toward zero. Floats outside
 * [-16.0, 16.0), the infinities included, saturate to [-2^31, 2^31 - 1];
 * NaN gives 0. Same result for every count. */
LMTR_API void convert_from_float32_to_q5p27(void *samples, uint32_t count);

/* ---- Kernels: narrowing Q33.31 to Q1.31 ---------------------------------- */
/* dst may equal src or lie below it in the same buffer. */

/* The low 32 bits of each word (wraps). */
LMTR_API void move_from_q33p31_to_q1p31(const int64_t *src, int32_t *dst, uint32_t count);
/* Each word clamped to [-2^31, 2^31 - 1]. */
LMTR_API void clip_from_q33p31_to_q1p31(const int64_t *src, int32_t *dst, uint32_t count);

#ifdef __cplusplus
}
#endif

#endif /* TAVIKLIMITER_H */
