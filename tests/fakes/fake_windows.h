// The Windows calls that the module makes, for unit tests: portable, counted, and failing where a
// test asks for it. tests/fakes/redirect.h leads the module's calls here.
//
// Waits and sleeps below one second take next to no time; longer ones run on a clock that only
// AdvanceClock moves. What must never happen (a handle closed twice, a CoUninitialize too many, a
// thread that ends inside an apartment, a system call inside a notification) is a violation, kept
// as text for the test's tear-down to find.
#pragma once

#include <windows.h>
#include <objbase.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/fakes/fault_script.h"

namespace fakewin {

// --- The redirected calls ------------------------------------------------------------------

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
DWORD WaitForSingleObject(HANDLE handle, DWORD waitMs);
BOOL CloseHandle(HANDLE handle);
void Sleep(DWORD sleepMs);
HANDLE CreateThread(LPSECURITY_ATTRIBUTES security, SIZE_T stackSize, LPTHREAD_START_ROUTINE start,
                    LPVOID parameter, DWORD flags, LPDWORD threadId);
DWORD GetLastError();
void SetLastError(DWORD error);
ULONGLONG GetTickCount64();

HRESULT CoInitializeEx(LPVOID reserved, DWORD model);
HRESULT CoInitialize(LPVOID reserved);
void CoUninitialize();
HRESULT CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID *object);
LPVOID CoTaskMemAlloc(SIZE_T bytes);
void CoTaskMemFree(LPVOID block);

BOOL GetModuleHandleExW(DWORD flags, LPCWSTR nameOrAddress, HMODULE *module);
BOOL FreeLibrary(HMODULE module);
// Returns, unlike the system's: the caller's thread ends by returning, too.
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
LSTATUS RegDeleteKeyW(HKEY key, LPCWSTR subKey);
LSTATUS RegCloseKey(HKEY key);

// --- Scripting -----------------------------------------------------------------------------

enum class Call {
    CreateEventW,
    SetEvent,
    ResetEvent,
    WaitForSingleObject,
    CloseHandle,
    Sleep,
    CreateThread,
    CoInitializeEx,
    CoUninitialize,
    CoCreateInstance,
    CoTaskMemAlloc,
    CoTaskMemFree,
    GetModuleHandleExW,
    FreeLibrary,
    FreeLibraryAndExitThread,
    RegOpenKeyExW,
    RegCreateKeyExW,
    RegQueryValueExW,
    RegGetValueW,
    RegSetValueExW,
    RegDeleteTreeW,
    RegCloseKey,
};

// The nth call from now, and the `times - 1` after it, fail. Calls that return an error code
// (COM, registry, wait) return `result`; the others return null or FALSE, and GetLastError `result`.
void Fail(Call call, int64_t result, int nth = 1, int times = 1);
void Before(Call call, std::function<void()> action, int nth = 1);
int Count(Call call);
void Heal(); // no call fails any more
// All calls since the last Reset, GetLastError excepted.
int TotalCalls();

// Forgets faults, counters, records, violations and the registry's content (keys that are still
// open answer as deleted). Objects that are still open stay. Waits for threads that have not ended.
void Reset();

std::vector<std::string> Violations();
void AddViolation(const std::string &text);

// --- Events, waits, clock ------------------------------------------------------------------

struct EventRecord {
    HANDLE handle;
    bool manualReset;
    bool initialState;
    bool plain; // unnamed, with default security
};
std::vector<EventRecord> CreatedEvents();
int LiveHandles(); // events and threads whose handle is open

struct WaitRecord {
    Call call; // WaitForSingleObject or Sleep
    HANDLE handle;
    DWORD waitMs;
    bool operator==(const WaitRecord &) const = default;
};
std::vector<WaitRecord> Waits(); // the first ten thousand, and all that the clock drives
// For how long all threads together have slept or waited in vain since the last Reset, had that taken
// its time.
uint64_t WaitedMs();

void AdvanceClock(uint64_t milliseconds);
// Until the next Reset, waits and sleeps below one second take no time at all: for a test with one thread.
void SkipShortWaits();
// True when `count` threads wait on the clock, or do so within ten seconds.
bool AwaitClockWaiters(int count);
int LiveThreads(); // of CreateThread

// --- COM -----------------------------------------------------------------------------------

using ClassFactory = std::function<HRESULT(REFCLSID classId, REFIID iid, void **object)>;
void SetClassFactory(ClassFactory factory);

struct Instantiation {
    CLSID classId;
    IID iid;
    DWORD context;
    bool aggregated;
};
std::vector<Instantiation> Instantiations();
std::vector<DWORD> ApartmentModels(); // the argument of each CoInitializeEx
int ApartmentDepth();                 // of the calling thread
int OpenApartments();                 // depths of all threads together
int LiveTaskBlocks();                 // blocks of CoTaskMemAlloc not yet freed

// --- Modules -------------------------------------------------------------------------------

HMODULE ThisModule();           // which every address belongs to, unless it was declared below
HMODULE ImplementationModule(); // the DLL that implements the fake endpoints
void DeclareImplementation(const void *address);
int ModuleReferences(HMODULE module);
// How often that DLL went away, that is, how often the last apartment was left or the last
// reference dropped while nothing else kept it.
int ImplementationUnloads();

// --- Registry ------------------------------------------------------------------------------

void SetRegistryDword(HKEY root, const std::wstring &path, const std::wstring &name, DWORD value);
void SetRegistryString(HKEY root, const std::wstring &path, const std::wstring &name,
                       const std::wstring &value);
std::optional<DWORD> RegistryDword(HKEY root, const std::wstring &path, const std::wstring &name);
int LiveRegistryKeys();

// --- Notifications -------------------------------------------------------------------------

// While one exists, the thread delivers a notification: a redirected call is a violation.
class NotificationScope {
public:
    NotificationScope();
    ~NotificationScope();
    NotificationScope(const NotificationScope &) = delete;
    NotificationScope &operator=(const NotificationScope &) = delete;
};
bool InNotification();

} // namespace fakewin
