#include "host/process_usage.h"

#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

namespace velto::host {
namespace {

// A new handle gets the lowest free number, in steps of four: a count of those in use that needs no
// help from the system. Wine gives none.
uint32_t HighestHandle()
{
    const HANDLE probe = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const auto number = reinterpret_cast<uintptr_t>(probe);
    CloseHandle(probe);
    return static_cast<uint32_t>(number / 4);
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

ProcessUsage MeasureProcess()
{
    ProcessUsage usage;
    DWORD handles = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &handles) && handles > 0) {
        usage.handles = handles;
    } else {
        usage.handles = HighestHandle();
    }
    usage.threads = CountThreads();
    PROCESS_MEMORY_COUNTERS memory{};
    if (K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory))) {
        usage.committedBytes = memory.PagefileUsage;
        usage.residentBytes = memory.WorkingSetSize;
    }
    return usage;
}

Json Describe(const ProcessUsage &usage)
{
    return {{"handles", usage.handles},
            {"threads", usage.threads},
            {"committedBytes", usage.committedBytes},
            {"residentBytes", usage.residentBytes}};
}

} // namespace velto::host
