// The module's function table, for the targets that call the module as a host does.
#pragma once

#include "input.h"
#include "velto/audio_handler.h"

extern "C" int32_t VELTOGetAudioHandler(AudioHandlerTable *table);

namespace velto_fuzz {

// Gets the table once per process, because each call of the entry creates an event that is never closed.
inline const AudioHandlerTable &Table()
{
    static const AudioHandlerTable table = [] {
        AudioHandlerTable filled{};
        Expect(VELTOGetAudioHandler(&filled) == VELTO_OK, "the module's entry");
        return filled;
    }();
    return table;
}

} // namespace velto_fuzz
