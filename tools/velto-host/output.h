// The output of this program and its exit codes. With --json, stdout has only the result, and text for people
// goes to stderr.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "velto-host/json.h"

namespace velto::host {

enum ExitCode : int {
    EXIT_OK = 0,
    EXIT_FAILED = 1,           // nothing was played, or a call to the module or the system failed
    EXIT_USAGE = 2,            // the command line is wrong
    EXIT_MODULE = 3,           // the module cannot be loaded or lacks its entry point
    EXIT_FILE = 4,             // the file cannot be read or written, or has the wrong format
    EXIT_NOTHING_RECORDED = 5, // no packet came from the microphone
    EXIT_CHECK_FAILED = 6,     // the module breaks its contract
    EXIT_CHECK_BROKEN = 7,     // a check could not be made
    EXIT_INTERRUPTED = 130,    // Ctrl-C
};

inline constexpr char exitCodeHelp[] =
    "Exit codes:\n"
    "  0    success\n"
    "  1    nothing was played, or a call to the module or the system failed\n"
    "  2    wrong command line\n"
    "  3    the module cannot be loaded\n"
    "  4    the file cannot be read or written, or has the wrong format\n"
    "  5    nothing came from the microphone\n"
    "  6    check: the module breaks its contract\n"
    "  7    check: a check could not be made, which says nothing about the module\n"
    "  130  interrupted with Ctrl-C";

// A file cannot be read or written, or has another format than the command needs.
class FileError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// fmt::format, compiled once, in output.cpp.
std::string FormatArguments(fmt::string_view text, fmt::format_args arguments);

template <typename... Arguments>
std::string Format(fmt::format_string<Arguments...> text, Arguments &&...arguments)
{
    return FormatArguments(text, fmt::make_format_args(arguments...));
}

class Output {
public:
    // `program` is printed in front of each line of Complain. `schema` names the form of the results, in
    // docs/schemas; if empty, they do not name it.
    Output(std::string program, bool json, std::string schema = {});

    // Prints a line for people.
    template <typename... Arguments>
    void Say(fmt::format_string<Arguments...> text, Arguments &&...arguments) const
    {
        Line(m_people, FormatArguments(text, fmt::make_format_args(arguments...)));
    }

    // Prints a line on stderr.
    template <typename... Arguments>
    void Complain(fmt::format_string<Arguments...> text, Arguments &&...arguments) const
    {
        Line(stderr, m_program + ": " + FormatArguments(text, fmt::make_format_args(arguments...)));
    }

    // Prints the result if --json was given.
    void Result(const Json &result) const;

    // Prints the reason of a failure, also as the result. Returns the exit code.
    ExitCode Fail(ExitCode exitCode, const std::string &reason) const;

    // To be called in a catch block. Fails with the caught exception's text and exit code. Rethrows an
    // exception that is no std::exception.
    ExitCode FailWithCaught() const;

    // True if stderr is a console, where a line can be rewritten.
    static bool IsConsole();

private:
    static void Line(std::FILE *stream, const std::string &text);

    std::string m_program;
    bool m_json;
    std::string m_schema;
    std::FILE *m_people;
};

} // namespace velto::host
