#include "velto-host/module.h"

#include <atomic>
#include <filesystem>

#ifdef _MSC_VER
#include <intrin.h>
#endif

#include "velto-host/windows_text.h"

namespace velto::host {
namespace {

constexpr wchar_t moduleName[] = L"LibVeltoAudioHandler.dll";

std::atomic<ListenerLog *> currentLog{nullptr};
std::atomic<bool> crashInNextEvent{false};

// Not inlined, so that the crash has a frame with this name.
__declspec(noinline) void CrashOnPurpose()
{
    // An illegal instruction.
#ifdef _MSC_VER
    __ud2();
#else
    __builtin_trap();
#endif
}

std::filesystem::path PathInThisProgramsFolder()
{
    return std::filesystem::path(ProgramPath()).replace_filename(moduleName);
}

std::string EventName(int32_t code)
{
    switch (code) {
    case VELTO_EVENT_TRACK_CLOSED:
        return "track closed";
    case VELTO_EVENT_PARAMETERS_SET:
        return "parameters set";
    default:
        return "unknown";
    }
}

} // namespace

// LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR, which finds the FFmpeg DLLs next to the module, needs a full path with
// backslashes.
std::filesystem::path Module::FullPath(const std::string &path)
{
    return path.empty() ? PathInThisProgramsFolder()
                        : std::filesystem::absolute(ToWide(path)).make_preferred();
}

Module::Module(const std::string &path)
{
    const std::filesystem::path full = FullPath(path);
    m_path = ToUtf8(full.wstring());
    m_handle = LoadLibraryExW(full.c_str(), nullptr,
                              LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (m_handle == nullptr) {
        throw ModuleError("cannot load " + m_path + ": " + SystemErrorText(GetLastError()));
    }
    // The cast through void * avoids a warning about the different function type of GetProcAddress.
    const auto entry = reinterpret_cast<VeltoGetAudioHandlerFunction>(
        reinterpret_cast<void *>(GetProcAddress(m_handle, VELTO_ENTRY_NAME)));
    const int32_t result = entry != nullptr ? entry(&m_table) : VELTO_OK;
    if (entry == nullptr || result != VELTO_OK) {
        Unload();
        throw ModuleError(entry == nullptr
                              ? m_path + " has no function " VELTO_ENTRY_NAME
                              : VELTO_ENTRY_NAME " of " + m_path + " returned " + std::to_string(result));
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

bool Module::IsLoaded() const
{
    return GetModuleHandleW(ToWide(m_path).c_str()) != nullptr;
}

ListenerLog::ListenerLog(const Module &module, const Output &output, bool show)
    : m_output(output), m_show(show)
{
    currentLog = this;
    const AudioListener listener{OnEvent, nullptr};
    if (module->RegisterListener(&listener) != VELTO_OK) {
        m_output.Complain("RegisterListener failed: events are not reported");
    }
}

ListenerLog::~ListenerLog()
{
    currentLog = nullptr;
}

std::vector<ListenerEvent> ListenerLog::Events() const
{
    const std::lock_guard lock(m_mutex);
    return m_events;
}

void ListenerLog::CrashInNextEvent(bool crash)
{
    crashInNextEvent = crash;
}

void ListenerLog::OnEvent(const char *deviceId, uint32_t idLength, int32_t eventCode)
{
    if (crashInNextEvent) {
        CrashOnPurpose();
    }
    ListenerLog *log = currentLog;
    if (log == nullptr) {
        return;
    }
    const std::lock_guard lock(log->m_mutex);
    log->m_events.push_back({std::string(deviceId, idLength), eventCode});
    if (log->m_show) {
        const ListenerEvent &event = log->m_events.back();
        log->m_output.Say("event {} ({}) for {}", event.code, EventName(event.code), event.device);
    }
}

} // namespace velto::host
