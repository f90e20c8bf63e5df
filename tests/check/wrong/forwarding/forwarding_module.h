/* A module that forwards its table to the real module, and in which one file breaks one clause.

   Each wrong module is a DLL of this folder's sources and one file of the folder above. Windows loads the
   real module with it: LibVeltoAudioHandler.real.dll, in the same folder. */
#ifndef VELTO_FORWARDING_MODULE_H
#define VELTO_FORWARDING_MODULE_H

#include "velto/audio_handler.h"

/* The real module's entry, under the name that the import library gives it. */
__declspec(dllimport) int32_t RealGetAudioHandler(AudioHandlerTable *table);

/* The real module's table. Filled before the first call of ChangeTable. */
extern AudioHandlerTable real;

/* Fills the table from the real module, keeps a copy in `real`, and calls ChangeTable. VELTOGetAudioHandler
   is only a call of this function, unless the wrong module defines its own. */
int32_t ForwardEntry(AudioHandlerTable *table);

/* Puts the wrong functions into a table that the real module has filled. Called by each call of the entry, on
   its thread. The wrong module defines it, or one of disturbance.c, decoded_sound.c and unchanged_table.c
   does. */
void ChangeTable(AudioHandlerTable *table);

/* Makes the real module call `replacement` instead of a function that it imports. Returns the function, or
   null if the real module does not import it. Call it before the real module starts a thread. */
const void *ReplaceImport(const char *function, const void *replacement);

#endif
