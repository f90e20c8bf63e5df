// Shows text in a debugger that is attached to the process.
#pragma once

#include <string_view>

namespace logging {

// `line` is UTF-8. Does nothing without a debugger, and on other systems than Windows.
void ShowInDebugger(std::string_view line);

} // namespace logging
