// A read sends an event.
// breaks: LSN-6
// level: 4

#include "forwarding_module.h"

static VeltoAudioStateCallback callback;

static int32_t RegisterListener(const AudioListener *listener)
{
    if (listener != NULL) {
        callback = listener->AudioStateCallback;
    }
    return real.RegisterListener(listener);
}

static int32_t ReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame)
{
    const int32_t result = real.ReadStreamBuffer(id, idLength, unused, frame);

    if (result == VELTO_OK && callback != NULL) {
        callback(id, idLength, VELTO_EVENT_TRACK_CLOSED);
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->RegisterListener = RegisterListener;
    table->ReadStreamBuffer = ReadStreamBuffer;
}
