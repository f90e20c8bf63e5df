#include "velto-host/stream_control.h"

#include <windows.h>

#include <atomic>
#include <ratio>

#include "velto-host/process_usage.h"

#ifndef CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
#define CREATE_WAITABLE_TIMER_HIGH_RESOLUTION 0x00000002
#endif

namespace velto::host {
namespace {

using TimerTicks = std::chrono::duration<int64_t, std::ratio<1, 10'000'000>>;

constexpr auto unloadPoll = std::chrono::milliseconds(100);

std::atomic<HANDLE> interruptionEvent{nullptr};

// Runs on a thread that the system creates for the signal.
BOOL WINAPI OnControl(DWORD control)
{
    const HANDLE event = interruptionEvent;
    if ((control != CTRL_C_EVENT && control != CTRL_BREAK_EVENT) || event == nullptr ||
        WaitForSingleObject(event, 0) == WAIT_OBJECT_0) {
        return FALSE;
    }
    SetEvent(event);
    return TRUE;
}

// Before Windows 10 1803 there is no timer of high resolution; ordinary ones tick with the system's clock,
// every 15.6 ms.
HANDLE CreateTimer()
{
    const HANDLE timer =
        CreateWaitableTimerExW(nullptr, nullptr, CREATE_WAITABLE_TIMER_HIGH_RESOLUTION, TIMER_ALL_ACCESS);
    return timer != nullptr ? timer : CreateWaitableTimerExW(nullptr, nullptr, 0, TIMER_ALL_ACCESS);
}

} // namespace

Interruption::Interruption() : m_event(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    interruptionEvent = m_event;
    // A process inherits from its parent that it ignores Ctrl-C; this program must be interruptible.
    SetConsoleCtrlHandler(nullptr, FALSE);
    SetConsoleCtrlHandler(OnControl, TRUE);
}

// Does not close the event, because the handler may be using it on its thread.
Interruption::~Interruption()
{
    SetConsoleCtrlHandler(OnControl, FALSE);
    interruptionEvent = nullptr;
}

StreamTimer::StreamTimer(const Interruption &interruption)
    : m_interruption(interruption), m_timer(CreateTimer())
{
}

StreamTimer::~StreamTimer()
{
    if (m_timer != nullptr) {
        CloseHandle(m_timer);
    }
}

bool StreamTimer::WaitUntil(Clock::time_point due)
{
    for (;;) {
        if (m_interruption.IsRaised()) {
            return false;
        }
        const auto remaining = std::chrono::ceil<TimerTicks>(due - Clock::now());
        if (remaining.count() <= 0) {
            return true;
        }
        LARGE_INTEGER relative;
        relative.QuadPart = -remaining.count(); // negative: relative to now
        if (m_timer != nullptr && SetWaitableTimer(m_timer, &relative, 0, nullptr, nullptr, FALSE)) {
            const HANDLE events[] = {m_interruption.Event(), m_timer};
            WaitForMultipleObjects(2, events, FALSE, INFINITE);
        } else {
            WaitForSingleObject(m_interruption.Event(), 1);
        }
    }
}

void StreamEnd::ExitIfDue(double secondsPassed, const std::function<Json(int exitCode)> &report) const
{
    if (!IsReached(m_options.exitAfter, secondsPassed)) {
        return;
    }
    Json last = report(static_cast<int>(m_options.exitCode));
    last["exitedWhileRunning"] = true;
    m_output.Say("ending the process after {:.1f} s", secondsPassed);
    m_output.Result(last);
    ExitProcess(m_options.exitCode);
}

bool StreamEnd::IsUnloadDue(double secondsPassed) const
{
    return IsReached(m_options.unloadAfter, secondsPassed);
}

Json StreamEnd::Unload(Module &module)
{
    const auto begin = StreamTimer::Clock::now();
    module.Unload();
    const double callSeconds = SecondsSince(begin);
    m_output.Say("FreeLibrary returned after {:.3f} s; waiting at most {} s until the module is unloaded",
                 callSeconds, m_options.unloadWait);
    bool isLoaded = module.IsLoaded();
    while (isLoaded && SecondsSince(begin) < m_options.unloadWait && m_timer.WaitFor(unloadPoll)) {
        isLoaded = module.IsLoaded();
    }
    const double seconds = SecondsSince(begin);
    m_output.Say("the module {} after {:.1f} s", isLoaded ? "is still loaded" : "was unloaded", seconds);
    return {{"freeLibrarySeconds", callSeconds}, {"moduleGone", !isLoaded}, {"seconds", seconds}};
}

Json MeasureProcess()
{
    const ProcessUsage usage = MeasureUsage();
    return {{"handles", usage.handles},
            {"threads", usage.threads},
            {"committedBytes", usage.committedBytes},
            {"residentBytes", usage.residentBytes}};
}

UsageReport::UsageReport(const Output &output, std::chrono::duration<double> period)
    : m_output(output), m_period(period)
{
}

void UsageReport::PrintIfDue()
{
    const auto now = StreamTimer::Clock::now();
    if (m_period.count() <= 0 || (m_last && now - *m_last < m_period)) {
        return;
    }
    m_last = now;
    m_output.Say("{}", MeasureProcess().Text());
}

} // namespace velto::host
