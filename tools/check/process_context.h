// What checks need that only velto-host can make: the module's file, a folder for work, and this program's
// path for further child processes.
#pragma once

#include <windows.h>

#include <string>

#include "check/portable/events.h"
#include "check/portable/results.h"

namespace velto::check {

// One object in the process of a check. Its fields are set before the check runs and belong to the check's
// thread; `events` may be called from one thread at a time. Checks without a need for it use Context only.
struct ProcessContext {
    std::string modulePath;      // UTF-8, full
    std::string workFolder;      // UTF-8: an empty folder for this check, removed afterwards
    std::string hostProgram;     // UTF-8: velto-host.exe, for further child processes
    double minutes = 0;          // of --minutes: the time for each check of level 10
    HMODULE module = nullptr;    // loaded; null for a check that loads the module itself
    EventSink *events = nullptr; // the journal; outlives the check
    HeardSound *heard = nullptr; // filled by a check that listens; reported if its `source` is not empty
};

ProcessContext &CurrentProcess();

} // namespace velto::check
