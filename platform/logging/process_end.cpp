#include "logging/process_end.h"

#ifdef _WIN32

#include <windows.h>

// Exported by ntdll in every Windows version, but not declared in the SDK's headers.
// https://learn.microsoft.com/windows/win32/devnotes/rtldllshutdowninprogress
extern "C" __declspec(dllimport) BOOLEAN NTAPI RtlDllShutdownInProgress();

namespace logging {

bool ProcessIsEnding() noexcept
{
    return RtlDllShutdownInProgress() != FALSE;
}

} // namespace logging

#else

namespace logging {

// Other systems run exit handlers while the other threads are still running.
bool ProcessIsEnding() noexcept
{
    return false;
}

} // namespace logging

#endif
