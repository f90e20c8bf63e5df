// This folder is a subset of Windows' headers. With it, the module's sources compile natively on Linux, for
// sanitizers, fuzzing and coverage.
//
// The subset contains what the module and its tests use, with the names, values and layouts of the SDK.
// Functions are only declared: the unit tests redirect each call to a fake (tests/fakes/redirect.h), and no
// native program links the module's sources without the fakes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// --- Types ---------------------------------------------------------------------------------

using BYTE = uint8_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using UINT = uint32_t;
using UINT32 = uint32_t;
using UINT64 = uint64_t;
using ULONG = uint32_t;
using ULONGLONG = uint64_t;
using FLOAT = float;
using BOOL = int32_t;
using WINBOOL = BOOL;
using SIZE_T = size_t;
using HRESULT = int32_t;
using LSTATUS = int32_t;
using LPVOID = void *;
using LPBYTE = BYTE *;
using LPDWORD = DWORD *;
using PVOID = void *;
using LPWSTR = wchar_t *;
using LPCWSTR = const wchar_t *;
using HANDLE = void *;

struct HINSTANCE__;
using HINSTANCE = HINSTANCE__ *;
using HMODULE = HINSTANCE;

struct HKEY__;
using HKEY = HKEY__ *;
using PHKEY = HKEY *;
using REGSAM = DWORD;

struct SECURITY_ATTRIBUTES;
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES *;

#define TRUE 1
#define FALSE 0
#define WINAPI
#define STDMETHODCALLTYPE
#define __declspec(attribute)

using LPTHREAD_START_ROUTINE = DWORD(WINAPI *)(LPVOID parameter);

// --- GUID ----------------------------------------------------------------------------------

struct GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
};
using IID = GUID;
using CLSID = GUID;
using LPCGUID = const GUID *;
using REFGUID = const GUID &;
using REFIID = const IID &;
using REFCLSID = const CLSID &;

inline bool IsEqualGUID(REFGUID left, REFGUID right)
{
    return std::memcmp(&left, &right, sizeof(GUID)) == 0;
}
inline bool IsEqualIID(REFIID left, REFIID right)
{
    return IsEqualGUID(left, right);
}
inline bool IsEqualCLSID(REFCLSID left, REFCLSID right)
{
    return IsEqualGUID(left, right);
}
inline bool operator==(REFGUID left, REFGUID right)
{
    return IsEqualGUID(left, right);
}

// __uuidof(Interface), which compilers for Windows have built in. WIN32_UUID assigns an interface its id.
template <typename Interface>
const GUID &Win32UuidOf();
#define __uuidof(type) Win32UuidOf<type>()
#define WIN32_UUID(type, id)                                                                                 \
    template <>                                                                                              \
    inline const GUID &Win32UuidOf<type>()                                                                   \
    {                                                                                                        \
        return id;                                                                                           \
    }

// --- Results -------------------------------------------------------------------------------

#define SUCCEEDED(result) (static_cast<HRESULT>(result) >= 0)
#define FAILED(result) (static_cast<HRESULT>(result) < 0)
#define HRESULT_FROM_WIN32(error) static_cast<HRESULT>(((error)&0xFFFFU) | 0x80070000U)

#define S_OK static_cast<HRESULT>(0)
#define S_FALSE static_cast<HRESULT>(1)
#define E_NOTIMPL static_cast<HRESULT>(0x80004001U)
#define E_NOINTERFACE static_cast<HRESULT>(0x80004002U)
#define E_POINTER static_cast<HRESULT>(0x80004003U)
#define E_FAIL static_cast<HRESULT>(0x80004005U)
#define E_UNEXPECTED static_cast<HRESULT>(0x8000FFFFU)
#define E_ACCESSDENIED static_cast<HRESULT>(0x80070005U)
#define E_OUTOFMEMORY static_cast<HRESULT>(0x8007000EU)
#define E_INVALIDARG static_cast<HRESULT>(0x80070057U)
#define CO_E_NOTINITIALIZED static_cast<HRESULT>(0x800401F0U)
#define REGDB_E_CLASSNOTREG static_cast<HRESULT>(0x80040154U)
#define RPC_E_CHANGED_MODE static_cast<HRESULT>(0x80010106U)

#define ERROR_SUCCESS 0
#define ERROR_FILE_NOT_FOUND 2
#define ERROR_ACCESS_DENIED 5
#define ERROR_INVALID_HANDLE 6
#define ERROR_NOT_ENOUGH_MEMORY 8
#define ERROR_BAD_PATHNAME 161
#define ERROR_MORE_DATA 234
#define ERROR_KEY_DELETED 1018
#define ERROR_NOT_FOUND 1168

// --- Waiting -------------------------------------------------------------------------------

#define INFINITE 0xFFFFFFFFU
#define WAIT_OBJECT_0 0x00000000U
#define WAIT_TIMEOUT 0x00000102U
#define WAIT_FAILED 0xFFFFFFFFU

// --- Module entry --------------------------------------------------------------------------

#define DLL_PROCESS_DETACH 0

#define GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT 0x2U
#define GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS 0x4U

// --- Registry ------------------------------------------------------------------------------

#define HKEY_CURRENT_USER reinterpret_cast<HKEY>(static_cast<uintptr_t>(0x80000001U))
#define HKEY_LOCAL_MACHINE reinterpret_cast<HKEY>(static_cast<uintptr_t>(0x80000002U))

#define KEY_QUERY_VALUE 0x0001U
#define KEY_SET_VALUE 0x0002U
#define KEY_ALL_ACCESS 0xF003FU
#define REG_OPTION_NON_VOLATILE 0U

#define REG_NONE 0U
#define REG_SZ 1U
#define REG_BINARY 3U
#define REG_DWORD 4U
#define RRF_RT_REG_DWORD 0x00000010U

// --- Functions -----------------------------------------------------------------------------

extern "C" {
HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
DWORD WaitForSingleObject(HANDLE handle, DWORD waitMs);
DWORD WaitForMultipleObjects(DWORD count, const HANDLE *handles, BOOL waitForAll, DWORD waitMs);
BOOL CloseHandle(HANDLE handle);
void Sleep(DWORD sleepMs);
HANDLE CreateThread(LPSECURITY_ATTRIBUTES security, SIZE_T stackSize, LPTHREAD_START_ROUTINE start,
                    LPVOID parameter, DWORD flags, LPDWORD threadId);
DWORD GetCurrentThreadId();
DWORD GetLastError();
void SetLastError(DWORD error);
ULONGLONG GetTickCount64();

BOOL GetModuleHandleExW(DWORD flags, LPCWSTR nameOrAddress, HMODULE *module);
BOOL FreeLibrary(HMODULE module);
void FreeLibraryAndExitThread(HMODULE module, DWORD exitCode);

LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result);
LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR keyClass, DWORD options,
                        REGSAM access, const SECURITY_ATTRIBUTES *security, PHKEY result,
                        LPDWORD disposition);
LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                         LPDWORD dataBytes);
LSTATUS RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR name, DWORD flags, LPDWORD type, PVOID data,
                     LPDWORD dataBytes);
LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE *data, DWORD dataBytes);
LSTATUS RegDeleteTreeW(HKEY key, LPCWSTR subKey);
LSTATUS RegCloseKey(HKEY key);
}
