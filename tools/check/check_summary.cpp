#include "check/check_summary.h"

#include <algorithm>
#include <array>
#include <string>

#include "check/portable/clause_results.h"

namespace velto::check {
namespace {

constexpr std::array outcomes{Outcome::PASSED,  Outcome::WARNED, Outcome::SKIPPED, Outcome::FAILED,
                              Outcome::CRASHED, Outcome::HUNG,   Outcome::BROKEN};

std::string CountsOf(const Run &run)
{
    std::string text;
    for (const Outcome outcome : outcomes) {
        const auto count =
            std::count_if(run.results.begin(), run.results.end(), [&](const CheckResult &result) {
                return result.outcome == outcome && !IsInterrupted(result);
            });
        if (count > 0) {
            text += host::Format("{}{} {}", text.empty() ? "" : ", ", count, NameOf(outcome));
        }
    }
    const auto interrupted = std::ranges::count_if(run.results, IsInterrupted);
    return text +
           (interrupted > 0 ? host::Format("{}{} interrupted", text.empty() ? "" : ", ", interrupted) : "");
}

// A check that finds a clause broken many times, for example on several threads, prints its first
// observation.
void PrintClause(const ClauseResult &clause, const host::Output &output)
{
    output.Say("{}  {}", clause.id, clause.clause != nullptr ? clause.clause->text : "unknown clause");
    for (const CheckResult *check : clause.checks) {
        const auto isOfClause = [&](const BrokenClause &broken) { return broken.clause == clause.id; };
        const auto first = std::find_if(check->broken.begin(), check->broken.end(), isOfClause);
        if (first == check->broken.end()) {
            continue;
        }
        const auto count = std::count_if(check->broken.begin(), check->broken.end(), isOfClause);
        output.Say("    {}: {}{}", check->name, first->text,
                   count > 1 ? host::Format(" (and {} more)", count - 1) : "");
        output.Say("    repeat: {}", check->repeat);
    }
}

void PrintWithoutClause(const CheckResult &result, const host::Output &output)
{
    output.Say("{} {}: {}{}", result.name, NameOf(result.outcome), result.fault, result.reason);
    output.Say("    repeat: {}", result.repeat);
}

std::string ReachedBy(const Run &run)
{
    return run.only.empty() ? host::Format("level reached: {}", LevelReached(run))
                            : host::Format("only {} was examined, no level as a whole", run.only);
}

} // namespace

void PrintSummary(const Run &run, const host::Output &output)
{
    for (const ClauseResult &clause : ClauseResults(run)) {
        if (clause.outcome == ClauseOutcome::BROKEN) {
            PrintClause(clause, output);
        }
    }
    for (const CheckResult &result : run.results) {
        if (!result.repeat.empty() && result.broken.empty() && !IsInterrupted(result)) {
            PrintWithoutClause(result, output);
        }
        for (const std::string &warning : result.warnings) {
            output.Say("{} warns: {}", result.name, warning);
        }
        if (result.outcome == Outcome::SKIPPED) {
            output.Say("{} skipped: {}", result.name, result.reason);
        }
    }
    output.Say("{} checks in {:.0f} s: {}", run.results.size(), run.seconds, CountsOf(run));
    output.Say("verdict: {}; {}", NameOf(Verdict(run)), ReachedBy(run));
}

} // namespace velto::check
