#include "velto-host/output.h"

#include <windows.h>

namespace velto::host {

std::string FormatArguments(fmt::string_view text, fmt::format_args arguments)
{
    return fmt::vformat(text, arguments);
}

Output::Output(std::string program, bool json)
    : m_program(std::move(program)), m_json(json), m_people(json ? stderr : stdout)
{
}

void Output::Result(const Json &result) const
{
    if (m_json) {
        Line(stdout, result.IndentedText());
    }
}

ExitCode Output::Fail(ExitCode exitCode, const std::string &reason) const
{
    Complain("{}", reason);
    Result({{"error", reason}, {"exitCode", int{exitCode}}});
    return exitCode;
}

bool Output::IsConsole()
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != FALSE;
}

void Output::Line(std::FILE *stream, const std::string &text)
{
    fmt::print(stream, "{}\n", text);
    std::fflush(stream);
}

} // namespace velto::host
