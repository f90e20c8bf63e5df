// Replaces the logging library's process_end.cpp in native builds, so that a test can claim that the process
// is ending. Only Windows runs module code after it has killed the other threads.
#ifndef _WIN32

#include "tests/platform/process_end_fake.h"

#include <atomic>

#include "logging/process_end.h"

namespace {

std::atomic<bool> isEnding{false};

} // namespace

void PretendThatProcessEnds()
{
    isEnding = true;
}

namespace logging {

bool ProcessIsEnding() noexcept
{
    return isEnding;
}

} // namespace logging

#endif
