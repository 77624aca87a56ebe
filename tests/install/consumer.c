/* Limits a stereo float32 square wave at twice full scale with the installed library. */
#include <stdio.h>
#include <taviklimiter.h>

int main(void) {
    static unsigned char instance[LMTR_INSTANCE_SIZE], scratch[LMTR_SCRATCH_SIZE];
    static float in[512], out[512];  /* 256 stereo frames */
    LimiterConfig config = {2, 0, LMTR_PCM_FLOAT32, LMTR_STATE_LIMITING};
    LimiterHandle *h = NULL;
    uint32_t in_size = sizeof in, out_size = sizeof out;
    for (int i = 0; i < 512; i++) in[i] = (i / 16 % 2) ? 2.0f : -2.0f;
    if (Limiter_Open(&h, instance, &config) ||
        Limiter_Process(h, scratch, in, &in_size, out, &out_size) || out_size != sizeof out)
        return 1;
    for (int i = 0; i < 512; i++)  /* silence for 64 frames, then the input at the target */
        if (i < 128 ? out[i] != 0.0f : !(out[i] * in[i - 128] / 2 > 0.99f &&
                                         out[i] * in[i - 128] / 2 <= 32730.0f / 32768)) return 2;
    printf("%s: %u frames limited\n", Limiter_Get_Version(), out_size / 8u);
    return 0;
}
