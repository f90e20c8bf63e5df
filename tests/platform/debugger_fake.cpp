// Replaces the logging library's debugger.cpp in native builds: records the lines instead of showing them.
#ifndef _WIN32

#include "tests/platform/debugger_fake.h"

#include <mutex>
#include <utility>

#include "logging/debugger.h"

namespace {

// Never destroyed: static objects log when the process ends.
struct Shown {
    std::mutex mutex;
    std::vector<std::string> lines;
};

Shown &TheShown()
{
    static auto *shown = new Shown;
    return *shown;
}

} // namespace

std::vector<std::string> TakeDebuggerLines()
{
    const std::lock_guard lock(TheShown().mutex);
    return std::exchange(TheShown().lines, {});
}

namespace logging {

void ShowInDebugger(std::string_view line)
{
    const std::lock_guard lock(TheShown().mutex);
    TheShown().lines.emplace_back(line);
}

} // namespace logging

#endif
