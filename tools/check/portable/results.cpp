#include "check/portable/results.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>

namespace velto::check {
namespace {

constexpr std::array<std::string_view, 7> names{"passed",  "warned", "skipped", "failed",
                                                "crashed", "hung",   "broken"};

bool IsPassed(Outcome outcome)
{
    return outcome == Outcome::PASSED || outcome == Outcome::WARNED;
}

bool IsFailed(Outcome outcome)
{
    return outcome == Outcome::FAILED || outcome == Outcome::CRASHED || outcome == Outcome::HUNG;
}

} // namespace

std::string_view NameOf(Outcome outcome)
{
    return names.at(static_cast<size_t>(outcome));
}

bool IsInterrupted(const CheckResult &result)
{
    return result.outcome == Outcome::BROKEN && result.reason == interruptedReason;
}

Outcome Verdict(const Run &run)
{
    const auto any = [&](auto isSo) {
        return std::any_of(run.results.begin(), run.results.end(),
                           [&](const CheckResult &result) { return isSo(result.outcome); });
    };
    // A run without checks says nothing about the module, so it must not pass.
    if (run.results.empty() || any([](Outcome outcome) { return outcome == Outcome::BROKEN; })) {
        return Outcome::BROKEN;
    }
    return any(IsFailed) ? Outcome::FAILED : Outcome::PASSED;
}

int LevelReached(const Run &run)
{
    if (!run.only.empty()) {
        return 0;
    }
    struct Level {
        bool hasPassed = false;
        bool hasFailed = false; // or the checker failed, so the level is not proved
    };
    std::map<int, Level> levels;
    for (const CheckResult &result : run.results) {
        Level &level = levels[result.level];
        level.hasPassed = level.hasPassed || IsPassed(result.outcome);
        level.hasFailed = level.hasFailed || IsFailed(result.outcome) || result.outcome == Outcome::BROKEN;
    }
    int reached = 0;
    for (const auto &[number, level] : levels) {
        if (level.hasFailed || number > run.level) {
            break;
        }
        if (level.hasPassed) {
            reached = number;
        }
    }
    return reached;
}

} // namespace velto::check
