#include "velto-host/output.h"

#include <windows.h>

#include <exception>

#include "velto-host/module.h"
#include "velto-host/portable/aac_format.h"

namespace velto::host {

std::string FormatArguments(fmt::string_view text, fmt::format_args arguments)
{
    return fmt::vformat(text, arguments);
}

Output::Output(std::string program, bool json, std::string schema)
    : m_program(std::move(program)),
      m_json(json),
      m_schema(std::move(schema)),
      m_people(json ? stderr : stdout)
{
}

void Output::Result(const Json &result) const
{
    if (!m_json) {
        return;
    }
    if (m_schema.empty()) {
        Line(stdout, result.IndentedText());
        return;
    }
    Json named{{"schema", m_schema}};
    for (const Json::Member &member : std::get<Json::Members>(result.Get())) {
        named[member.key] = member.value;
    }
    Line(stdout, named.IndentedText());
}

ExitCode Output::Fail(ExitCode exitCode, const std::string &reason) const
{
    Complain("{}", reason);
    Result({{"error", reason}, {"exitCode", int{exitCode}}});
    return exitCode;
}

ExitCode Output::FailWithCaught() const
{
    try {
        throw;
    } catch (const ModuleError &error) {
        return Fail(EXIT_MODULE, error.what());
    } catch (const AacFileError &error) {
        return Fail(EXIT_FILE, error.what());
    } catch (const FileError &error) {
        return Fail(EXIT_FILE, error.what());
    } catch (const std::exception &error) {
        return Fail(EXIT_FAILED, error.what());
    }
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
