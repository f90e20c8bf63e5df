// The virtual devices as hosts name them.
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
inline const std::string codecKey = VELTO_KEY_CODEC; // accepted, never compared

// An id counts as valid when its length is the one that the host states; whether it names a known
// device is each function's own question.
inline bool IsValidId(const char *id, uint32_t idLength)
{
    return id != nullptr && std::strlen(id) == idLength;
}

} // namespace velto
