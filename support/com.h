// Small helpers for raw COM pointers and what COM allocates.
#pragma once

#include <windows.h>
#include <objbase.h>

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

} // namespace velto
