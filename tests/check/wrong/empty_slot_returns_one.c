// The two empty slots return 1.
// breaks: ENT-4
// level: 1

#include "forwarding_module.h"

static int32_t ReturnOne(void)
{
    return 1;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->NoOperation1 = ReturnOne;
    table->NoOperation10 = ReturnOne;
}
