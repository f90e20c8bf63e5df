// The microphone has the type of a loudspeaker.
// breaks: CAP-1
// level: 2

#include "forwarding_module.h"

static int32_t GetAudioCapability(AudioCapabilityItem **list, uint32_t *count)
{
    const int32_t result = real.GetAudioCapability(list, count);

    if (result == VELTO_OK) {
        (*list)[3].deviceType = VELTO_DEVICE_TYPE_SPEAKER;
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->GetAudioCapability = GetAudioCapability;
}
