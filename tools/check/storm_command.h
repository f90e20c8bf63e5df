// velto-host check-storm: the storm of the checks for as long as a test wants, with load cycles, or with the
// end of the process in the middle. Counts the results.
#pragma once

#include <cstdint>
#include <string>

#include "check/check_options.h"
#include "check/portable/built_in_sound.h"
#include "check/portable/call_storm.h"
#include "velto-host/module.h"
#include "velto-host/options.h"
#include "velto-host/output.h"
#include "velto-host/stream_control.h"

namespace velto::check {

class StormCommand {
public:
    // All references outlive the command.
    StormCommand(const StormOptions &options, const host::Output &output,
                 const host::Interruption &interruption);

    // Throws ModuleError.
    host::ExitCode Run(const std::string &modulePath);

private:
    void RunOnce(const host::Module &module, uint32_t seed);
    host::Json Report(int exitCode, const StormFigures &figures) const;

    const StormOptions &m_options;
    const host::Output &m_output;
    host::StreamTimer m_timer;
    host::StreamEnd m_end;
    const AacUnits m_units;
    // After the units were made, which takes seconds on a busy machine.
    host::StreamTimer::Clock::time_point m_begin = host::StreamTimer::Clock::now();
    StormFigures m_figures; // of the storms that are over
    uint32_t m_loads = 0;
    bool m_interrupted = false;
    // Before the first cycle, after the last one, after the unload.
    host::Json m_usage = host::Json::Array();
    host::Json m_unload; // of the last cycle
};

} // namespace velto::check
