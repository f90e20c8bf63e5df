#include "support/module_reference.h"

#include <memory>
#include <new>
#include <system_error>
#include <utility>

namespace velto {
namespace {

HMODULE AcquireModuleOf(const void *address)
{
    HMODULE module = nullptr; // a failed call leaves it null
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, static_cast<LPCWSTR>(address), &module);
    return module;
}

struct ThreadStart {
    LPTHREAD_START_ROUTINE routine;
    void *argument;
    HMODULE module;
};

DWORD WINAPI RunThread(void *argument)
{
    const ThreadStart thread = *std::unique_ptr<ThreadStart>(static_cast<ThreadStart *>(argument));
    const DWORD result = thread.routine(thread.argument);
    // FreeLibrary could unmap this code and then return to it. FreeLibraryAndExitThread never returns.
    if (thread.module != nullptr) {
        FreeLibraryAndExitThread(thread.module, result);
    }
    return result;
}

DWORD WINAPI RunBody(void *body)
{
    reinterpret_cast<void (*)()>(body)();
    return 0;
}

} // namespace

void ModuleReference::HoldModuleOf(const void *address)
{
    const HMODULE previous = std::exchange(m_module, AcquireModuleOf(address));
    if (previous != nullptr) {
        FreeLibrary(previous);
    }
}

void ModuleReference::HoldImplementationOf(void *comObject)
{
    // A COM object begins with a pointer to its function table.
    void **table = *static_cast<void ***>(comObject);
    HoldModuleOf(table[0]);
}

void ModuleReference::Drop()
{
    if (m_module != nullptr) {
        FreeLibrary(std::exchange(m_module, nullptr));
    }
}

void KeepModuleMapped(const void *address)
{
    AcquireModuleOf(address); // without memory for the reference, nothing better can be done
}

HANDLE StartModuleThread(LPTHREAD_START_ROUTINE routine, void *argument)
{
    const HMODULE module = AcquireModuleOf(reinterpret_cast<const void *>(&RunThread));
    auto *start = new (std::nothrow) ThreadStart{routine, argument, module};
    DWORD error = ERROR_NOT_ENOUGH_MEMORY;
    if (start != nullptr) {
        if (const HANDLE thread = CreateThread(nullptr, 0, RunThread, start, 0, nullptr)) {
            return thread; // RunThread deletes `start`
        }
        error = GetLastError(); // freeing memory may change it
        delete start;
    }
    if (module != nullptr) {
        FreeLibrary(module);
    }
    SetLastError(error);
    return nullptr;
}

void AwaitSignal(HANDLE handle)
{
    while (WaitForSingleObject(handle, INFINITE) == WAIT_FAILED) {
        Sleep(1);
    }
}

void StartDetachedThread(void (*body)())
{
    const HANDLE thread = StartModuleThread(RunBody, reinterpret_cast<void *>(body));
    if (thread == nullptr) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(),
                                "cannot start a thread");
    }
    CloseHandle(thread);
}

} // namespace velto
