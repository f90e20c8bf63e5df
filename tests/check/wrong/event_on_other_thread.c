// Events are sent on another thread, for which the call waits.
// breaks: LSN-2
// level: 4

#include <windows.h>

#include "forwarding_module.h"

typedef struct Event {
    const char *deviceId;
    uint32_t idLength;
    int32_t eventCode;
} Event;

static DWORD WINAPI Send(void *argument);

static AudioListener host;

static void OnEvent(const char *deviceId, uint32_t idLength, int32_t eventCode)
{
    Event event = {deviceId, idLength, eventCode};
    const HANDLE thread = CreateThread(NULL, 0, Send, &event, 0, NULL);

    if (thread != NULL) {
        WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
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

static DWORD WINAPI Send(void *argument)
{
    const Event *event = argument;

    host.AudioStateCallback(event->deviceId, event->idLength, event->eventCode);
    return 0;
}
