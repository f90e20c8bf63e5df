#include "check/runner.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <fstream>
#include <mutex>
#include <thread>

#include "check/child_process.h"
#include "check/portable/check_journal.h"
#include "check/portable/process_result.h"
#include "check/portable/windows_arguments.h"
#include "check/temporary_folder.h"
#include "velto-host/handle.h"
#include "velto-host/output.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

namespace fs = std::filesystem;
using host::Format;
using host::ToUtf8;
using host::ToWide;

constexpr int firstLevelWithSound = 5; // whose sound is examined
constexpr int levelWithMinutes = 10;
// For a process whose check is done. Wine needs some seconds to report a crash.
constexpr std::chrono::seconds endingLimit(30);

std::string Text(const fs::path &path)
{
    return ToUtf8(path.wstring());
}

// Under Wine, the first process that needs a desktop starts the desktop's own process, and waits for it.
// Started here, outside of all jobs, it survives the children, and none of them has to wait for a new one.
void StartDesktop()
{
    GetDesktopWindow();
}

std::string LastLineOf(const fs::path &file)
{
    std::ifstream stream(file);
    std::string last;
    for (std::string line; std::getline(stream, line);) {
        last = line.empty() ? last : line;
    }
    return last;
}

bool IsFailure(Outcome outcome)
{
    return outcome == Outcome::FAILED || outcome == Outcome::CRASHED || outcome == Outcome::HUNG ||
           outcome == Outcome::BROKEN;
}

std::string RepeatCommand(const RunnerOptions &options, const Check &check)
{
    std::vector<std::string> arguments{"velto-host", "check"};
    if (!options.moduleArgument.empty()) {
        arguments.insert(arguments.end(), {"--module", options.moduleArgument});
    }
    arguments.insert(arguments.end(), {"--seed", std::to_string(options.seed)});
    if (check.level == levelWithMinutes) {
        arguments.insert(arguments.end(), {"--minutes", Format("{}", options.minutes)});
    }
    arguments.insert(arguments.end(), {"--only", std::string(check.name)});
    return CommandLineOf(arguments);
}

std::chrono::duration<double> TimeLimitOf(const Check &check, double minutes)
{
    const std::chrono::duration<double, std::ratio<60>> added(check.level == levelWithMinutes ? minutes : 0);
    return check.timeLimit + added;
}

CheckResult Interrupted(const Check &check)
{
    ProcessEnd end;
    end.kind = ProcessEnd::Kind::INTERRUPTED;
    return ResultOf(check, {}, end);
}

} // namespace

Runner::Runner(RunnerOptions options, Progress progress, HANDLE interruption)
    : m_options(std::move(options)),
      m_progress(std::move(progress)),
      m_interruption(interruption),
      m_program(host::ProgramPath())
{
}

CheckResult Runner::RunCheck(const Check &check)
{
    const std::string name(check.name);
    const TemporaryFolder files(m_options.folder / name);
    const TemporaryFolder work(files.Path() / "work");
    const fs::path journal = files.Path() / "journal.jsonl";
    const std::string endingName = Format("Local\\velto-check-{}-{}", GetCurrentProcessId(), name);
    const host::Handle ending(CreateEventW(nullptr, TRUE, FALSE, ToWide(endingName).c_str()));
    const fs::path dump =
        m_options.dumpsFolder.empty() ? fs::path() : m_options.dumpsFolder / (name + ".dmp");

    ChildOrder order;
    order.program = m_program;
    order.arguments = {"check-one",
                       "--name",
                       name,
                       "--seed",
                       std::to_string(m_options.seed),
                       "--module",
                       Text(m_options.module),
                       "--journal",
                       Text(journal),
                       "--work-folder",
                       Text(work.Path()),
                       "--minutes",
                       Format("{}", m_options.minutes),
                       "--ending",
                       endingName};
    if (!dump.empty()) {
        order.arguments.insert(order.arguments.end(), {"--dump", Text(dump)});
    }
    order.outputFile = files.Path() / "output.txt";
    order.timeLimit = TimeLimitOf(check, m_options.minutes);
    order.ending = ending.get();
    order.endingLimit = endingLimit;

    const ProcessEnd end = RunChild(order, m_interruption);
    CheckResult result = ResultOf(check, ReadJournal(journal), end);
    if (result.outcome == Outcome::BROKEN) {
        const std::string last = LastLineOf(order.outputFile);
        result.reason += last.empty() ? "" : "; it printed last: " + last;
    }
    if (IsFailure(result.outcome)) {
        result.repeat = RepeatCommand(m_options, check);
    }
    std::error_code ignored;
    if (!dump.empty() && fs::exists(dump, ignored)) {
        result.dumpFile = Text(dump);
    }
    return result;
}

CheckResult Runner::RunOrExplain(const Check &check)
{
    try {
        return RunCheck(check);
    } catch (const std::exception &error) {
        ProcessEnd end;
        end.error = error.what();
        return ResultOf(check, {}, end);
    }
}

// Runs plan[begin, end), `jobs` at a time.
void Runner::RunPart(const std::vector<const Check *> &plan, size_t begin, size_t end, int jobs,
                     std::vector<CheckResult> &results)
{
    std::atomic<size_t> next{begin};
    std::mutex progressMutex;
    const auto work = [&] {
        for (size_t i = next++; i < end; i = next++) {
            if (WaitForSingleObject(m_interruption, 0) == WAIT_OBJECT_0) {
                results[i] = Interrupted(*plan[i]);
                continue;
            }
            {
                const std::lock_guard lock(progressMutex);
                m_progress.begins(*plan[i]);
            }
            results[i] = RunOrExplain(*plan[i]);
            const std::lock_guard lock(progressMutex);
            m_progress.ends(results[i]);
        }
    };
    std::vector<std::jthread> threads;
    for (int i = 1; i < jobs; ++i) {
        threads.emplace_back(work);
    }
    work();
}

std::vector<CheckResult> Runner::Run(const std::vector<const Check *> &plan)
{
    StartDesktop();
    std::vector<CheckResult> results(plan.size());
    const auto sound = std::find_if(plan.begin(), plan.end(),
                                    [](const Check *check) { return check->level >= firstLevelWithSound; });
    const auto silent = static_cast<size_t>(sound - plan.begin());
    RunPart(plan, 0, silent, m_options.jobs, results);
    RunPart(plan, silent, plan.size(), 1, results);
    return results;
}

} // namespace velto::check
