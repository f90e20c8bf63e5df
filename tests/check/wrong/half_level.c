// The sound is played at half its level.
// breaks: SPK-19
// level: 7
// heard: listen.watermark

#include "decoded_sound.h"

void ChangeSound(float *left, float *right, int samples)
{
    int i;

    for (i = 0; i < samples; ++i) {
        left[i] *= 0.5F;
        right[i] *= 0.5F;
    }
}
