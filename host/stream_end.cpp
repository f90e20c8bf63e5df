#include "host/stream_end.h"

#include <chrono>

namespace velto::host {
namespace {

constexpr auto unloadPoll = std::chrono::milliseconds(100);

} // namespace

void StreamEnd::ExitIfAsked(double secondsPassed, const std::function<Json(int exitCode)> &report) const
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
    m_output.Say("the module was given back in {:.3f} s; waiting until it is gone, {} s at most", callSeconds,
                 m_options.unloadWait);
    bool isMapped = module.IsMapped();
    while (isMapped && SecondsSince(begin) < m_options.unloadWait && m_timer.WaitFor(unloadPoll)) {
        isMapped = module.IsMapped();
    }
    const double seconds = SecondsSince(begin);
    m_output.Say("the module {} after {:.1f} s", isMapped ? "is still there" : "was gone", seconds);
    return {{"freeLibrarySeconds", callSeconds}, {"moduleGone", !isMapped}, {"seconds", seconds}};
}

} // namespace velto::host
