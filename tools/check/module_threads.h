// The threads of this process, by the DLL in which they began.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace velto::check {

struct ThreadInfo {
    uint32_t id = 0;
    uintptr_t startAddress = 0;    // 0 if the system does not report it
    HMODULE startModule = nullptr; // the DLL of `startAddress`; null if no DLL is mapped there
    std::string startFile;         // name of this DLL without its folder, in small letters; empty without one
};

// All threads of this process, now. A thread that ends meanwhile may be missing.
std::vector<ThreadInfo> ThreadsOfProcess();

// The threads that a module has started since the list `before`: those that begin in its code, or in another
// DLL of its folder, to which it may have delegated them, and those that a C runtime began to run such code.
// Threads that the system starts do not count. The module is mapped.
std::vector<ThreadInfo> NewThreadsOf(HMODULE module, const std::vector<ThreadInfo> &before);

// Of `threads`, those that still run.
std::vector<ThreadInfo> StillRunning(const std::vector<ThreadInfo> &threads);

// Of the threads that still run, those whose DLL is no longer mapped.
std::vector<ThreadInfo> WithoutCode(const std::vector<ThreadInfo> &threads);

// "3 threads: 4711 in module.dll+0x1a20, ...".
std::string Describe(const std::vector<ThreadInfo> &threads);

} // namespace velto::check
