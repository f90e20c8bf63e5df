#include "handler/listener.h"

#include <atomic>

#include "handler/log.h"

namespace velto {
namespace {

// Written before streaming starts; atomic, so that a host that is late only misses events.
std::atomic<VeltoAudioStateCallback> stateCallback{nullptr};
std::atomic<void *> listenerReserved{nullptr}; // kept for the host, never called

} // namespace

int32_t VeltoRegisterListener(const AudioListener *listener)
{
    if (listener == nullptr) {
        LogError("`anonymous-namespace'::VeltoRegisterListener", "VELTO Listener is null");
        return VELTO_ERROR_INVALID;
    }
    listenerReserved = listener->reserved;
    stateCallback = listener->AudioStateCallback;
    return VELTO_OK;
}

void SendEvent(const char *deviceId, uint32_t idLength, int32_t eventCode)
{
    if (const VeltoAudioStateCallback callback = stateCallback) {
        callback(deviceId, idLength, eventCode);
    }
}

} // namespace velto
