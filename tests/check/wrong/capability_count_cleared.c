// A call without a list sets the count to 0.
// breaks: CAP-5
// level: 2

#include "forwarding_module.h"

static int32_t GetAudioCapability(AudioCapabilityItem **list, uint32_t *count)
{
    if (list == NULL && count != NULL) {
        *count = 0;
    }
    return real.GetAudioCapability(list, count);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->GetAudioCapability = GetAudioCapability;
}
