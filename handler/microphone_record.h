// The microphone direction behind the table.
#pragma once

#include <cstdint>

#include "velto/audio_handler.h"

namespace velto {

// Table slots 5, 6 and 7. An id is checked with IsValidId only: every valid id opens the one microphone. One
// thread at a time may open or close. Closing ends the wait of a read on another thread.
int32_t VeltoOpenAudioRecord(const char *id, uint32_t idLength, void *unused1, void *unused2,
                             const AudioProfileList *profiles);
int32_t VeltoReadStreamBuffer(const char *id, uint32_t idLength, void *unused, StreamFrame *frame);
int32_t VeltoCloseAudioRecord(const char *id, uint32_t idLength);

} // namespace velto
