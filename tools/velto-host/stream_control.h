// Controls a running stream: Ctrl-C, waiting, unloading the module or ending the process in mid-stream,
// reporting resource use.
#pragma once

#include <windows.h>

#include <chrono>
#include <functional>
#include <optional>

#include "velto-host/module.h"
#include "velto-host/options.h"
#include "velto-host/output.h"

namespace velto::host {

// Ctrl-C as an event. One object in the process.
class Interruption {
public:
    // From now on, the first Ctrl-C or Ctrl-Break only sets the event; a second one ends the process at once.
    Interruption();
    ~Interruption();
    Interruption(const Interruption &) = delete;
    Interruption &operator=(const Interruption &) = delete;

    // Has the effect of Ctrl-C.
    void Raise() { SetEvent(m_event); }
    bool IsRaised() const { return WaitForSingleObject(m_event, 0) == WAIT_OBJECT_0; }
    HANDLE Event() const { return m_event; }

private:
    HANDLE m_event;
};

// Waits until a time, with an error of about a millisecond, or until Ctrl-C. One thread.
class StreamTimer {
public:
    using Clock = std::chrono::steady_clock;

    explicit StreamTimer(const Interruption &interruption);
    ~StreamTimer();
    StreamTimer(const StreamTimer &) = delete;
    StreamTimer &operator=(const StreamTimer &) = delete;

    // False if interrupted before or during the wait.
    bool WaitUntil(Clock::time_point due);
    bool WaitFor(Clock::duration time) { return WaitUntil(Clock::now() + time); }
    bool WaitFor(double seconds)
    {
        return WaitFor(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)));
    }

private:
    const Interruption &m_interruption;
    HANDLE m_timer;
};

inline double SecondsSince(StreamTimer::Clock::time_point begin)
{
    return std::chrono::duration<double>(StreamTimer::Clock::now() - begin).count();
}

// Whether a limit is set and `value` has reached it.
inline bool IsReached(double limit, double value)
{
    return limit >= 0 && value >= limit;
}

// Unloads the module or ends the process in the middle of a stream, at the times in EndOptions. One thread,
// which makes the stream's calls.
class StreamEnd {
public:
    // All references outlive this object.
    StreamEnd(const EndOptions &options, const Output &output, StreamTimer &timer)
        : m_options(options), m_output(output), m_timer(timer)
    {
    }

    // Once --exit-after has elapsed, prints the report and calls ExitProcess. Nothing is closed and no
    // destructor runs.
    void ExitIfDue(double secondsPassed, const std::function<Json(int exitCode)> &report) const;

    bool IsUnloadDue(double secondsPassed) const;
    // Releases the module and waits until it is unloaded.
    Json Unload(Module &module);

private:
    const EndOptions &m_options;
    const Output &m_output;
    StreamTimer &m_timer;
};

// Handles, threads and memory of this process.
Json MeasureProcess();

// Prints MeasureProcess() periodically.
class UsageReport {
public:
    // Period 0 prints nothing.
    UsageReport(const Output &output, std::chrono::duration<double> period);

    // Prints a line of JSON if a period has passed since the last one.
    void PrintIfDue();

private:
    const Output &m_output;
    std::chrono::duration<double> m_period;
    std::optional<StreamTimer::Clock::time_point> m_last;
};

} // namespace velto::host
