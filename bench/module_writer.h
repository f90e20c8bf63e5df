// Writes units through the shipped DLL, loaded as a host loads it.
#pragma once

#include <windows.h>

#include "bench/aac_units.h"
#include "velto/audio_handler.h"

namespace velto::bench {

// Throws std::runtime_error when the DLL next to this program cannot be loaded.
class ModuleWriter {
public:
    ModuleWriter();
    ~ModuleWriter();
    ModuleWriter(const ModuleWriter &) = delete;
    ModuleWriter &operator=(const ModuleWriter &) = delete;

    // Writes one unit to "speaker1". Returns the module's status.
    int32_t Write(AacUnit &unit);

private:
    HMODULE m_module = nullptr;
    AudioHandlerTable m_table{};
};

} // namespace velto::bench
