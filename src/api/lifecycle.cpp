// Entry points of an instance's life: sizes, open, reset, parameters, status,
// version, and the two code checks. Each tests its arguments in a fixed order
// and returns the first failure's code with nothing written.
#include "common/instance.h"
#include "common/memory.h"
#include "common/sample_rules.h"
#include "taviklimiter.h"

extern const char limiter_version[47] = "Version: v1.2.7, Build Time: 2024-Jun-04 14:32";
static_assert(sizeof("Version: v1.2.7, Build Time: 2024-Jun-04 14:32") == 47, "47 bytes with the NUL");

namespace {

constexpr uint32_t kNumericVersion = 0x127;  // 1.2.7 in hexadecimal digits

// Silent delay line at unity gain, marked as Q33.31 (all-zero bits are silence
// in every format, so the mark is valid in either state).
void reset_record(LimiterHandle& rec) {
    rec.prev_pcm_format = LMTR_PCM_Q33P31;
    rec.cur_gain = tvl::kUnityGain;
    rec.last_min_gain = tvl::kUnityGain;
    tvl::zero_bytes(rec.delay_line, tvl::kDelayLineSize);
}

}  // namespace

int32_t limiter_check_pcm_format(uint32_t format) { return tvl::valid_pcm_format(format) ? 0 : -1; }

int32_t limiter_check_state(uint32_t state) { return tvl::valid_state(state) ? 0 : -1; }

int32_t Limiter_GetBufferSize(uint32_t* instance_size, uint32_t* scratch_size, uint32_t pcm_format) {
    if (limiter_check_pcm_format(pcm_format) != 0) return LMTR_ERR_PCM_FORMAT;
    *instance_size = tvl::kInstanceSize;
    *scratch_size = tvl::kScratchSize;
    return LMTR_OK;
}

int32_t Limiter_Open(LimiterHandle** handle_out, void* instance_mem, const LimiterConfig* config) {
    if (!handle_out || !instance_mem || !config) return LMTR_ERR_NULL_POINTER;
    LimiterConfig cfg;
    tvl::copy_bytes(&cfg, config, sizeof cfg);
    if (limiter_check_pcm_format(cfg.pcm_format) != 0) return LMTR_ERR_PCM_FORMAT;
    if (!tvl::valid_state(cfg.state)) return LMTR_ERR_STATE;

    auto* memory = static_cast<unsigned char*>(instance_mem);
    tvl::zero_bytes(memory, tvl::kInstanceSize);
    LimiterHandle rec = tvl::read_record(memory);
    rec.delay_line = memory + tvl::kDelayLineOffset;
    rec.is_stereo = cfg.channels == 2 ? 1u : 0u;
    rec.state = cfg.state;
    rec.prev_state = cfg.state;  // the first call performs no switch
    rec.makeup_gain = tvl::kDefaultMakeupGain;
    rec.ceiling = tvl::kDefaultCeiling;
    rec.release_step = tvl::kDefaultReleaseStep;
    rec.aux_config = cfg.aux_config;
    rec.pcm_format = cfg.pcm_format;
    reset_record(rec);
    tvl::write_record(memory, rec);
    tvl::copy_bytes(handle_out, &memory, sizeof memory);
    return LMTR_OK;
}

int32_t Limiter_Reset(LimiterHandle* handle) {
    if (!handle) return LMTR_ERR_NULL_POINTER;
    LimiterHandle rec = tvl::read_record(handle);
    reset_record(rec);
    tvl::write_record(handle, rec);
    return LMTR_OK;
}

int32_t Limiter_SetParameters(LimiterHandle* handle, const LimiterParam* param) {
    if (!handle || !param) return LMTR_ERR_NULL_POINTER;
    LimiterParam p;
    tvl::copy_bytes(&p, param, sizeof p);
    if (p.command > LMTR_CMD_RESET) return LMTR_ERR_COMMAND;
    if (p.command == LMTR_CMD_RESET) return Limiter_Reset(handle);
    if (p.command == LMTR_CMD_SET_PCM_FORMAT && limiter_check_pcm_format(p.value) != 0) return LMTR_ERR_PCM_FORMAT;

    // Only the request is recorded; the next call carrying a block acts on it.
    LimiterHandle rec = tvl::read_record(handle);
    if (p.command == LMTR_CMD_SET_PCM_FORMAT) {
        rec.pcm_format = p.value;
    } else {
        rec.state = p.command == LMTR_CMD_SET_BYPASS ? LMTR_STATE_BYPASS : LMTR_STATE_LIMITING;
    }
    tvl::write_record(handle, rec);
    return LMTR_OK;
}

int32_t Limiter_GetStatus(const LimiterHandle* handle, LimiterStatus* status) {
    if (!handle || !status) return LMTR_ERR_NULL_POINTER;
    const LimiterHandle rec = tvl::read_record(handle);
    const LimiterStatus s{rec.pcm_format, rec.state};
    tvl::copy_bytes(status, &s, sizeof s);
    return LMTR_OK;
}

uint32_t Limiter_GetVersion(void) { return kNumericVersion; }

const char* Limiter_Get_Version(void) { return limiter_version; }
