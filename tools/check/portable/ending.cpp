#include "check/portable/ending.h"

#include <algorithm>

#include <fmt/format.h>

namespace velto::check {
namespace {

// A fault without the module's code.
Ending OtherFault(const FaultRecord &fault, bool isAtEnd, bool isUnderWine)
{
    const std::string when = isAtEnd ? "at its end" : "before its end";
    const Blame otherCode = isUnderWine ? Blame::MODULE : Blame::UNKNOWN;
    const Blame atEnd = fault.isOfWine ? Blame::WINE : otherCode;
    return {isAtEnd ? atEnd : Blame::MODULE, fmt::format("a crash {}: {}", when, fault.place)};
}

} // namespace

Ending ExamineEnd(const Journal &journal, const ProcessEnd &end, uint32_t expectedCode,
                  const std::string &lastStep)
{
    const bool isAtEnd = journal.lastStep == lastStep;
    const bool isExpected = end.kind == ProcessEnd::Kind::EXITED && end.exitCode == expectedCode && isAtEnd;
    const auto ofModule = std::ranges::find_if(journal.faults, [&](const FaultRecord &fault) {
        const bool isLast = journal.endsWithFault && &fault == &journal.faults.back();
        return fault.isOfModule && (isLast || !isExpected || CountsIfSurvived(fault, end));
    });
    if (ofModule != journal.faults.end()) {
        return {Blame::MODULE, "a crash of the module: " + ofModule->place};
    }
    const std::string when = isAtEnd ? "at its end" : "before its end";
    if (end.kind == ProcessEnd::Kind::TIMED_OUT && !journal.endsWithFault) {
        return {isAtEnd && end.isUnderWine ? Blame::UNKNOWN : Blame::MODULE,
                fmt::format("the process hung {}", when)};
    }
    if (isExpected) {
        // Windows and its drivers handle some exceptions of their own. Wine's loader also survives a crash.
        const bool isSurvivedByWine = end.isUnderWine && journal.endsWithFault;
        return isSurvivedByWine ? OtherFault(journal.faults.back(), isAtEnd, true) : Ending();
    }
    if (journal.endsWithFault) {
        return OtherFault(journal.faults.back(), isAtEnd, end.isUnderWine);
    }
    return {isAtEnd ? Blame::UNKNOWN : Blame::MODULE,
            fmt::format("the process ended with exit code {} instead of {}, {}", end.exitCode, expectedCode,
                        when)};
}

} // namespace velto::check
