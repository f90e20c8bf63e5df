#include "check/module_file.h"

#include "velto-host/module.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

using Clock = std::chrono::steady_clock;

constexpr DWORD unmapPollMs = 20;

} // namespace

ModuleFile::ModuleFile(const std::string &path)
    : m_handle(LoadLibraryExW(host::Module::FullPath(path).c_str(), nullptr,
                              LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32))
{
    if (m_handle == nullptr) {
        const DWORD error = GetLastError();
        throw ModuleFileError("LIF-5", "cannot load " + path + ": " + host::SystemErrorText(error), error);
    }
    // The cast through void * avoids a warning about the different function type of GetProcAddress.
    m_entry = reinterpret_cast<VeltoGetAudioHandlerFunction>(
        reinterpret_cast<void *>(GetProcAddress(m_handle, VELTO_ENTRY_NAME)));
    if (m_entry == nullptr) {
        FreeLibrary(m_handle);
        throw ModuleFileError("ENT-1", path + " has no function " VELTO_ENTRY_NAME);
    }
}

ModuleFile::~ModuleFile()
{
    if (!m_isFreed) {
        Free();
    }
}

void ModuleFile::CallEntry()
{
    const int32_t result = m_entry(&m_table);
    if (result != VELTO_OK) {
        throw ModuleFileError("ENT-3", VELTO_ENTRY_NAME " returned " + std::to_string(result));
    }
}

std::chrono::duration<double> ModuleFile::Free()
{
    m_isFreed = true;
    const auto begin = Clock::now();
    FreeLibrary(m_handle);
    return Clock::now() - begin;
}

bool ModuleFile::IsMapped() const
{
    HMODULE found = nullptr;
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                  GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                              reinterpret_cast<LPCWSTR>(m_handle), &found) != FALSE &&
           found == m_handle;
}

bool ModuleFile::WaitUntilUnmapped(std::chrono::duration<double> time) const
{
    const auto begin = Clock::now();
    while (IsMapped()) {
        if (Clock::now() - begin >= time) {
            return false;
        }
        Sleep(unmapPollMs);
    }
    return true;
}

} // namespace velto::check
