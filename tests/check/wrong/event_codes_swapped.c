// The codes of the two events are swapped.
// breaks: PAR-7 SPK-10
// level: 4

#include "forwarding_module.h"

static AudioListener host;

static void OnEvent(const char *deviceId, uint32_t idLength, int32_t eventCode)
{
    const int32_t both = VELTO_EVENT_TRACK_CLOSED + VELTO_EVENT_PARAMETERS_SET;

    host.AudioStateCallback(deviceId, idLength, both - eventCode);
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
