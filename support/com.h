// Helpers for COM: releasing interfaces, memory and handles, and HRESULTs as text.
#pragma once

#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <string>

namespace velto {

// Releases an interface, if there is one, and clears the pointer.
template <typename Interface>
void SafeRelease(Interface *&object)
{
    if (object != nullptr) {
        object->Release();
        object = nullptr;
    }
}

// Frees a block that COM allocated, if there is one, and clears the pointer.
template <typename Block>
void SafeCoTaskMemFree(Block *&block)
{
    if (block != nullptr) {
        CoTaskMemFree(block);
        block = nullptr;
    }
}

// Closes a handle, if there is one, and clears it.
inline void SafeCloseHandle(HANDLE &handle)
{
    if (handle != nullptr) {
        CloseHandle(handle);
        handle = nullptr;
    }
}

// "0x" and eight upper-case hexadecimal digits.
inline std::string HresultText(HRESULT result)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(result));
    return text;
}

} // namespace velto
