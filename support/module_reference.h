// References that keep a module mapped while its code can run.
#pragma once

#include <windows.h>

namespace velto {

// A counted reference to the module that contains an address. The loader does not unmap a module while there
// are references to it.
// https://learn.microsoft.com/windows/win32/api/libloaderapi/nf-libloaderapi-getmodulehandleexw
class ModuleReference {
public:
    ModuleReference() = default;
    ~ModuleReference() { Drop(); }
    ModuleReference(const ModuleReference &) = delete;
    ModuleReference &operator=(const ModuleReference &) = delete;

    // Replaces the reference with one to the module of `address`. After a failure there is no reference.
    void HoldModuleOf(const void *address);
    // Replaces the reference with one to the module that implements a COM object. COM may unload an
    // in-process server when the last thread leaves COM, even while there are references to its objects.
    void HoldImplementationOf(void *comObject);
    void Drop();
    bool Holds() const { return m_module != nullptr; }

private:
    HMODULE m_module = nullptr;
};

// Keeps the module of `address` mapped until the process ends.
void KeepModuleMapped(const void *address);

// Starts a thread that keeps this module mapped until `routine` has returned. If the thread's reference is
// then the last one, the loader unmaps the module. The caller closes the returned handle. Returns null and
// sets the last error if the thread cannot be started.
HANDLE StartModuleThread(LPTHREAD_START_ROUTINE routine, void *argument);

// Waits until a thread has ended or an event is set. Retries a failed wait: the caller is about to free
// memory that the other thread uses, so AwaitSignal must not return early.
void AwaitSignal(HANDLE handle);

// Starts a thread as StartModuleThread does and closes its handle. Throws std::system_error if the thread
// cannot be started.
void StartDetachedThread(void (*body)());

} // namespace velto
