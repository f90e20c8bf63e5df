// How the capture code shows an HRESULT in the log.
#pragma once

#include <windows.h>

#include <cstdio>
#include <string>

namespace velto {

// "0x" and eight upper-case hexadecimal digits.
inline std::string HresultText(HRESULT result)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(result));
    return text;
}

} // namespace velto
