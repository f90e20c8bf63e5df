#include "logging/debugger.h"

#ifdef _WIN32
#include <windows.h>

#include <string>
#endif

namespace logging {

#ifdef _WIN32

void ShowInDebugger(std::string_view line)
{
    const int bytes = static_cast<int>(line.size());
    std::wstring text(line.size(), L'\0'); // UTF-16 never has more units than UTF-8 has bytes
    const int units = MultiByteToWideChar(CP_UTF8, 0, line.data(), bytes, text.data(), bytes);
    text.resize(static_cast<size_t>(units));
    OutputDebugStringW(text.c_str());
}

#else

void ShowInDebugger(std::string_view) {}

#endif

} // namespace logging
