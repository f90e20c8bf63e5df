// Whether the process, not just this module, is going away.
#pragma once

namespace velto {

// True once the system has begun to end the process. All other threads are gone by then, wherever
// they stood, so nothing may be waited for or locked.
// https://learn.microsoft.com/windows/win32/dlls/dllmain
bool ProcessIsEnding();

// Called by the module's DllMain.
void SetProcessIsEnding();

} // namespace velto
