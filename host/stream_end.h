// Carries out the ends of EndOptions. One thread, the one that makes the calls of the stream.
#pragma once

#include <functional>

#include "host/end_options.h"
#include "host/module.h"
#include "host/output.h"
#include "host/stream_timer.h"

namespace velto::host {

class StreamEnd {
public:
    // All references outlive this object.
    StreamEnd(const EndOptions &options, const Output &output, StreamTimer &timer)
        : m_options(options), m_output(output), m_timer(timer)
    {
    }

    // Ends the process when it is time to: nothing is closed, no destructor runs. Prints the report
    // that it is given the means to make.
    void ExitIfAsked(double secondsPassed, const std::function<Json(int exitCode)> &report) const;

    bool IsUnloadDue(double secondsPassed) const;
    // Gives the module back in the middle of the stream and watches when it goes.
    Json Unload(Module &module);

private:
    const EndOptions &m_options;
    const Output &m_output;
    StreamTimer &m_timer;
};

// Whether a limit was set and `value` has come to it.
inline bool IsReached(double limit, double value)
{
    return limit >= 0 && value >= limit;
}

} // namespace velto::host
