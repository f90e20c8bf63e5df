// Command lines of Windows.
#pragma once

#include <string>
#include <vector>

namespace velto::check {

// Joins arguments so that CommandLineToArgvW, the C runtime and a command prompt split them in the same way.
std::string CommandLineOf(const std::vector<std::string> &arguments);

} // namespace velto::check
