#include "check/portable/results.h"

#include <algorithm>
#include <stdexcept>

#include <gtest/gtest.h>

#include "check/portable/clause_results.h"
#include "sample_run.h"

namespace velto::check {
namespace {

Run RunOf(std::vector<CheckResult> results)
{
    check::Run run;
    run.level = 10;
    run.results = std::move(results);
    return run;
}

TEST(Outcome, HasName)
{
    EXPECT_EQ(NameOf(Outcome::PASSED), "passed");
    EXPECT_EQ(NameOf(Outcome::WARNED), "warned");
    EXPECT_EQ(NameOf(Outcome::SKIPPED), "skipped");
    EXPECT_EQ(NameOf(Outcome::FAILED), "failed");
    EXPECT_EQ(NameOf(Outcome::CRASHED), "crashed");
    EXPECT_EQ(NameOf(Outcome::HUNG), "hung");
    EXPECT_EQ(NameOf(Outcome::BROKEN), "broken");
}

TEST(Verdict, IsPassedWithWarningsAndSkippedChecks)
{
    EXPECT_EQ(Verdict(RunOf({MakeResult("a", 1, Outcome::PASSED), MakeResult("b", 1, Outcome::WARNED),
                             MakeResult("c", 2, Outcome::SKIPPED)})),
              Outcome::PASSED);
}

TEST(Verdict, IsFailedAfterFailureCrashOrHang)
{
    for (const Outcome outcome : {Outcome::FAILED, Outcome::CRASHED, Outcome::HUNG}) {
        EXPECT_EQ(Verdict(RunOf({MakeResult("a", 1, Outcome::PASSED), MakeResult("b", 1, outcome)})),
                  Outcome::FAILED)
            << NameOf(outcome);
    }
}

TEST(Verdict, IsBrokenIfCheckerFailedEvenIfModuleFailedToo)
{
    EXPECT_EQ(Verdict(RunOf({MakeResult("a", 1, Outcome::FAILED), MakeResult("b", 1, Outcome::BROKEN)})),
              Outcome::BROKEN);
}

TEST(Verdict, IsBrokenWithoutResults)
{
    EXPECT_EQ(Verdict(RunOf({})), Outcome::BROKEN);
}

TEST(LevelReached, IsHighestLevelThatPassed)
{
    EXPECT_EQ(LevelReached(RunOf({MakeResult("a", 1, Outcome::PASSED), MakeResult("b", 5, Outcome::WARNED)})),
              5);
    EXPECT_EQ(LevelReached(RunOf({})), 0);
}

TEST(LevelReached, EndsBelowFirstFailure)
{
    for (const Outcome outcome : {Outcome::FAILED, Outcome::CRASHED, Outcome::HUNG, Outcome::BROKEN}) {
        EXPECT_EQ(
            LevelReached(RunOf({MakeResult("c", 3, Outcome::PASSED), MakeResult("a", 1, Outcome::PASSED),
                                MakeResult("b", 2, outcome), MakeResult("d", 2, Outcome::PASSED)})),
            1)
            << NameOf(outcome);
    }
    EXPECT_EQ(LevelReached(RunOf({MakeResult("a", 1, Outcome::FAILED), MakeResult("b", 2, Outcome::PASSED)})),
              0);
}

TEST(LevelReached, LeavesOutLevelsWhoseChecksWereAllSkipped)
{
    const CheckResult first = MakeResult("a", 1, Outcome::PASSED);
    const CheckResult skipped = MakeResult("b", 6, Outcome::SKIPPED);
    EXPECT_EQ(LevelReached(RunOf({first, skipped})), 1);
    EXPECT_EQ(LevelReached(RunOf({first, skipped, MakeResult("c", 6, Outcome::PASSED)})), 6);
    // A skipped level is no failure, so levels above it count.
    EXPECT_EQ(LevelReached(RunOf({first, skipped, MakeResult("c", 7, Outcome::PASSED)})), 7);
    EXPECT_EQ(LevelReached(RunOf({skipped})), 0);
}

TEST(LevelReached, IsNotAboveLevelOfRun)
{
    check::Run run = RunOf({MakeResult("a", 4, Outcome::PASSED), MakeResult("listen.b", 7, Outcome::PASSED)});
    run.level = 4;
    run.listen = true;
    EXPECT_EQ(LevelReached(run), 4);
}

TEST(LevelReached, IsZeroForSelectedChecks)
{
    check::Run run = RunOf({MakeResult("a", 1, Outcome::PASSED)});
    run.only = "a";
    EXPECT_EQ(LevelReached(run), 0);
}

ClauseOutcome OutcomeOf(std::string_view id, const check::Run &run)
{
    const std::vector<ClauseResult> clauses = ClauseResults(run);
    const auto found = std::find_if(clauses.begin(), clauses.end(),
                                    [&](const ClauseResult &clause) { return clause.id == id; });
    return found == clauses.end() ? throw std::out_of_range("no such clause") : found->outcome;
}

TEST(ClauseResults, AreThoseOfAllClausesInTheirOrder)
{
    const check::Run run = RunOf({});
    const std::vector<ClauseResult> clauses = ClauseResults(run);
    ASSERT_EQ(clauses.size(), AllClauses().size());
    for (size_t i = 0; i < clauses.size(); ++i) {
        EXPECT_EQ(clauses[i].id, AllClauses()[i].id);
        EXPECT_EQ(clauses[i].outcome, ClauseOutcome::NOT_CHECKED);
    }
}

TEST(ClauseResults, ClausePassesWithCheckThatPassed)
{
    for (const Outcome outcome : {Outcome::PASSED, Outcome::WARNED}) {
        EXPECT_EQ(OutcomeOf("ENT-2", RunOf({MakeResult("a", 1, Outcome::SKIPPED, {"ENT-2"}),
                                            MakeResult("b", 1, outcome, {"ENT-2"})})),
                  ClauseOutcome::PASSED);
    }
}

TEST(ClauseResults, ClauseIsSkippedOnlyWithAllItsChecks)
{
    const CheckResult skipped = MakeResult("a", 1, Outcome::SKIPPED, {"ENT-2"});
    EXPECT_EQ(OutcomeOf("ENT-2", RunOf({skipped})), ClauseOutcome::SKIPPED);
    EXPECT_EQ(OutcomeOf("ENT-2", RunOf({skipped, MakeResult("b", 1, Outcome::BROKEN, {"ENT-2"})})),
              ClauseOutcome::NOT_CHECKED);
}

TEST(ClauseResults, FailedCheckBreaksOnlyClausesThatItReports)
{
    CheckResult failed = MakeResult("a", 1, Outcome::FAILED, {"ENT-2", "ENT-3"});
    failed.broken = {{"ENT-3", "text"}};
    const check::Run run = RunOf({failed, MakeResult("b", 1, Outcome::PASSED, {"ENT-3"})});
    EXPECT_EQ(OutcomeOf("ENT-3", run), ClauseOutcome::BROKEN);
    EXPECT_EQ(OutcomeOf("ENT-2", run), ClauseOutcome::NOT_CHECKED);
}

TEST(ClauseResults, IncludeUnknownClausesOnce)
{
    CheckResult failed = MakeResult("a", 1, Outcome::FAILED, {"ENT-999"});
    failed.broken = {{"ENT-999", "text"}};
    const check::Run run = RunOf({failed});
    const std::vector<ClauseResult> clauses = ClauseResults(run);
    ASSERT_EQ(clauses.size(), AllClauses().size() + 1);
    EXPECT_EQ(clauses.back().clause, nullptr);
    EXPECT_EQ(clauses.back().outcome, ClauseOutcome::BROKEN);
    EXPECT_EQ(clauses.back().checks.size(), 1U);
}

} // namespace
} // namespace velto::check
