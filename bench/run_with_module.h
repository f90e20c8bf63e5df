// Ends a benchmark that has loaded the module.
#pragma once

#include <cstdio>
#include <exception>

#include <windows.h>

namespace velto::bench {

// Calls run(argc, argv) and ends the process with its result. An exception becomes a message of `program` and
// the result 1.
inline int RunWithModule(const char *program, int (*run)(int, char **), int argc, char **argv)
{
    try {
        const int result = run(argc, argv);
        std::fflush(nullptr);
        // An ordinary exit while the module's threads run sometimes crashes under Wine 8.
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(result));
        return result;
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "%s: %s\n", program, problem.what());
        return 1;
    }
}

} // namespace velto::bench
