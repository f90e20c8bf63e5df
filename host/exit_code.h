// What velto-host tells the program that started it. The same list stands in --help.
#pragma once

namespace velto::host {

enum ExitCode : int {
    EXIT_OK = 0,
    EXIT_FAILED = 1,           // nothing was played, or the module or the system refused a call
    EXIT_USAGE = 2,            // the command line is wrong
    EXIT_MODULE = 3,           // the module cannot be loaded or lacks its entry point
    EXIT_FILE = 4,             // the file cannot be read or written, or is not AAC
    EXIT_NOTHING_RECORDED = 5, // no packet came from the microphone
    EXIT_INTERRUPTED = 130,    // Ctrl-C
};

inline constexpr char exitCodeHelp[] = "Exit codes:\n"
                                       "  0    everything went well\n"
                                       "  1    nothing was played, or a call was refused\n"
                                       "  2    wrong command line\n"
                                       "  3    the module cannot be loaded\n"
                                       "  4    the file cannot be read or written, or is not AAC\n"
                                       "  5    nothing came from the microphone\n"
                                       "  130  interrupted with Ctrl-C";

} // namespace velto::host
