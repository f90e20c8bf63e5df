// A record of null fields does not end the registration.
// breaks: LSN-8
// level: 4

#include "forwarding_module.h"

static int32_t RegisterListener(const AudioListener *listener)
{
    if (listener != NULL && listener->AudioStateCallback == NULL) {
        return VELTO_OK;
    }
    return real.RegisterListener(listener);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->RegisterListener = RegisterListener;
}
