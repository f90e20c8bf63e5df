#include "check/portable/module_commit.h"

namespace velto::check {

std::string ModuleCommit(std::string_view log)
{
    constexpr std::string_view begin = "[Logging] LibVeltoAudioHandler ";
    constexpr std::string_view label = ", commit ";
    const size_t at = log.find(begin);
    if (at == std::string_view::npos) {
        return {};
    }
    const std::string_view line = log.substr(at, log.substr(at).find('\n'));
    const size_t commit = line.find(label);
    if (commit == std::string_view::npos) {
        return {};
    }
    const std::string_view rest = line.substr(commit + label.size());
    return std::string(rest.substr(0, rest.find_first_of(",\r")));
}

} // namespace velto::check
