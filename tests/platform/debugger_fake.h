#pragma once

#include <string>
#include <vector>

// Returns what the logging library has shown in the debugger since the last call. Native builds only.
std::vector<std::string> TakeDebuggerLines();
