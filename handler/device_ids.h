// Ids of the audio devices and keys of the parameters that hosts pass.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "velto/audio_handler.h"

namespace velto {

inline const std::string speakerId = VELTO_ID_SPEAKER;
inline const std::string modemSpeakerId = VELTO_ID_MODEM_SPEAKER;
inline const std::string channelKey = VELTO_KEY_CHANNEL;
inline const std::string formatKey = VELTO_KEY_FORMAT;
inline const std::string sampleRateKey = VELTO_KEY_SAMPLE_RATE;
inline const std::string codecKey = VELTO_KEY_CODEC; // contract only: a key without effect

// An id is valid when it has the length that the host passes. A valid id need not name a device; each table
// function decides how it treats unknown devices.
inline bool IsValidId(const char *id, uint32_t idLength)
{
    return id != nullptr && std::strlen(id) == idLength;
}

} // namespace velto
