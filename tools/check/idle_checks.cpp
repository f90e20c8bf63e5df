#include "check/idle_checks.h"

#include <string>
#include <vector>

#include "check/module_threads.h"
#include "check/module_use.h"
#include "check/portable/process_check_list.h"
#include "check/process_context.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;
using TimePoint = std::chrono::steady_clock::time_point;

constexpr auto idleTime = 240s;
constexpr auto early = 4s;        // before the end of the idle time, in which the speakers must still run
constexpr auto releaseTime = 15s; // after the idle time: stopping both speakers, on a busy PC
constexpr auto refusedWriteAt = 20s;
constexpr auto poll = 100ms;

void SleepUntil(Context &context, TimePoint end)
{
    while (context.environment.Now() < end) {
        context.environment.Sleep(poll);
    }
}

bool EndWithin(Context &context, const std::vector<ThreadInfo> &threads, TimePoint end)
{
    while (!StillRunning(threads).empty()) {
        if (context.environment.Now() >= end) {
            return false;
        }
        context.environment.Sleep(poll);
    }
    return true;
}

void ReleasesIdleSpeakers(Context &context)
{
    constexpr size_t leastThreads = 2;
    const HMODULE module = CurrentProcess().module;
    const std::vector<ThreadInfo> before = ThreadsOfProcess();
    context.Step("plays, then writes nothing for four minutes", {"SPK-11"});
    SpeakerUse first(context.table);
    first.Play(1s);
    const TimePoint playedUntil = context.environment.Now();
    const std::vector<ThreadInfo> threads = NewThreadsOf(module, before);
    context.Require(threads.size() >= leastThreads, "SPK-1",
                    "while it plays, the module runs " + Describe(threads));

    SleepUntil(context, playedUntil + refusedWriteAt);
    context.table.WriteStreamBuffer(nullptr, 0, nullptr, nullptr);
    const TimePoint lastWrite = context.environment.Now();
    SleepUntil(context, lastWrite + idleTime - early);
    const std::vector<ThreadInfo> left = StillRunning(threads);
    context.Expect(left.size() == threads.size(), "SPK-11",
                   fmt::format("{} s after the last write, a refused one, only these of {} threads run: {}",
                               (idleTime - early) / 1s, threads.size(), Describe(left)));
    const bool isReleased = EndWithin(context, threads, lastWrite + idleTime + releaseTime);
    const double waited = Seconds(context.environment.Now() - lastWrite).count();
    context.Measured("idle release", waited, "s after the last write");
    context.Require(isReleased, "SPK-11",
                    fmt::format("{:.0f} s after the last write, the module still runs {}", waited,
                                Describe(StillRunning(threads))));

    context.Step("plays after the idle release", {"SPK-1", "SPK-11"});
    const std::vector<ThreadInfo> released = ThreadsOfProcess();
    SpeakerUse speaker(context.table);
    speaker.Play(1s);
    context.Expect(speaker.Refused() == 0 || first.Refused() > 0, "SPK-11",
                   fmt::format("{} of {} calls were refused after the idle release", speaker.Refused(),
                               speaker.Calls()));
    const std::vector<ThreadInfo> again = NewThreadsOf(module, released);
    context.Expect(again.size() >= leastThreads, "SPK-1",
                   "after the idle release, a write started only " + Describe(again));
}

void UnmapsAfterIdleRelease(Context &context)
{
    const std::vector<ThreadInfo> before = ThreadsOfProcess();
    const auto module = LoadModule(context);
    SpeakerUse(module->Table()).Play(1s);
    const TimePoint lastWrite = context.environment.Now();
    const std::vector<ThreadInfo> threads = NewThreadsOf(module->Handle(), before);
    context.Step("frees the module, which plays, and waits for its idle release", {"LIF-2"});
    module->Free();
    const bool isUnmapped = module->WaitUntilUnmapped(idleTime + releaseTime);
    const double waited = Seconds(context.environment.Now() - lastWrite).count();
    context.Measured("unmapped", waited, "s after the last write");
    context.Expect(isUnmapped, "LIF-2",
                   fmt::format("{:.0f} s after the last write, the freed module is still mapped and runs {}",
                               waited, Describe(StillRunning(threads))));
    context.environment.Sleep(1s); // for code of the module that runs after the unmapping
    const std::vector<ThreadInfo> left = WithoutCode(threads);
    context.Expect(left.empty(), "LIF-2", "the module is unmapped while it runs " + Describe(left));
}

} // namespace

std::span<const Check> IdleChecks()
{
    static const std::vector<Check> checks{
        ProcessCheck("idle.release", ReleasesIdleSpeakers),
        ProcessCheck("lifecycle.unmaps-after-idle-release", UnmapsAfterIdleRelease),
    };
    return checks;
}

} // namespace velto::check
