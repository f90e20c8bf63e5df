// The sound is played at half its speed, so its second half is not heard.
// breaks: SPK-16 SPK-17
// level: 7
// heard: listen.watermark

#include <string.h>

#include "decoded_sound.h"

#define ROOM (60 * 48000) /* frames */

typedef struct Delay {
    float samples[ROOM];
    size_t written;
    size_t half; /* samples that were read, each twice */
} Delay;

static void Stretch(Delay *delay, float *samples, size_t count)
{
    size_t i;

    if (delay->written + count <= ROOM) {
        memcpy(delay->samples + delay->written, samples, count * sizeof(*samples));
        delay->written += count;
    }
    for (i = 0; i < count; ++i) {
        samples[i] = delay->samples[delay->half + i / 2];
    }
    delay->half += count / 2;
}

void ChangeSound(float *left, float *right, int samples)
{
    static Delay delays[2];

    Stretch(&delays[0], left, (size_t)samples);
    Stretch(&delays[1], right, (size_t)samples);
}
