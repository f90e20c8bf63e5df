// The address of the host's listener record is kept instead of its fields.
// breaks: LSN-1
// level: 4

#include "forwarding_module.h"

static const AudioListener *kept;

static void OnEvent(const char *deviceId, uint32_t idLength, int32_t eventCode)
{
    if (kept != NULL && kept->AudioStateCallback != NULL) {
        kept->AudioStateCallback(deviceId, idLength, eventCode);
    }
}

static int32_t RegisterListener(const AudioListener *listener)
{
    const AudioListener own = {OnEvent, NULL};

    if (listener == NULL) {
        return real.RegisterListener(NULL);
    }
    kept = listener;
    return real.RegisterListener(&own);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->RegisterListener = RegisterListener;
}
