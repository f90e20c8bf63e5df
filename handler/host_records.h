// Host records: the capability list that the module reports and the parameter list that the host sends.
#pragma once

#include <cstdint>

#include "velto/audio_handler.h"

namespace velto {

// Table slots 0 and 8.
int32_t VeltoGetAudioCapability(AudioCapabilityItem **list, uint32_t *count);
void VeltoRelease(uint32_t type, void *block, uint32_t count);

// Fills one item: a 64-byte name buffer, one profile, one codec. Returns VELTO_OK, VELTO_ERROR_INVALID for a
// null id, VELTO_ERROR_NULL_POINTER for an id above 64 bytes or when out of memory. After a failure the item
// keeps the blocks allocated so far; the caller frees them with the list.
int32_t GetAudioCapabilityItem(const char *id, uint32_t deviceType, AudioCapabilityItem &item);

// The values that a parameter list can set.
struct AudioParameters {
    uint32_t sampleRate = 48000; // Hz
    uint32_t channels = 2;
    uint32_t bitsPerSample = 16;
};

// Applies the list's entries in order. Unknown keys and unknown codes change nothing.
void GetAudioParameter(const AudioProfileList *profiles, AudioParameters &parameters);

} // namespace velto
