#include "check/portable/plan.h"

#include <algorithm>
#include <stdexcept>

#include <fmt/format.h>

#include "check/portable/clause.h"

namespace velto::check {
namespace {

bool Covers(const Check &check, std::string_view clause)
{
    return std::find(check.clauses.begin(), check.clauses.end(), clause) != check.clauses.end();
}

bool IsInGroup(const Check &check, std::string_view group)
{
    return check.name.starts_with(group) &&
           (group.ends_with('.') || check.name.substr(group.size()).starts_with('.'));
}

bool IsInLevels(const Check &check, const PlanOptions &options)
{
    if (IsSpeaking(check)) {
        return options.speak;
    }
    return check.level <= options.level || (options.listen && IsListening(check));
}

bool IsSelected(const Check &check, const PlanOptions &options)
{
    if (options.only.empty()) {
        return IsInLevels(check, options);
    }
    if (Covers(check, options.only)) {
        return !IsSpeaking(check) || options.speak;
    }
    return check.name == options.only || IsInGroup(check, options.only);
}

std::string NothingToCheck(const std::string &only)
{
    if (FindClause(only) != nullptr) {
        return fmt::format("no check of this plan covers the clause {}: docs/contract.md says what does",
                           only);
    }
    return fmt::format("\"{}\" is no clause, no check and no group of checks: --list names them", only);
}

} // namespace

bool IsListening(const Check &check)
{
    return IsInGroup(check, "listen.");
}

bool IsSpeaking(const Check &check)
{
    return IsInGroup(check, "speak.");
}

std::vector<const Check *> PlanOf(const PlanOptions &options, std::span<const Check *const> all)
{
    std::vector<const Check *> plan;
    std::copy_if(all.begin(), all.end(), std::back_inserter(plan),
                 [&](const Check *check) { return IsSelected(*check, options); });
    if (plan.empty()) {
        throw std::invalid_argument(NothingToCheck(options.only));
    }
    std::stable_sort(plan.begin(), plan.end(),
                     [](const Check *left, const Check *right) { return left->level < right->level; });
    return plan;
}

} // namespace velto::check
