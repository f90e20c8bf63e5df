/* The entry of the modules that do not define their own: the linker takes this file from a static library only then.
   */
#include "forwarding_module.h"

int32_t VELTOGetAudioHandler(AudioHandlerTable *table)
{
    return ForwardEntry(table);
}
