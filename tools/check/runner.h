// Makes the checks of a plan, each in a process of its own.
#pragma once

#include <windows.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "check/portable/check.h"
#include "check/portable/results.h"

namespace velto::check {

struct RunnerOptions {
    std::filesystem::path module; // full path
    std::string moduleArgument;   // of --module, for the command that repeats a failure; may be empty
    uint64_t seed = 1;
    double minutes = 1;
    int jobs = 1;
    std::filesystem::path folder;      // for the files of each check, which are removed after it
    std::filesystem::path dumpsFolder; // empty: no minidumps
};

class Runner {
public:
    // All functions are called by one thread at a time, from any thread.
    struct Progress {
        std::function<void(const Check &)> begins;
        std::function<void(const CheckResult &)> ends;
    };

    // Once the event `interruption` is set, running checks are ended, and no more are started.
    Runner(RunnerOptions options, Progress progress, HANDLE interruption);

    // Returns the results in the order of the plan, which is by level. Checks of a level below 5 run `jobs`
    // at a time; the others, which play and record, run alone. Each check runs once. A check that was not run
    // because of the interruption is broken.
    std::vector<CheckResult> Run(const std::vector<const Check *> &plan);

private:
    // Throws std::exception if a file or a folder cannot be created.
    CheckResult RunCheck(const Check &check);
    CheckResult RunOrExplain(const Check &check);
    void RunPart(const std::vector<const Check *> &plan, size_t begin, size_t end, int jobs,
                 std::vector<CheckResult> &results);

    const RunnerOptions m_options;
    const Progress m_progress;
    const HANDLE m_interruption;
    const std::filesystem::path m_program;
};

} // namespace velto::check
