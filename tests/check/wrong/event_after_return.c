// Events are sent 40 ms after the call that raises them.
// breaks: LSN-2
// level: 4

#include <windows.h>

#include <stdlib.h>
#include <string.h>

#include "forwarding_module.h"

typedef struct Event {
    char deviceId[256];
    uint32_t idLength;
    int32_t eventCode;
} Event;

static DWORD WINAPI SendLater(void *argument);

static AudioListener host;

static void OnEvent(const char *deviceId, uint32_t idLength, int32_t eventCode)
{
    Event *event = calloc(1, sizeof(*event));

    if (event != NULL && idLength < sizeof(event->deviceId)) {
        memcpy(event->deviceId, deviceId, idLength);
        event->idLength = idLength;
        event->eventCode = eventCode;
        CloseHandle(CreateThread(NULL, 0, SendLater, event, 0, NULL));
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

static DWORD WINAPI SendLater(void *argument)
{
    Event *event = argument;

    Sleep(40);
    if (host.AudioStateCallback != NULL) {
        host.AudioStateCallback(event->deviceId, event->idLength, event->eventCode);
    }
    free(event);
    return 0;
}
