// A DLL that a check loads, calls and frees itself.
#pragma once

#include <windows.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <string_view>

#include "velto/audio_handler.h"

namespace velto::check {

// The DLL, a DLL that it needs, or its entry is missing, or the entry returned an error.
class ModuleFileError : public std::runtime_error {
public:
    // `clause`: the one that the module breaks; a literal. `systemError`: why Windows did not load the DLL; 0
    // for another reason.
    ModuleFileError(std::string_view clause, const std::string &text, DWORD systemError = 0)
        : std::runtime_error(text), m_clause(clause), m_systemError(systemError)
    {
    }
    std::string_view Clause() const { return m_clause; }
    DWORD SystemError() const { return m_systemError; }

private:
    std::string_view m_clause;
    DWORD m_systemError;
};

// Loads the DLL as hosts are asked to: Windows searches for the DLLs that it needs in the module's own folder
// and in the system's only. For one thread; other threads may call the table between CallEntry and Free.
class ModuleFile {
public:
    // Loads the DLL and calls nothing of it but its initialisation. `path`: UTF-8, full. Throws
    // ModuleFileError.
    explicit ModuleFile(const std::string &path);
    // Frees the DLL unless Free was called.
    ~ModuleFile();
    ModuleFile(const ModuleFile &) = delete;
    ModuleFile &operator=(const ModuleFile &) = delete;

    // Has the table filled. Throws ModuleFileError.
    void CallEntry();
    VeltoGetAudioHandlerFunction Entry() const { return m_entry; }
    // Full of null pointers before CallEntry.
    const AudioHandlerTable &Table() const { return m_table; }
    HMODULE Handle() const { return m_handle; } // also its base address; stays the same after Free

    // Releases this object's reference to the DLL. Returns how long the call took. The table must not be used
    // afterwards.
    std::chrono::duration<double> Free();
    // Whether a DLL is mapped at the base address of this one.
    bool IsMapped() const;
    // Polls until the DLL is unmapped or `time` has passed. Returns whether it is unmapped.
    bool WaitUntilUnmapped(std::chrono::duration<double> time) const;

private:
    HMODULE m_handle;
    VeltoGetAudioHandlerFunction m_entry = nullptr;
    AudioHandlerTable m_table{};
    bool m_isFreed = false;
};

} // namespace velto::check
