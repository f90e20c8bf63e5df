// A release of any type frees the list.
// breaks: REL-2
// level: 2

#include "forwarding_module.h"

static void Release(uint32_t type, void *block, uint32_t count)
{
    (void)type;
    real.Release(VELTO_RELEASE_CAPABILITIES, block, count);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->Release = Release;
}
