/* For modules with the right table. Taken from a static library, like forwarding_entry.c. */
#include "forwarding_module.h"

void ChangeTable(AudioHandlerTable *table)
{
    (void)table;
}
