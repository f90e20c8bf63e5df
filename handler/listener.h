// The host's listener.
#pragma once

#include <cstdint>

#include "velto/audio_handler.h"

namespace velto {

// Table slot 9.
int32_t VeltoRegisterListener(const AudioListener *listener);

// Calls the listener, if one is registered, on the calling thread.
void SendEvent(const char *deviceId, uint32_t idLength, int32_t eventCode);

} // namespace velto
