#include "check/portable/clause_results.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace velto::check {
namespace {

constexpr std::array<std::string_view, 4> names{"passed", "broken", "skipped", "not checked"};

ClauseResult &FindOrAdd(std::vector<ClauseResult> &clauses, const std::string &id)
{
    const auto found = std::find_if(clauses.begin(), clauses.end(),
                                    [&](const ClauseResult &clause) { return clause.id == id; });
    if (found != clauses.end()) {
        return *found;
    }
    clauses.push_back({id, nullptr, ClauseOutcome::NOT_CHECKED, {}});
    return clauses.back();
}

bool Breaks(const CheckResult &check, const std::string &clause)
{
    return std::any_of(check.broken.begin(), check.broken.end(),
                       [&](const BrokenClause &broken) { return broken.clause == clause; });
}

ClauseOutcome OutcomeOf(const ClauseResult &clause)
{
    const auto count = [&](auto isSo) {
        return std::count_if(clause.checks.begin(), clause.checks.end(),
                             [&](const CheckResult *check) { return isSo(*check); });
    };
    if (count([&](const CheckResult &check) { return Breaks(check, clause.id); }) > 0) {
        return ClauseOutcome::BROKEN;
    }
    // A check that failed may have ended before it examined all of its clauses, so only a check that passed
    // counts.
    if (count([](const CheckResult &check) {
            return check.outcome == Outcome::PASSED || check.outcome == Outcome::WARNED;
        }) > 0) {
        return ClauseOutcome::PASSED;
    }
    const auto skipped = count([](const CheckResult &check) { return check.outcome == Outcome::SKIPPED; });
    return skipped > 0 && static_cast<size_t>(skipped) == clause.checks.size() ? ClauseOutcome::SKIPPED
                                                                               : ClauseOutcome::NOT_CHECKED;
}

} // namespace

std::string_view NameOf(ClauseOutcome outcome)
{
    return names.at(static_cast<size_t>(outcome));
}

std::vector<ClauseResult> ClauseResults(const Run &run)
{
    std::vector<ClauseResult> clauses;
    for (const Clause &clause : AllClauses()) {
        clauses.push_back({std::string(clause.id), &clause, ClauseOutcome::NOT_CHECKED, {}});
    }
    for (const CheckResult &check : run.results) {
        std::vector<std::string> ids = check.clauses;
        for (const BrokenClause &broken : check.broken) {
            ids.push_back(broken.clause);
        }
        for (const std::string &id : ids) {
            ClauseResult &clause = FindOrAdd(clauses, id);
            if (std::find(clause.checks.begin(), clause.checks.end(), &check) == clause.checks.end()) {
                clause.checks.push_back(&check);
            }
        }
    }
    for (ClauseResult &clause : clauses) {
        clause.outcome = OutcomeOf(clause);
    }
    return clauses;
}

} // namespace velto::check
