// The last slot is null.
// breaks: ENT-4
// level: 1

#include "forwarding_module.h"

void ChangeTable(AudioHandlerTable *table)
{
    table->NoOperation10 = NULL;
}
