// velto-test-host storm: makes all calls at once, as no correct host does, and counts the results.
#pragma once

#include <cstdint>
#include <string>

#include "check/portable/call_storm.h"
#include "velto-host/module.h"
#include "velto-host/options.h"
#include "velto-host/output.h"
#include "velto-host/stream_control.h"

namespace velto_test {

struct StormOptions {
    std::string file;
    double seconds = 10; // of each storm
    uint32_t loads = 1;  // number of load/storm/unload cycles; above 1, the last one waits for the unload
    uint32_t seed = 1;
    velto::host::EndOptions end; // unloadAfter is not used
};

class StormCommand {
public:
    // Reads the file; throws AacFileError. All references outlive the command.
    StormCommand(const StormOptions &options, const velto::host::Output &output,
                 const velto::host::Interruption &interruption);

    // Throws ModuleError.
    velto::host::ExitCode Run(const std::string &modulePath);

private:
    void RunOnce(const velto::host::Module &module, uint32_t seed);
    velto::host::Json Report(int exitCode, const velto::check::StormFigures &figures) const;

    const StormOptions &m_options;
    const velto::host::Output &m_output;
    velto::host::StreamTimer m_timer;
    velto::host::StreamEnd m_end;
    velto::host::StreamTimer::Clock::time_point m_begin = velto::host::StreamTimer::Clock::now();
    velto::check::AacUnits m_units;
    velto::check::StormFigures m_figures; // of the storms that are over
    uint32_t m_loads = 0;
    bool m_interrupted = false;
    // Before the first cycle, after the last one, after the unload.
    velto::host::Json m_usage = velto::host::Json::Array();
    velto::host::Json m_unload; // of the last cycle
};

} // namespace velto_test
