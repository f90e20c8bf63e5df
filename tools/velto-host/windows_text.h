// Conversions between Windows' UTF-16 and the UTF-8 of the rest of this program.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velto::host {

std::wstring ToWide(const std::string &text);
std::string ToUtf8(const std::wstring &text);

// The process's arguments without the program's name. Independent of the code page.
std::vector<std::string> CommandLineArguments();

// The full path of this program.
std::wstring ProgramPath();

// A variable of the process's environment; empty without one.
std::wstring EnvironmentVariable(const wchar_t *name);

// The system's message for an error code or HRESULT, followed by the code.
std::string SystemErrorText(uint32_t code);

} // namespace velto::host
