// Records hardware exceptions of this process in the journal of its check.
//
// A handler at the head of the chain sees each exception first and records it, whoever replaces the filter
// for unhandled exceptions. The program may still handle the exception: the reader of the journal decides
// from the process's end. The system's own handling, with its report, happens afterwards in any case.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>

namespace velto::check {

struct CrashWatchOptions {
    std::filesystem::path journal; // exists, and is appended to
    std::wstring moduleName;       // file name of the module, for example "LibVeltoAudioHandler.dll"
    std::string dumpFile;          // UTF-8: a minidump of an unhandled exception; empty: none
    HANDLE ending = nullptr; // an event: set when an exception is about to end this process; may be null
};

// From now on, until the process ends. Once in a process, on the main thread, before the module is loaded:
// the places of all DLLs named `moduleName` are noted when the system loads them. Throws std::runtime_error
// if the journal cannot be opened.
void WatchCrashes(const CrashWatchOptions &options);

} // namespace velto::check
