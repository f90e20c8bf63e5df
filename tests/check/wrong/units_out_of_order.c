// Of each two units, the later one is played first.
// breaks: SPK-16
// level: 7
// heard: listen.watermark

#include <string.h>

#include "decoded_sound.h"

#define UNIT 1024 /* samples */

/* The sound of a channel, three units late: the decoder needs units in their order. */
typedef struct Channel {
    float units[4][UNIT];
    unsigned count;
} Channel;

static void Swap(Channel *channel, float *samples)
{
    memcpy(channel->units[channel->count % 4], samples, sizeof(channel->units[0]));
    memcpy(samples, channel->units[(channel->count ^ 1U) % 4 ^ 2U], sizeof(channel->units[0]));
    ++channel->count;
}

void ChangeSound(float *left, float *right, int samples)
{
    static Channel channels[2];

    if (samples == UNIT) {
        Swap(&channels[0], left);
        Swap(&channels[1], right);
    }
}
