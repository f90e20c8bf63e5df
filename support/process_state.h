// Whether the process is ending, and not only this module unloading.
#pragma once

namespace velto {

// True once the system has begun to end the process. It has then killed all other threads, also those that
// had locked a mutex, so code must neither wait nor lock.
// https://learn.microsoft.com/windows/win32/dlls/dllmain
bool ProcessIsEnding();

// For the module's DllMain.
void SetProcessIsEnding();

} // namespace velto
