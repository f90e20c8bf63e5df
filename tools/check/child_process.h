// Runs a child process in a job object, so that neither it nor its own children outlive the call or this
// process.
#pragma once

#include <windows.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "check/portable/process_result.h"

namespace velto::check {

struct ChildOrder {
    std::filesystem::path program;
    std::vector<std::string> arguments; // UTF-8, without the program
    std::filesystem::path outputFile;   // gets what the child prints, on stdout and stderr
    std::chrono::duration<double> timeLimit{};
    // An event that the child sets when its work is done, and the time that its end may take from then on.
    HANDLE ending = nullptr;
    std::chrono::duration<double> endingLimit{};
};

// Returns when the child has ended, or was ended because of a time limit or because the event `interruption`
// was set. What is left of the job then is ended, too. Several threads may run children at the same time.
ProcessEnd RunChild(const ChildOrder &order, HANDLE interruption);

bool IsUnderWine();

} // namespace velto::check
