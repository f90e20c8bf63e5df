// Collects what a check reports, for tests.
#pragma once

#include <algorithm>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "check/portable/check.h"

namespace velto_test {

// A Context calls it from one thread at a time.
class CollectedEvents final : public velto::check::EventSink {
public:
    void OnStep(std::string_view text, const std::vector<std::string_view> &clauses) override
    {
        lastStep = text;
        reported.insert(clauses.begin(), clauses.end());
    }
    void OnFailure(std::string_view clause, std::string_view text) override
    {
        failures.push_back(fmt::format("{} ({}): {}", clause, lastStep, text));
        reported.insert(std::string(clause));
    }
    void OnWarning(std::string_view text) override { warnings.emplace_back(text); }
    void OnSkipped(std::string_view reason) override { skipped = reason; }
    void OnMeasured(std::string_view, double, std::string_view) override {}

    std::string lastStep;
    std::vector<std::string> failures;
    std::vector<std::string> warnings;
    std::string skipped;            // the reason; empty if the check ran
    std::set<std::string> reported; // clauses of failures and of steps
};

// Runs a check as a process of its own would.
inline void RunCheck(const velto::check::Check &check, velto::check::Context &context)
{
    try {
        check.run(context);
    } catch (const velto::check::CheckEnded &) {
        // The reason was reported.
    }
}

// Clauses that the check reported and does not declare.
inline std::vector<std::string> UndeclaredClauses(const velto::check::Check &check,
                                                  const CollectedEvents &events)
{
    std::vector<std::string> undeclared;
    std::ranges::copy_if(events.reported, std::back_inserter(undeclared), [&](const std::string &clause) {
        return std::ranges::find(check.clauses, clause) == check.clauses.end();
    });
    return undeclared;
}

// A name that GoogleTest accepts for a parameter: "speaker_raw_units".
inline std::string TestNameOf(const velto::check::Check &check)
{
    std::string name(check.name);
    std::ranges::replace_if(
        name, [](char letter) { return letter == '.' || letter == '-'; }, '_');
    return name;
}

} // namespace velto_test
