// Text crosses into Windows as UTF-16 and is UTF-8 everywhere else in this program.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velto::host {

std::wstring Widen(const std::string &text);
std::string Narrow(const std::wstring &text);

// The process's arguments, program name first, whatever the code page.
std::vector<std::string> CommandLineArguments();

// The system's own words for a GetLastError code, followed by the code.
std::string SystemErrorText(uint32_t code);

} // namespace velto::host
