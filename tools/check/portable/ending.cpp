#include "check/portable/ending.h"

#include <algorithm>

#include <fmt/format.h>

namespace velto::check {

Ending ExamineEnd(const Journal &journal, const ProcessEnd &end, uint32_t expectedCode,
                  const std::string &lastStep)
{
    const auto ofModule =
        std::ranges::find_if(journal.faults, [](const FaultRecord &fault) { return fault.isOfModule; });
    if (ofModule != journal.faults.end()) {
        return {Blame::MODULE, "a crash of the module: " + ofModule->place};
    }
    const bool isAtEnd = journal.lastStep == lastStep;
    const std::string when = isAtEnd ? "at its end" : "before its end";
    if (end.kind == ProcessEnd::Kind::TIMED_OUT && !journal.endsWithFault) {
        return {isAtEnd && end.isUnderWine ? Blame::UNKNOWN : Blame::MODULE,
                fmt::format("the process hung {}", when)};
    }
    if (!journal.faults.empty()) {
        const FaultRecord &fault = journal.faults.back();
        return {isAtEnd && fault.isOfWine ? Blame::WINE : Blame::MODULE,
                fmt::format("a crash {}: {}", when, fault.place)};
    }
    if (end.kind == ProcessEnd::Kind::EXITED && end.exitCode == expectedCode && isAtEnd) {
        return {};
    }
    return {isAtEnd && end.isUnderWine ? Blame::UNKNOWN : Blame::MODULE,
            fmt::format("the process ended {} with exit code {} instead of {}", when, end.exitCode,
                        expectedCode)};
}

} // namespace velto::check
