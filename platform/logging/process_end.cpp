#include "logging/process_end.h"

#ifdef _WIN32

#include <windows.h>

// Exported by every ntdll; the SDK's headers do not declare it.
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

// Elsewhere exit handlers run while the other threads still do.
bool ProcessIsEnding() noexcept
{
    return false;
}

} // namespace logging

#endif
