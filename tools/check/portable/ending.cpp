#include "check/portable/ending.h"

#include <algorithm>

#include <fmt/format.h>

namespace velto::check {
namespace {

// A fault without the module's code.
Ending OtherFault(const FaultRecord &fault, bool isAtEnd, const std::string &when)
{
    return {isAtEnd && fault.isOfWine ? Blame::WINE : Blame::MODULE,
            fmt::format("a crash {}: {}", when, fault.place)};
}

} // namespace

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
    const Blame withoutTrace = isAtEnd && end.isUnderWine ? Blame::UNKNOWN : Blame::MODULE;
    if (end.kind == ProcessEnd::Kind::TIMED_OUT && !journal.endsWithFault) {
        return {withoutTrace, fmt::format("the process hung {}", when)};
    }
    if (end.kind == ProcessEnd::Kind::EXITED && end.exitCode == expectedCode && isAtEnd) {
        // Windows and its drivers handle some exceptions of their own. Wine's loader also survives a crash.
        const bool isSurvivedByWine = end.isUnderWine && journal.endsWithFault;
        return isSurvivedByWine ? OtherFault(journal.faults.back(), isAtEnd, when) : Ending();
    }
    if (journal.endsWithFault) {
        return OtherFault(journal.faults.back(), isAtEnd, when);
    }
    return {withoutTrace, fmt::format("the process ended with exit code {} instead of {}, {}", end.exitCode,
                                      expectedCode, when)};
}

} // namespace velto::check
