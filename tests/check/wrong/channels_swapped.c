// The channels are swapped.
// breaks: SPK-18
// level: 7
// heard: listen.watermark

#include "decoded_sound.h"

void ChangeSound(float *left, float *right, int samples)
{
    int i;

    for (i = 0; i < samples; ++i) {
        const float sample = left[i];
        left[i] = right[i];
        right[i] = sample;
    }
}
