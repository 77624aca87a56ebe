/* A program outside the project: limits a stereo float32 square wave at twice
 * full scale with an installed libtaviklimiter_vendor and checks the output. */
#include <stdio.h>
#include <taviklimiter.h>

int main(void) {
    static unsigned char instance[LMTR_INSTANCE_SIZE], scratch[LMTR_SCRATCH_SIZE];
    static float in[256][2], out[256][2];
    LimiterConfig config = {2, 0, LMTR_PCM_FLOAT32, LMTR_STATE_LIMITING};
    LimiterHandle *h = NULL;
    uint32_t in_size = sizeof in, out_size = sizeof out;
    for (int i = 0; i < 256; i++) in[i][0] = in[i][1] = (i / 8 % 2) ? 2.0f : -2.0f;
    if (Limiter_Open(&h, instance, &config) != LMTR_OK ||
        Limiter_Process(h, scratch, in, &in_size, out, &out_size) != LMTR_OK ||
        in_size != sizeof in || out_size != sizeof out)
        return 1;
    /* 64 frames of silence, then each sample at about the target, same sign. */
    for (int i = 0; i < 256; i++)
        for (int c = 0; c < 2; c++) {
            float m = i < 64 ? 1.0f : out[i][c] * in[i - 64][c] / 2;
            if (i < 64 ? out[i][c] != 0.0f : !(m > 0.99f && m <= 32730.0f / 32768)) return 2;
        }
    printf("%s: %u frames limited\n", Limiter_Get_Version(), out_size / 8u);
    return 0;
}
