// Two slots of the same type are swapped.
// breaks: ENT-9
// level: 3

#include "forwarding_module.h"

void ChangeTable(AudioHandlerTable *table)
{
    table->CloseAudioTrack = real.CloseAudioRecord;
    table->CloseAudioRecord = real.CloseAudioTrack;
}
