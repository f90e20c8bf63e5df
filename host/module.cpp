#include "host/module.h"

#include <filesystem>
#include <vector>

#include <fmt/format.h>

#include "host/utf8.h"

namespace velto::host {
namespace {

constexpr wchar_t moduleName[] = L"LibVeltoAudioHandler.dll";
constexpr size_t longestPath = 32768; // what Windows itself allows, with its terminator

std::filesystem::path BesideThisProgram()
{
    std::vector<wchar_t> program(longestPath);
    GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size()));
    return std::filesystem::path(program.data()).replace_filename(moduleName);
}

} // namespace

Module::Module(const std::string &path)
{
    // LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR, by which the FFmpeg DLLs are found next to the module, needs a
    // full path with backslashes.
    const std::filesystem::path full =
        path.empty() ? BesideThisProgram() : std::filesystem::absolute(Widen(path)).make_preferred();
    m_path = Narrow(full.wstring());
    m_handle = LoadLibraryExW(full.c_str(), nullptr,
                              LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (m_handle == nullptr) {
        throw ModuleError(fmt::format("cannot load {}: {}", m_path, SystemErrorText(GetLastError())));
    }
    // By way of void *: the type that GetProcAddress declares has nothing to do with the function's.
    const auto entry = reinterpret_cast<VeltoGetAudioHandlerFunction>(
        reinterpret_cast<void *>(GetProcAddress(m_handle, VELTO_ENTRY_NAME)));
    const int32_t result = entry != nullptr ? entry(&m_table) : VELTO_OK;
    if (entry == nullptr || result != VELTO_OK) {
        Unload();
        throw ModuleError(entry == nullptr
                              ? fmt::format("{} has no function " VELTO_ENTRY_NAME, m_path)
                              : fmt::format(VELTO_ENTRY_NAME " of {} returned {}", m_path, result));
    }
}

Module::~Module()
{
    Unload();
}

void Module::Unload()
{
    if (m_handle != nullptr) {
        FreeLibrary(m_handle);
        m_handle = nullptr;
        m_table = {};
    }
}

bool Module::IsMapped() const
{
    return GetModuleHandleW(Widen(m_path).c_str()) != nullptr;
}

} // namespace velto::host
