// Registering null is refused, but also ends the registration.
// breaks: LSN-1
// level: 4

#include "forwarding_module.h"

static int32_t RegisterListener(const AudioListener *listener)
{
    const AudioListener none = {NULL, NULL};

    if (listener == NULL) {
        real.RegisterListener(&none);
        return real.RegisterListener(NULL);
    }
    return real.RegisterListener(listener);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->RegisterListener = RegisterListener;
}
