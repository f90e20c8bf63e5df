// Portable versions of the Windows calls that the module makes, for unit tests. They are counted, and a test
// can make them fail. tests/fakes/redirect.h redirects the module's calls here.
//
// Waits and sleeps below one second last about 50 microseconds. Longer ones use a simulated clock that only
// AdvanceClock moves. A broken rule (closing a handle twice, one CoUninitialize too many, ending a thread
// inside an apartment, a system call inside a notification) is recorded as a violation. Fixtures expect
// Violations() to be empty after each test.
#pragma once

#include <windows.h>
#include <objbase.h>

#include <chrono>
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
void CoUninitialize();
HRESULT CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID *object);
LPVOID CoTaskMemAlloc(SIZE_T bytes);
void CoTaskMemFree(LPVOID block);

BOOL GetModuleHandleExW(DWORD flags, LPCWSTR nameOrAddress, HMODULE *module);
BOOL FreeLibrary(HMODULE module);
// Unlike the real function, this one returns. The calling thread then returns from its start routine.
void FreeLibraryAndExitThread(HMODULE module, DWORD exitCode);

LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result);
LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR keyClass, DWORD options,
                        REGSAM access, const SECURITY_ATTRIBUTES *security, PHKEY result,
                        LPDWORD disposition);
LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                         LPDWORD dataBytes);
LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE *data, DWORD dataBytes);
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
    RegSetValueExW,
    RegCloseKey,
};

// Makes the nth call from now, and the `times - 1` calls after it, fail. Calls that return an error code
// (COM, registry, waits) return `result`. The others return null or FALSE and set `result` as the last error.
void Fail(Call call, int64_t result, int nth = 1, int times = 1);
// Runs `action` on the calling thread just before the nth call from now.
void Before(Call call, std::function<void()> action, int nth = 1);
int Count(Call call); // since the last Reset
void ClearFaults();
// Counts all calls of the enumeration since the last Reset.
int TotalCalls();
// Runs `hook` at the start of each call of the enumeration, but not of the endpoints' methods, on the calling
// thread and before the call is counted, until the next Reset. The hook may block, so a test can order the
// calls of different threads.
void SetCallHook(std::function<void(Call)> hook);

// Clears faults, counts, records, violations and the registry's content. Waits up to ten seconds for running
// threads. Open handles stay open; open registry keys become deleted keys.
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
int LiveHandles(); // open handles of events and threads

struct WaitRecord {
    Call call; // WaitForSingleObject or Sleep
    HANDLE handle;
    DWORD waitMs;
    bool operator==(const WaitRecord &) const = default;
};
std::vector<WaitRecord> Waits(); // the first ten thousand, and all those on the simulated clock
// Simulated time that all threads spent in Sleep and in timed-out waits since the last Reset.
uint64_t WaitedMs();

void AdvanceClock(uint64_t milliseconds);
// Until the next Reset, waits and sleeps below one second return at once. For tests with one thread.
void SkipShortWaits();
// Blocks until exactly `count` threads wait on the simulated clock. False after ten seconds.
bool AwaitClockWaiters(int count);
// Threads created by CreateThread and not ended. Before it returns 0, it joins them: the destructors of their
// thread-local objects have run, too. Do not call it on one of them.
int LiveThreads();
// How many CreateThread calls led to the calling thread: 0 for a thread of the test, 1 for one that it
// started, and so on.
int ThreadDepth();
// True on a thread that a notification started, and on the threads that such a thread started.
bool StartedByNotification();

// What one thread has done since the last Reset.
struct ThreadTally {
    uint64_t calls = 0;    // to Windows and to the endpoints
    uint64_t waitedMs = 0; // simulated time in Sleep and in timed-out waits
};
std::vector<ThreadTally> ThreadTallies(); // of all threads, also of those that have ended
void CountCallOfThread();                 // for the other fakes

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
int OpenApartments();                 // sum of all threads' depths
int LiveTaskBlocks();                 // blocks of CoTaskMemAlloc not yet freed

// --- Modules -------------------------------------------------------------------------------

HMODULE ThisModule();           // contains all addresses except those passed to DeclareImplementation
HMODULE ImplementationModule(); // the DLL that pretends to implement the endpoints
void DeclareImplementation(const void *address);
int ModuleReferences(HMODULE module);
// How often ImplementationModule was unloaded: by leaving the last apartment, or by freeing the last
// reference outside any apartment.
int ImplementationUnloads();

// --- Registry ------------------------------------------------------------------------------

void SetRegistryDword(HKEY root, const std::wstring &path, const std::wstring &name, DWORD value);
void SetRegistryString(HKEY root, const std::wstring &path, const std::wstring &name,
                       const std::wstring &value);
std::optional<DWORD> RegistryDword(HKEY root, const std::wstring &path, const std::wstring &name);
int LiveRegistryKeys();

// --- Notifications -------------------------------------------------------------------------

// Marks the calling thread as delivering a notification while the object exists: most redirected calls are
// violations then. A thread that is started meanwhile makes no call before the notification has returned. A
// notification that waits for more than the start of its thread therefore never ends, which is a violation.
class NotificationScope {
public:
    NotificationScope();
    ~NotificationScope();
    NotificationScope(const NotificationScope &) = delete;
    NotificationScope &operator=(const NotificationScope &) = delete;
};
bool InNotification();
// How long a thread that a notification has started waits for the notification's end before it reports the
// violation. Ten seconds until a test changes it; Reset restores it.
void SetLongestNotification(std::chrono::milliseconds time);

} // namespace fakewin
