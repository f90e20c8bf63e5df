// The listener's second field is called like the first.
// breaks: LSN-3
// level: 4

#include "forwarding_module.h"

static AudioListener host;

static void OnEvent(const char *deviceId, uint32_t idLength, int32_t eventCode)
{
    host.AudioStateCallback(deviceId, idLength, eventCode);
    if (host.reserved != NULL) {
        ((VeltoAudioStateCallback)(uintptr_t)host.reserved)(deviceId, idLength, eventCode);
    }
}

static int32_t RegisterListener(const AudioListener *listener)
{
    AudioListener own;

    if (listener == NULL) {
        return real.RegisterListener(NULL);
    }
    host = *listener;
    own.AudioStateCallback = host.AudioStateCallback != NULL ? OnEvent : NULL;
    own.reserved = host.reserved;
    return real.RegisterListener(&own);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->RegisterListener = RegisterListener;
}
