// COM's functions.
#pragma once

#include <unknwn.h>
#include <windows.h>

#define COINIT_MULTITHREADED 0x0U
#define COINIT_APARTMENTTHREADED 0x2U
#define COINIT_SPEED_OVER_MEMORY 0x8U

#define CLSCTX_ALL 0x17U

extern "C" {
HRESULT CoInitializeEx(LPVOID reserved, DWORD model);
void CoUninitialize();
HRESULT CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID *object);
LPVOID CoTaskMemAlloc(SIZE_T bytes);
void CoTaskMemFree(LPVOID block);
}
