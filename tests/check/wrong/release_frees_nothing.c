// A release of a list frees nothing.
// breaks: REL-4
// level: 2

#include "forwarding_module.h"

static void Release(uint32_t type, void *block, uint32_t count)
{
    (void)type;
    real.Release(0, block, count);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->Release = Release;
}
