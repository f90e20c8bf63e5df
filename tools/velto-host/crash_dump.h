// Writes a minidump when this process crashes.
#pragma once

#include <string>

namespace velto::host {

// From now on, an exception that nobody handles writes a minidump with the stacks of all threads and the list
// of modules to this file (UTF-8), prints the place of the crash, and ends the process with the exception's
// code. Without this call, Windows handles a crash as for any other program.
void WriteDumpOnCrash(const std::string &file);

} // namespace velto::host
