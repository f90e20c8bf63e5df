// Events are sent with a lock that the calls need: a listener that calls the table never returns.
// breaks: LSN-2
// level: 4

#include <windows.h>

#include "forwarding_module.h"

static SRWLOCK lock = SRWLOCK_INIT;

static int32_t CloseAudioTrack(const char *id, uint32_t idLength)
{
    int32_t result;

    AcquireSRWLockExclusive(&lock);
    result = real.CloseAudioTrack(id, idLength);
    ReleaseSRWLockExclusive(&lock);
    return result;
}

static int32_t SetAudioParameter(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters)
{
    int32_t result;

    AcquireSRWLockExclusive(&lock);
    result = real.SetAudioParameter(id, idLength, unused1, unused2, parameters);
    ReleaseSRWLockExclusive(&lock);
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    table->CloseAudioTrack = CloseAudioTrack;
    table->SetAudioParameter = SetAudioParameter;
}
