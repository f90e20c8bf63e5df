#include "check/portable/process_result.h"

#include <algorithm>
#include <functional>

#include <fmt/format.h>

namespace velto::check {
namespace {

constexpr std::string_view clauseOfProcessEnd = "LIF-3";
// At the end of a process, Windows ends all threads but one. A DLL that then waits for a lock of an ended
// thread, which may be any DLL of the process, makes Windows end the process with this code.
constexpr uint32_t threadIsTerminating = 0xC000004B;

// Codes of Windows' exceptions, such as 0xC0000005, are known by their hexadecimal form.
std::string ExitCodeText(uint32_t code)
{
    constexpr uint32_t firstStatus = 0x80000000;
    return code < firstStatus ? fmt::format("exit code {}", code) : fmt::format("exit code 0x{:08X}", code);
}

void Break(CheckResult &result, const Journal &journal, Outcome outcome, const std::string &text)
{
    result.outcome = outcome;
    result.lastStep = journal.lastStep;
    for (const std::string &clause : journal.lastStepClauses) {
        result.broken.push_back({clause, fmt::format("{} in the step \"{}\"", text, journal.lastStep)});
    }
}

void BreakAtEnd(CheckResult &result, Outcome outcome, const std::string &text)
{
    const std::string atEnd = text + " at the end of the process";
    if (std::find(result.clauses.begin(), result.clauses.end(), clauseOfProcessEnd) == result.clauses.end()) {
        result.warnings.push_back(
            fmt::format("{}; the checks of {} examine this", atEnd, clauseOfProcessEnd));
        return;
    }
    result.outcome = outcome;
    result.broken.push_back({std::string(clauseOfProcessEnd), atEnd});
}

std::string HangText(const ProcessEnd &end)
{
    return fmt::format("no end after {:.0f} s", end.seconds);
}

void Crash(CheckResult &result, const Journal &journal, const std::string &fault, bool isAtEnd)
{
    result.fault = fault;
    const std::string text = fmt::format("the process crashed ({})", fault);
    if (isAtEnd) {
        BreakAtEnd(result, Outcome::CRASHED, text);
    } else {
        Break(result, journal, Outcome::CRASHED, text);
    }
}

void Fail(CheckResult &result, const std::string &reason)
{
    result.outcome = Outcome::BROKEN;
    result.reason = reason;
}

void EndBeforeVerdict(CheckResult &result, const Journal &journal, const ProcessEnd &end)
{
    // A process that crashed may also reach the time limit, while the system reports the crash.
    if (end.kind == ProcessEnd::Kind::TIMED_OUT && !journal.endsWithFault) {
        Break(result, journal, Outcome::HUNG, HangText(end));
        return;
    }
    Crash(result, journal,
          journal.endsWithFault ? journal.faults.back().place
                                : "ended without a crash, with " + ExitCodeText(end.exitCode),
          false);
}

bool IsOfLifecycle(const Check &check)
{
    return check.name.starts_with("lifecycle.");
}

Outcome OutcomeOf(const CheckResult &result, const Journal &journal)
{
    if (!result.broken.empty()) {
        return Outcome::FAILED;
    }
    if (journal.skipped) {
        return Outcome::SKIPPED;
    }
    return result.warnings.empty() ? Outcome::PASSED : Outcome::WARNED;
}

const FaultRecord *FindFault(const Journal &journal, const std::function<bool(const FaultRecord &)> &isIt)
{
    const auto found = std::find_if(journal.faults.begin(), journal.faults.end(), isIt);
    return found != journal.faults.end() ? &*found : nullptr;
}

std::string WhereItEnded(const Journal &journal)
{
    return journal.hasEnded ? "at the end of the process" : "while the module was freed";
}

// The process of a check of the lifecycle, after the verdict.
void EndLifecycle(CheckResult &result, const Journal &journal, const ProcessEnd &end)
{
    const bool isGoodEnd = end.kind == ProcessEnd::Kind::EXITED && end.exitCode == 0;
    const FaultRecord *ofModule = FindFault(journal, [&](const FaultRecord &fault) {
        return fault.isOfModule && (!isGoodEnd || fault.isAtEnd || CountsIfSurvived(fault, end));
    });
    const FaultRecord *last =
        !journal.faults.empty() && journal.faults.back().isAfterVerdict ? &journal.faults.back() : nullptr;
    if (ofModule != nullptr) {
        Crash(result, journal, ofModule->place, ofModule->isAtEnd);
    } else if (end.kind == ProcessEnd::Kind::TIMED_OUT) {
        if (end.isUnderWine && journal.hasEnded) {
            result.warnings.emplace_back("the process hung at its end, and no fault of the module was seen: "
                                         "processes hang there under Wine without a module, too");
        } else if (journal.hasEnded) {
            BreakAtEnd(result, Outcome::HUNG, HangText(end));
        } else {
            Break(result, journal, Outcome::HUNG, HangText(end));
        }
    } else if (end.exitCode != 0) {
        const std::string place = last != nullptr ? last->place : ExitCodeText(end.exitCode);
        if (last == nullptr && journal.hasEnded && end.exitCode == threadIsTerminating) {
            result.warnings.push_back(fmt::format("Windows ended the process itself: {}", place));
        } else if (last != nullptr ? last->isOfWine : end.isUnderWine) {
            result.warnings.push_back(fmt::format("a crash of Wine {}: {}", WhereItEnded(journal), place));
        } else {
            Crash(result, journal, place, journal.hasEnded);
        }
    }
}

void WarnOfEnd(CheckResult &result, const Journal &journal, const ProcessEnd &end)
{
    const FaultRecord *ofModule =
        FindFault(journal, [](const FaultRecord &fault) { return fault.isOfModule && fault.isAfterVerdict; });
    if (ofModule != nullptr) {
        result.warnings.push_back(fmt::format(
            "after the check, the module crashed {}: {}; the checks of the group lifecycle examine this",
            WhereItEnded(journal), ofModule->place));
    } else if (end.kind == ProcessEnd::Kind::TIMED_OUT) {
        result.warnings.push_back(fmt::format("after the check, the process hung {}", WhereItEnded(journal)));
    }
}

void EndAfterVerdict(CheckResult &result, const Check &check, const Journal &journal, const ProcessEnd &end)
{
    result.reason = journal.skipped.value_or("");
    result.outcome = OutcomeOf(result, journal);
    if (!IsOfLifecycle(check)) {
        WarnOfEnd(result, journal, end);
    } else if (end.kind != ProcessEnd::Kind::INTERRUPTED) {
        EndLifecycle(result, journal, end);
    }
    if (result.outcome == Outcome::PASSED && !result.warnings.empty()) {
        result.outcome = Outcome::WARNED;
    }
}

} // namespace

bool CountsIfSurvived(const FaultRecord &fault, const ProcessEnd &end)
{
    return !fault.isOnStackOnly || end.isUnderWine;
}

CheckResult ResultOf(const Check &check, const Journal &journal, const ProcessEnd &end)
{
    CheckResult result;
    result.name = check.name;
    result.level = check.level;
    result.clauses.assign(check.clauses.begin(), check.clauses.end());
    result.broken = journal.failures;
    result.warnings = journal.warnings;
    result.seconds = end.seconds;
    result.measured = journal.measured;
    result.heard = journal.heard;
    if (end.kind == ProcessEnd::Kind::NOT_STARTED) {
        Fail(result, "the check's process could not be started: " + end.error);
    } else if (end.kind == ProcessEnd::Kind::INTERRUPTED && !journal.hasVerdict) {
        Fail(result, std::string(interruptedReason));
    } else if (journal.broken && result.broken.empty()) {
        Fail(result, *journal.broken);
    } else if (journal.broken) { // what was found is true, although the check was not finished
        result.outcome = Outcome::FAILED;
        result.warnings.push_back("the check was not finished: " + *journal.broken);
    } else if (!journal.hasBegun) {
        Fail(result, "the check's process did not begin: " + ExitCodeText(end.exitCode));
    } else if (journal.isDamaged && journal.faults.empty()) {
        Fail(result, "the journal of the check's process is damaged");
    } else if (!journal.hasVerdict) {
        EndBeforeVerdict(result, journal, end);
    } else {
        EndAfterVerdict(result, check, journal, end);
    }
    return result;
}

} // namespace velto::check
