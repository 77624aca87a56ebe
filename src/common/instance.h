// The instance record and the layout of the caller's memory.
//
// Instance memory (1096 bytes): the record at its start, the delay line in
// its last 1024 bytes. Scratch memory (1536 bytes): scratch_block, one block
// of Q33.31 words (1024 bytes), then out_block, one block of 32-bit words.
//
// The caller's memory may have any alignment, so the library never accesses
// the record through a LimiterHandle pointer: entry points copy it into a
// local record, work on that, and copy it back when they change it.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "common/memory.h"
#include "taviklimiter.h"

struct LimiterHandle {
    uint32_t is_stereo;        // non-zero: interleaved stereo
    uint32_t aux_config;       // the caller's word, never read
    uint32_t pcm_format;       // requested input format
    uint32_t prev_pcm_format;  // format of the block held in the delay line
    uint32_t state;            // requested state
    uint32_t prev_state;       // state the last processed call ended in
    int32_t cur_gain;          // Q15 gain at the end of the last emitted block
    int32_t last_min_gain;     // required Q15 gain of the held block
    int32_t ceiling;           // Q15 ceiling, low 16 bits used
    int32_t release_step;      // Q15 gain rise per frame in release
    uint32_t makeup_gain;      // Q15 output gain, applied when <= 32766
    unsigned char* delay_line; // the last 1024 bytes of the instance memory
};

namespace tvl {

constexpr size_t kInstanceSize = LMTR_INSTANCE_SIZE;
constexpr size_t kScratchSize = LMTR_SCRATCH_SIZE;
constexpr size_t kDelayLineSize = 1024;  // 64 frames x 2 channels x 8 bytes
constexpr size_t kDelayLineOffset = kInstanceSize - kDelayLineSize;
constexpr size_t kScratchBlockSize = 1024;
constexpr size_t kOutBlockOffset = kScratchBlockSize;

constexpr int32_t kDefaultCeiling = 32767;
constexpr int32_t kDefaultReleaseStep = 4;
constexpr uint32_t kDefaultMakeupGain = 32767;

static_assert(offsetof(LimiterHandle, makeup_gain) == 40, "eleven 32-bit words first");
static_assert(offsetof(LimiterHandle, delay_line) == (44 + alignof(void*) - 1) / alignof(void*) * alignof(void*),
              "the pointer follows the words at its natural alignment");
static_assert(sizeof(void*) != 8 || offsetof(LimiterHandle, delay_line) == 48, "LP64: pointer at byte 48");
static_assert(sizeof(LimiterHandle) <= kDelayLineOffset, "the record fits before the delay line");
static_assert(kScratchBlockSize + 512 == kScratchSize, "scratch_block then out_block");

static_assert(offsetof(LimiterHandle, delay_line) + sizeof(void*) == sizeof(LimiterHandle),
              "the delay line pointer ends the record: each_field() lists every field");

// Calls f(offset, field) for each field of r, in the record's order.
template <typename Record, typename F>
inline void each_field(Record& r, F f) {
    f(offsetof(LimiterHandle, is_stereo), r.is_stereo);
    f(offsetof(LimiterHandle, aux_config), r.aux_config);
    f(offsetof(LimiterHandle, pcm_format), r.pcm_format);
    f(offsetof(LimiterHandle, prev_pcm_format), r.prev_pcm_format);
    f(offsetof(LimiterHandle, state), r.state);
    f(offsetof(LimiterHandle, prev_state), r.prev_state);
    f(offsetof(LimiterHandle, cur_gain), r.cur_gain);
    f(offsetof(LimiterHandle, last_min_gain), r.last_min_gain);
    f(offsetof(LimiterHandle, ceiling), r.ceiling);
    f(offsetof(LimiterHandle, release_step), r.release_step);
    f(offsetof(LimiterHandle, makeup_gain), r.makeup_gain);
    f(offsetof(LimiterHandle, delay_line), r.delay_line);
}

// The record moves between the caller's memory and a local copy one field at
// a time, each by one load and one store of its own size. The engine updates
// single words of its copy (the gain state), and a load wider than the
// stores that just wrote its bytes cannot take their data from the store
// queue: it waits for them to reach the cache, on every call (10 to 20% of a
// 64-frame float32 call on x86-64). Field by field, every load meets the one
// store that wrote it, in this call's copy and in the next call's read. A
// compiler barrier after each field keeps compilers from fusing neighbouring
// fields into one wide access on the caller's side, or in the reads of the
// local copy; it emits no instruction.
inline void field_moved() { __asm__ __volatile__("" ::: "memory"); }

template <typename T>
inline void take_field(const void* handle, size_t offset, T& field) {
    copy_bytes(&field, static_cast<const unsigned char*>(handle) + offset, sizeof(T));
    field_moved();
}

template <typename T>
inline void put_field(void* handle, size_t offset, const T& field) {
    copy_bytes(static_cast<unsigned char*>(handle) + offset, &field, sizeof(T));
    field_moved();
}

inline LimiterHandle read_record(const void* handle) {
    LimiterHandle r;
    each_field(r, [&](size_t offset, auto& field) { take_field(handle, offset, field); });
    return r;
}

inline void write_record(void* handle, const LimiterHandle& r) {
    each_field(r, [&](size_t offset, const auto& field) { put_field(handle, offset, field); });
}

// What processing changes, written back alone: the format and state the last
// block ended in and the gain state. The caller's other words stay untouched.
inline void write_progress(void* handle, const LimiterHandle& r) {
    put_field(handle, offsetof(LimiterHandle, prev_pcm_format), r.prev_pcm_format);
    put_field(handle, offsetof(LimiterHandle, prev_state), r.prev_state);
    put_field(handle, offsetof(LimiterHandle, cur_gain), r.cur_gain);
    put_field(handle, offsetof(LimiterHandle, last_min_gain), r.last_min_gain);
}

// The codes a record may hold: formats 0 to 2, states 0 and 1.
constexpr bool valid_pcm_format(uint32_t format) { return format <= LMTR_PCM_Q5P27; }
constexpr bool valid_state(uint32_t state) { return state <= LMTR_STATE_BYPASS; }

// Bytes of one input sample: 8 for Q33.31, 4 for float32 and Q5.27.
constexpr uint32_t input_sample_bytes(uint32_t format) { return format == LMTR_PCM_Q33P31 ? 8u : 4u; }

// Samples in one 64-frame block: 128 stereo, 64 mono.
constexpr uint32_t samples_per_block(uint32_t is_stereo) { return is_stereo ? 128u : 64u; }

}  // namespace tvl
