// Keeps the thread's last error while logging: callers may log between a failed call and GetLastError.
#pragma once

#include <cerrno>

#ifdef _WIN32
#include <windows.h>
#endif

namespace logging {

// Restores the calling thread's last error and errno at the end of the scope.
class KeepLastError {
public:
    KeepLastError() = default;
    ~KeepLastError()
    {
        errno = m_errno;
#ifdef _WIN32
        SetLastError(m_lastError);
#endif
    }
    KeepLastError(const KeepLastError &) = delete;
    KeepLastError &operator=(const KeepLastError &) = delete;

private:
    const int m_errno = errno;
#ifdef _WIN32
    const DWORD m_lastError = GetLastError();
#endif
};

} // namespace logging
