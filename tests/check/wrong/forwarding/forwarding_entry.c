/* The entry of the modules that do not define their own. The linker takes it from a static library only for
 * them. */
#include "forwarding_module.h"

int32_t VELTOGetAudioHandler(AudioHandlerTable *table)
{
    return ForwardEntry(table);
}
