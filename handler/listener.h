// The host's listener for stream events.
#pragma once

#include <cstdint>

#include "velto/audio_handler.h"

namespace velto {

// Table slot 9.
int32_t VeltoRegisterListener(const AudioListener *listener);

// Calls the registered listener, if any, on the calling thread.
void SendEvent(const char *deviceId, uint32_t idLength, int32_t eventCode);

} // namespace velto
