// Nothing is wrong: the control of all other modules.
// breaks: none
// level: 7
// heard: listen.watermark

#include "forwarding_module.h"

void ChangeTable(AudioHandlerTable *table)
{
    (void)table;
}
