#include "check/process_end_checks.h"

#include <windows.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "check/child_process.h"
#include "check/portable/check_journal.h"
#include "check/portable/ending.h"
#include "check/portable/process_check_list.h"
#include "check/process_context.h"
#include "check/process_end.h"
#include "velto-host/handle.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;

// Some ends under Wine fail without the module's fault and leave no trace. A module that is at fault fails
// again.
constexpr int attempts = 3;
constexpr auto timeLimit = 18s; // of one attempt: the module is used for 3 s at most

struct EndedProcess {
    Journal journal;
    ProcessEnd end;
};

// Runs a process of this program that ends in the situation. Throws std::runtime_error if it does not start
// or does not get as far as its first line, which says nothing about the module.
EndedProcess RunEndingProcess(std::string_view situation, int attempt, uint32_t exitCode)
{
    const ProcessContext &process = CurrentProcess();
    const std::filesystem::path folder = host::ToWide(process.workFolder);
    const std::filesystem::path journal = folder / fmt::format("end-{}.journal", attempt);
    ChildOrder order;
    order.program = host::ToWide(process.hostProgram);
    order.arguments = {"check-end",
                       "--module",
                       process.modulePath,
                       "--journal",
                       host::ToUtf8(journal.wstring()),
                       "--how",
                       std::string(situation),
                       "--exit-code",
                       std::to_string(exitCode)};
    order.outputFile = folder / fmt::format("end-{}.txt", attempt);
    order.timeLimit = timeLimit;
    // Never set: the end of this process also ends its children.
    const host::Handle interruption(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const ProcessEnd end = RunChild(order, interruption.get());
    if (end.kind == ProcessEnd::Kind::NOT_STARTED) {
        throw std::runtime_error("cannot start a process that ends: " + end.error);
    }
    EndedProcess ended{ReadJournal(journal), end};
    if (!ended.journal.hasBegun) {
        throw std::runtime_error(fmt::format(
            "a process that should end while it uses the module did not begin: exit code {}", end.exitCode));
    }
    return ended;
}

bool IsRefused(const EndedProcess &ended)
{
    return ended.end.kind == ProcessEnd::Kind::EXITED && ended.end.exitCode == endRefused &&
           ended.journal.lastStep != lastWords && ended.journal.faults.empty();
}

void EndsIn(Context &context, std::string_view situation)
{
    const uint32_t exitCode = 40 + context.random.Below(50);
    for (int attempt = 1; attempt <= attempts; ++attempt) {
        context.Step(fmt::format("a process ends: {}", situation), {"LIF-3"});
        const EndedProcess ended = RunEndingProcess(situation, attempt, exitCode);
        if (IsRefused(ended)) {
            context.Skip("the module refused the calls before the end; other checks examine them");
        }
        const Ending ending = ExamineEnd(ended.journal, ended.end, exitCode, std::string(lastWords));
        context.Measured("life of the process that ended", ended.end.seconds, "s");
        switch (ending.blame) {
        case Blame::NOBODY:
            return;
        case Blame::WINE:
            context.Warn(ending.reason + " (in Wine's own code)");
            return;
        case Blame::MODULE:
            context.Expect(false, "LIF-3", ending.reason);
            return;
        case Blame::UNKNOWN:
            context.Warn(ending.reason +
                         fmt::format(" (attempt {}; other code in the process can cause this)", attempt));
        }
    }
    context.Expect(false, "LIF-3", fmt::format("none of {} processes ended with its exit code", attempts));
}

void EndsWhilePlaying(Context &context)
{
    EndsIn(context, "playing");
}

void EndsWhileRecording(Context &context)
{
    EndsIn(context, "recording");
}

void EndsInListener(Context &context)
{
    EndsIn(context, "in-listener");
}

void EndsWhileBusy(Context &context)
{
    EndsIn(context, "busy");
}

} // namespace

std::span<const Check> ProcessEndChecks()
{
    static const std::vector<Check> checks{
        ProcessCheck("lifecycle.process-exit-while-playing", EndsWhilePlaying),
        ProcessCheck("lifecycle.process-exit-while-recording", EndsWhileRecording),
        ProcessCheck("lifecycle.process-exit-in-listener", EndsInListener),
        ProcessCheck("lifecycle.process-exit-while-busy", EndsWhileBusy),
    };
    return checks;
}

} // namespace velto::check
