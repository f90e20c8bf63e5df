#include "tests/platform/process.h"

#include <cstdlib>
#include <iterator>
#include <utility>

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace fs = std::filesystem;

unsigned long ProcessId()
{
#ifdef _WIN32
    return GetCurrentProcessId();
#else
    return static_cast<unsigned long>(getpid());
#endif
}

unsigned long ThreadId()
{
#ifdef _WIN32
    return GetCurrentThreadId();
#else
    return static_cast<unsigned long>(syscall(SYS_gettid));
#endif
}

std::size_t OpenHandles()
{
#ifdef _WIN32
    DWORD count = 0;
    EXPECT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &count));
    return count;
#else
    return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
#endif
}

void SetEnvironment(const std::string &name, const fs::path &value)
{
#ifdef _WIN32
    SetEnvironmentVariableW(std::wstring(name.begin(), name.end()).c_str(),
                            value.empty() ? nullptr : value.c_str());
#else
    if (value.empty()) {
        unsetenv(name.c_str());
    } else {
        setenv(name.c_str(), value.c_str(), 1);
    }
#endif
}

fs::path GetEnvironment(const std::string &name)
{
#ifdef _WIN32
    wchar_t value[2048] = {};
    GetEnvironmentVariableW(std::wstring(name.begin(), name.end()).c_str(), value, 2048);
    return value;
#else
    const char *value = std::getenv(name.c_str());
    return value != nullptr ? value : "";
#endif
}

ScopedEnvironment::ScopedEnvironment(std::string name, const fs::path &value)
    : m_name(std::move(name)), m_previous(GetEnvironment(m_name))
{
    SetEnvironment(m_name, value);
}

ScopedEnvironment::~ScopedEnvironment()
{
    SetEnvironment(m_name, m_previous);
}
