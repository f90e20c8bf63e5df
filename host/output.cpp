#include "host/output.h"

#include <windows.h>

namespace velto::host {

Output::Output(bool json) : m_json(json), m_people(json ? stderr : stdout) {}

void Output::Result(const Json &result) const
{
    if (m_json) {
        Line(stdout, result.dump(2, ' ', false, Json::error_handler_t::replace));
    }
}

bool Output::IsWatched()
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
