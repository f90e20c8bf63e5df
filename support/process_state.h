// Distinguishes the end of the process from the unloading of this module.
#pragma once

namespace velto {

// True once the system has begun to end the process. It has then killed all other threads, also those that
// had locked a mutex, so code must neither wait nor lock.
// https://learn.microsoft.com/windows/win32/dlls/dllmain
bool ProcessIsEnding();

// Called by DllMain.
void SetProcessIsEnding();

} // namespace velto
