#include "check/child_process.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <optional>

#include "check/portable/windows_arguments.h"
#include "velto-host/handle.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

using host::Handle;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr DWORD terminationMs = 10000; // a process that does not end within this time hangs in the system
// Wine on a busy machine sometimes fails to start a process.
constexpr int startAttempts = 3;
constexpr DWORD startPauseMs = 1000;

Handle OpenInheritable(const std::filesystem::path &file, DWORD access, DWORD creation)
{
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    const HANDLE handle = CreateFileW(file.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                                      creation, FILE_ATTRIBUTE_NORMAL, nullptr);
    return Handle(handle != INVALID_HANDLE_VALUE ? handle : nullptr);
}

// A job without permission to leave it: all processes in it end when its handle is closed, also if this
// process crashes. The system's report of a crash is not suppressed.
Handle CreateJob()
{
    Handle job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (job &&
        !SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits)) {
        job.reset();
    }
    return job;
}

std::wstring CommandLineFor(const ChildOrder &order)
{
    std::vector<std::string> arguments{host::ToUtf8(order.program.wstring())};
    arguments.insert(arguments.end(), order.arguments.begin(), order.arguments.end());
    return host::ToWide(CommandLineOf(arguments));
}

// One child at a time: handles that are inheritable for one must not get into another, which would keep files
// open.
std::mutex startMutex;

// A suspended process with its main thread; null handles and a last error on failure.
struct Started {
    Handle process;
    Handle thread;
};

Started StartSuspended(const ChildOrder &order)
{
    const std::lock_guard lock(startMutex);
    const Handle input = OpenInheritable(L"NUL", GENERIC_READ, OPEN_EXISTING);
    const Handle output = OpenInheritable(order.outputFile, FILE_APPEND_DATA, CREATE_ALWAYS);
    if (!input || !output) {
        return {};
    }
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input.get();
    startup.hStdOutput = startup.hStdError = output.get();
    PROCESS_INFORMATION process{};
    std::wstring line = CommandLineFor(order);
    // The own process group keeps Ctrl-C away from the child, which would end with any code. This process
    // ends it.
    constexpr DWORD flags = CREATE_SUSPENDED | CREATE_NEW_PROCESS_GROUP;
    if (!CreateProcessW(order.program.c_str(), line.data(), nullptr, nullptr, TRUE, flags, nullptr, nullptr,
                        &startup, &process)) {
        return {};
    }
    return {Handle(process.hProcess), Handle(process.hThread)};
}

DWORD MillisecondsUntil(Clock::time_point time)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count();
    constexpr long long longest = 0x7FFFFFFF;
    return static_cast<DWORD>(std::clamp<long long>(left, 0, longest));
}

Clock::duration InTicks(Seconds time)
{
    return std::chrono::duration_cast<Clock::duration>(time);
}

// NOT_STARTED if the wait fails, which has to be reported as the checker's own failure.
ProcessEnd::Kind WaitForEnd(const ChildOrder &order, HANDLE process, HANDLE interruption)
{
    std::array<HANDLE, 3> events{process, interruption, order.ending};
    DWORD count = order.ending != nullptr ? 3 : 2;
    Clock::time_point deadline = Clock::now() + InTicks(order.timeLimit);
    for (;;) {
        switch (WaitForMultipleObjects(count, events.data(), FALSE, MillisecondsUntil(deadline))) {
        case WAIT_OBJECT_0:
            return ProcessEnd::Kind::EXITED;
        case WAIT_OBJECT_0 + 1:
            return ProcessEnd::Kind::INTERRUPTED;
        case WAIT_OBJECT_0 + 2:
            count = 2;
            deadline = std::min(deadline, Clock::now() + InTicks(order.endingLimit));
            break;
        case WAIT_TIMEOUT:
            return ProcessEnd::Kind::TIMED_OUT;
        default:
            return ProcessEnd::Kind::NOT_STARTED;
        }
    }
}

ProcessEnd NotStarted(const char *action)
{
    ProcessEnd end;
    end.error = std::string(action) + ": " + host::SystemErrorText(GetLastError());
    return end;
}

} // namespace

ProcessEnd RunChild(const ChildOrder &order, HANDLE interruption)
{
    const Handle job = CreateJob();
    if (!job) {
        return NotStarted("creating a job object");
    }
    Started child = StartSuspended(order);
    for (int left = startAttempts - 1; left > 0 && !child.process; --left) {
        Sleep(startPauseMs);
        child = StartSuspended(order);
    }
    if (!child.process) {
        return NotStarted("starting the program");
    }
    // The process is suspended until it is in the job, so that it cannot start others outside of it.
    if (!AssignProcessToJobObject(job.get(), child.process.get())) {
        ProcessEnd end = NotStarted("adding the process to its job");
        TerminateProcess(child.process.get(), 1);
        return end;
    }
    const auto begin = Clock::now();
    ResumeThread(child.thread.get());
    ProcessEnd end;
    end.isUnderWine = IsUnderWine();
    end.kind = WaitForEnd(order, child.process.get(), interruption);
    if (end.kind == ProcessEnd::Kind::NOT_STARTED) {
        end.error = "waiting for it: " + host::SystemErrorText(GetLastError());
    }
    end.seconds = Seconds(Clock::now() - begin).count();
    TerminateJobObject(job.get(), 1); // also children of the child
    WaitForSingleObject(child.process.get(), terminationMs);
    DWORD exitCode = 0;
    GetExitCodeProcess(child.process.get(), &exitCode);
    end.exitCode = exitCode;
    return end;
}

bool IsUnderWine()
{
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

} // namespace velto::check
