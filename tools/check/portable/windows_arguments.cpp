#include "check/portable/windows_arguments.h"

#include <cstddef>

namespace velto::check {
namespace {

bool NeedsQuotes(const std::string &argument)
{
    return argument.empty() || argument.find_first_of(" \t\"&|<>^()%;,=") != std::string::npos;
}

// Backslashes are only special in front of a quotation mark, where each of them needs another one.
std::string Quoted(const std::string &argument)
{
    std::string quoted = "\"";
    size_t backslashes = 0;
    for (const char letter : argument) {
        if (letter == '"') {
            quoted.append(backslashes + 1, '\\');
        }
        backslashes = letter == '\\' ? backslashes + 1 : 0;
        quoted += letter;
    }
    quoted.append(backslashes, '\\');
    return quoted + '"';
}

} // namespace

std::string CommandLineOf(const std::vector<std::string> &arguments)
{
    std::string line;
    for (const std::string &argument : arguments) {
        line += line.empty() ? "" : " ";
        line += NeedsQuotes(argument) ? Quoted(argument) : argument;
    }
    return line;
}

} // namespace velto::check
