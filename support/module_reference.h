// References that keep code mapped while it can still be run.
#pragma once

#include <windows.h>

namespace velto {

// A counted reference to the module that contains an address: while one is held, the loader
// does not unmap that module.
// https://learn.microsoft.com/windows/win32/api/libloaderapi/nf-libloaderapi-getmodulehandleexw
class ModuleReference {
public:
    ModuleReference() = default;
    ~ModuleReference() { Drop(); }
    ModuleReference(const ModuleReference &) = delete;
    ModuleReference &operator=(const ModuleReference &) = delete;

    // Holds the module of `address` instead of what was held before.
    void HoldModuleOf(const void *address);
    // Holds the module that implements a COM object: once COM has been left, it may unload an
    // in-process server to whose objects pointers are still kept.
    void HoldImplementationOf(void *comObject);
    void Drop();
    bool Holds() const { return m_module != nullptr; }

private:
    HMODULE m_module = nullptr;
};

// Starts a thread which keeps this module mapped until `routine` has returned; if it then held the
// last reference, the module goes away from that thread. The caller closes the handle; null, with
// the last error set, when there can be no thread.
HANDLE StartModuleThread(LPTHREAD_START_ROUTINE routine, void *argument);

// Waits until a thread has ended or an event is set. A wait that fails is made again: whoever waits goes
// on to what nobody else may use any more.
void AwaitSignal(HANDLE handle);

// As StartModuleThread, for a body that nobody waits for. Throws std::system_error when there can be no
// thread.
void StartDetachedThread(void (*body)());

} // namespace velto
