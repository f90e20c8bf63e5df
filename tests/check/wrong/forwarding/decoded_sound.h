/* For modules that play other sound than they get. */
#ifndef VELTO_DECODED_SOUND_H
#define VELTO_DECODED_SOUND_H

/* Called for each decoded unit, on the host's thread: changes its samples, -1 to 1, in place. */
void ChangeSound(float *left, float *right, int samples);

#endif
