// Loads LibVeltoAudioHandler into this process, gives access to its table, and collects the events that it
// sends.
#pragma once

#include <windows.h>

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "velto-host/output.h"
#include "velto/audio_handler.h"

namespace velto::host {

// The DLL, a DLL that it needs or its entry point is missing, or the entry point returned an error.
class ModuleError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Created and destroyed by the main thread. Other threads may call the table while this object exists.
class Module {
public:
    // Loads the DLL at this path (UTF-8), or LibVeltoAudioHandler.dll in this program's folder if the path is
    // empty. Windows searches for the DLLs that it needs in its own folder and in the system's only.
    explicit Module(const std::string &path);
    ~Module();
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    // The DLL that the constructor would load.
    static std::filesystem::path FullPath(const std::string &path);

    const AudioHandlerTable *operator->() const { return &m_table; }
    const AudioHandlerTable &Table() const { return m_table; }
    const std::string &Path() const { return m_path; }

    // Releases this program's reference to the DLL; the table must not be used afterwards. The DLL stays
    // loaded while one of its threads runs.
    void Unload();

    // Whether the DLL is loaded in this process.
    bool IsLoaded() const;

private:
    std::string m_path;
    HMODULE m_handle = nullptr;
    AudioHandlerTable m_table{};
};

struct ListenerEvent {
    std::string device;
    int32_t code = 0; // VELTO_EVENT_...
};

// Collects the module's events. Only one object at a time, because the callback has no context argument.
class ListenerLog {
public:
    // Registers with the module. With `show`, each event is printed when it arrives.
    ListenerLog(const Module &module, const Output &output, bool show);
    // Later events are dropped. Does not call the module, which may be unloaded.
    ~ListenerLog();
    ListenerLog(const ListenerLog &) = delete;
    ListenerLog &operator=(const ListenerLog &) = delete;

    std::vector<ListenerEvent> Events() const;

    // For a try of crash dumps: the next event ends this process with an illegal instruction, in a function
    // that the module calls.
    static void CrashInNextEvent(bool crash);

private:
    static void OnEvent(const char *deviceId, uint32_t idLength, int32_t eventCode);

    const Output &m_output;
    const bool m_show;
    mutable std::mutex m_mutex; // guards m_events
    std::vector<ListenerEvent> m_events;
};

} // namespace velto::host
