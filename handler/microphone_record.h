// The microphone direction behind the table.
#pragma once

#include <cstdint>

#include "velto/audio_handler.h"

namespace velto {

// Table slots 5, 6 and 7. The ids are only checked for their length: any of them opens the one
// microphone. Open and close are called by one thread at a time; a read may be under way while
// another thread closes, which ends its wait.
int32_t VeltoOpenAudioRecord(const char *id, uint32_t idLength, void *unused1, void *unused2,
                             const AudioProfileList *profiles);
int32_t VeltoReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame);
int32_t VeltoCloseAudioRecord(const char *id, uint32_t idLength);

} // namespace velto
