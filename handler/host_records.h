// The records that cross the table: what the module reports and what the host asks for.
#pragma once

#include <cstdint>

#include "velto/audio_handler.h"

namespace velto {

// Table slots 0 and 8.
int32_t VeltoGetAudioCapability(AudioCapabilityItem **list, uint32_t *count);
void VeltoRelease(uint32_t type, void *block, uint32_t count);

// Fills one item: a 64-byte name buffer, one profile, one codec. VELTO_OK, VELTO_ERROR_INVALID for
// a null id, VELTO_ERROR_NULL_POINTER for an id above 64 bytes or without memory; blocks stored by
// then stay in the item and are freed with the list.
int32_t GetAudioCapabilityItem(const char *id, uint32_t deviceType, AudioCapabilityItem &item);

// What a parameter list asks for.
struct AudioParameters {
    uint32_t sampleRate = 48000; // Hz
    uint32_t channels = 2;
    uint32_t bitsPerSample = 16;
};

// Applies the list's entries in order; unknown keys and value codes change nothing.
void GetAudioParameter(const AudioProfileList *profiles, AudioParameters &parameters);

} // namespace velto
