#include "velto-host/process_usage.h"

#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

namespace velto::host {
namespace {

// Estimates the number of handles in use where the system does not count them, as under Wine: a new handle
// gets the lowest free number, and numbers go in steps of four.
uint32_t HighestHandle()
{
    const HANDLE probe = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const auto number = reinterpret_cast<uintptr_t>(probe);
    CloseHandle(probe);
    return static_cast<uint32_t>(number / 4);
}

uint32_t CountHandles()
{
    DWORD handles = 0;
    const bool counted = GetProcessHandleCount(GetCurrentProcess(), &handles) != FALSE && handles > 0;
    return counted ? handles : HighestHandle();
}

uint32_t CountThreads()
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    uint32_t count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more != FALSE; more = Thread32Next(snapshot, &entry)) {
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    }
    CloseHandle(snapshot);
    return count;
}

} // namespace

ProcessUsage MeasureUsage()
{
    PROCESS_MEMORY_COUNTERS memory{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory));
    return {CountHandles(), CountThreads(), memory.PagefileUsage, memory.WorkingSetSize};
}

} // namespace velto::host
