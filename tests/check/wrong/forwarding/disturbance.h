/* For modules that leave the caller's thread or process in another state. */
#ifndef VELTO_DISTURBANCE_H
#define VELTO_DISTURBANCE_H

/* Called by each CloseAudioTrack, on the host's thread, after the real call. The last error is kept. */
void Disturb(void);

#endif
