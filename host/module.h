// LibVeltoAudioHandler in this process: loaded at run time and driven through its table, as the
// platform's host does. Moves with the program's main thread; not shared.
#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

#include "host/device_id.h"
#include "velto/audio_handler.h"

namespace velto::host {

// The DLL, one of its own DLLs or its entry point is missing, or the entry point refused.
class ModuleError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Module {
public:
    // Loads the DLL at this path, UTF-8; empty: LibVeltoAudioHandler.dll in this program's folder. The
    // DLLs that it needs are looked for in its own folder, then in the system's, and nowhere else.
    explicit Module(const std::string &path);
    ~Module();
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    const AudioHandlerTable *operator->() const { return &m_table; }
    const AudioHandlerTable &Table() const { return m_table; }
    const std::string &Path() const { return m_path; }

    // Gives back this program's reference. The table must not be called any more. The module stays
    // mapped while one of its threads runs.
    void Unload();

    // Whether the DLL's code is still in the process.
    bool IsMapped() const;

private:
    std::string m_path;
    HMODULE m_handle = nullptr;
    AudioHandlerTable m_table{};
};

} // namespace velto::host
