// The table functions of the speaker direction.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

#include "velto/audio_handler.h"

namespace velto {

// Table slots 2, 3 and 4.
int32_t VeltoSetAudioParameter(const char *id, uint32_t idLength, void *unused1, void *unused2,
                               const AudioProfileList *profiles);
int32_t VeltoWriteStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame);
int32_t VeltoCloseAudioTrack(const char *id, uint32_t idLength);

// State of both speakers. The thread that starts them and the watchdog set it; every writing thread reads it.
enum DeviceStateValue : int32_t {
    DEVICE_NOT_INITIALISED = -1,
    DEVICE_READY = 0,
    DEVICE_INITIALISING = 1, // permanent if a decoder or a play thread could not be set up
    DEVICE_RELEASING = 2,
};
extern std::atomic<int32_t> DeviceState;

// Auto-reset event that restarts the watchdog's wait. VELTOGetAudioHandler creates it; writes signal it.
extern std::atomic<HANDLE> IdleEvent;

// Stops both play threads, which close their renderers. For the watchdog.
void StopSpeakerTracks();

} // namespace velto
