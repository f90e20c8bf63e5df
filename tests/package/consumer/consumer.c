/* Links the module, and prints the names of its devices. */
#include <stdio.h>

#include <velto/audio_handler.h>

int main(void)
{
    AudioHandlerTable table;
    AudioCapabilityItem *list = NULL;
    uint32_t count = 0;
    uint32_t i;

    if (VELTOGetAudioHandler(&table) != VELTO_OK || table.GetAudioCapability(&list, &count) != VELTO_OK) {
        return 1;
    }
    for (i = 0; i < count; ++i) {
        printf("%.*s\n", (int)list[i].nameLength, list[i].name);
    }
    table.Release(VELTO_RELEASE_CAPABILITIES, list, count);
    return 0;
}
