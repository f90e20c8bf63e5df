// Units are decoded and silence is played.
// breaks: SPK-16
// level: 7
// heard: listen.watermark

#include <string.h>

#include "decoded_sound.h"

void ChangeSound(float *left, float *right, int samples)
{
    memset(left, 0, samples * sizeof(*left));
    memset(right, 0, samples * sizeof(*right));
}
