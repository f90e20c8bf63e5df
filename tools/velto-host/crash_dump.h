// Writes a minidump when this process crashes.
#pragma once

#include <windows.h>

#include <string>

namespace velto::host {

// From now on, an exception that nobody handles writes a minidump with the stacks of all threads and the list
// of modules to this file (UTF-8), prints the place of the crash, and ends the process with the exception's
// code. Without this call, Windows handles a crash as for any other program.
void WriteDumpOnCrash(const std::string &file);

// The same in two steps, for a program with its own handling of crashes. PrepareDump loads what WriteDump
// needs; WriteDump, in a handler of exceptions, writes the file. It returns false if the file could not be
// written.
void PrepareDump(const std::string &file);
bool WriteDump(EXCEPTION_POINTERS *exception);

} // namespace velto::host
