#include "support/module_reference.h"

#include <system_error>
#include <utility>

namespace velto {
namespace {

HMODULE AcquireModuleOf(const void *address)
{
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, static_cast<LPCWSTR>(address), &module)) {
        return nullptr;
    }
    return module;
}

struct DetachedThread {
    void (*body)();
    HMODULE module;
};

DWORD WINAPI RunDetached(void *argument)
{
    auto *start = static_cast<DetachedThread *>(argument);
    const DetachedThread thread = *start;
    delete start;
    thread.body();
    // Leaving through the loader: returning would mean running code that may be gone by then.
    if (thread.module != nullptr) {
        FreeLibraryAndExitThread(thread.module, 0);
    }
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
    // A COM object begins with the pointer to its table of functions.
    void **table = *static_cast<void ***>(comObject);
    HoldModuleOf(table[0]);
}

void ModuleReference::Drop()
{
    if (m_module != nullptr) {
        FreeLibrary(std::exchange(m_module, nullptr));
    }
}

void StartDetachedThread(void (*body)())
{
    const HMODULE module = AcquireModuleOf(reinterpret_cast<const void *>(&RunDetached));
    auto *start = new DetachedThread{body, module};
    const HANDLE thread = CreateThread(nullptr, 0, RunDetached, start, 0, nullptr);
    if (thread == nullptr) {
        const auto error = static_cast<int>(GetLastError());
        delete start;
        if (module != nullptr) {
            FreeLibrary(module);
        }
        throw std::system_error(error, std::system_category(), "cannot start a thread");
    }
    CloseHandle(thread);
}

} // namespace velto
