// Prints to both outputs of the process, which the contract does not forbid: a control.
// breaks: none
// level: 4

#include <stdio.h>

#include "forwarding_module.h"

static int32_t CloseAudioTrack(const char *id, uint32_t idLength)
{
    printf("{\"outcome\": \"passed\"}\n");
    fprintf(stderr, "closing a track\n");
    fflush(stdout);
    return real.CloseAudioTrack(id, idLength);
}

void ChangeTable(AudioHandlerTable *table)
{
    table->CloseAudioTrack = CloseAudioTrack;
}
