// velto-host storm: calls everything at once, as no well-made host does, and counts what came back.
#pragma once

#include "host/exit_code.h"
#include "host/interruption.h"
#include "host/module.h"
#include "host/output.h"
#include "host/storm.h"
#include "host/storm_options.h"
#include "host/stream_end.h"
#include "host/stream_timer.h"

namespace velto::host {

class StormCommand {
public:
    // Reads the file; throws AacFileError. All references outlive the command.
    StormCommand(const StormOptions &options, const Output &output, const Interruption &interruption);

    // Loads the module as often as asked, and makes a storm each time. Throws ModuleError.
    ExitCode Run(const std::string &modulePath);

private:
    void RunOnce(const Module &module, uint32_t seed);
    Json Report(int exitCode) const;

    const StormOptions &m_options;
    const Output &m_output;
    StreamTimer m_timer;
    StreamEnd m_end;
    StreamTimer::Clock::time_point m_begin = StreamTimer::Clock::now();
    AacUnits m_units;
    CallCounts m_counts;
    uint64_t m_packets = 0;
    uint32_t m_loads = 0;
    bool m_interrupted = false;
    Json m_usage = Json::array(); // before, after, and when the module was gone
    Json m_unload;                // of the last time
};

} // namespace velto::host
