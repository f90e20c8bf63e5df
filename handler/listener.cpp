#include "handler/listener.h"

#include <atomic>

#include "handler/log.h"

namespace velto {
namespace {

// Set before streaming starts. Atomic, so a late registration can only miss events.
std::atomic<VeltoAudioStateCallback> stateCallback{nullptr};
std::atomic<void *> listenerReserved{nullptr}; // contract only: the listener's second field

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
