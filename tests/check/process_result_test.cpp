// The result of a check for each way in which its process can end.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "check/portable/process_result.h"

namespace velto::check {
namespace {

using namespace std::chrono_literals;
using Kind = ProcessEnd::Kind;

const Check ordinary{"speaker.order", 5, {"SPK-4", "SPK-5"}, 10s, nullptr};
const Check lifecycle{"lifecycle.unload", 7, {"LIF-1", "LIF-3"}, 10s, nullptr};
const Check lifecycleBeforeEnd{"lifecycle.threads", 5, {"RES-2"}, 10s, nullptr};

Journal Begun()
{
    Journal journal;
    journal.hasBegun = true;
    journal.lastStep = "writes";
    journal.lastStepClauses = {"SPK-4"};
    return journal;
}

Journal Completed()
{
    Journal journal = Begun();
    journal.hasVerdict = journal.hasEnded = true;
    return journal;
}

void AddFault(Journal &journal, bool isOfModule, bool isOfWine)
{
    journal.faults.push_back(
        {"some.dll+0x10: access violation", isOfModule, isOfWine, journal.hasVerdict, journal.hasEnded});
    journal.endsWithFault = true;
}

Journal WithFault(Journal journal, bool isOfModule, bool isOfWine)
{
    AddFault(journal, isOfModule, isOfWine);
    return journal;
}

ProcessEnd Exited(uint32_t code, bool isUnderWine = true)
{
    return {Kind::EXITED, code, 1.5, isUnderWine, ""};
}

ProcessEnd Ended(Kind kind)
{
    return {kind, 1, 10, true, kind == Kind::NOT_STARTED ? "access denied" : ""};
}

std::vector<std::string> BrokenIn(const CheckResult &result)
{
    std::vector<std::string> clauses;
    for (const BrokenClause &broken : result.broken) {
        clauses.push_back(broken.clause);
    }
    return clauses;
}

using Clauses = std::vector<std::string>;
constexpr uint32_t accessViolation = 0xC0000005;

TEST(ProcessResult, PassesWithVerdictAndExitCodeZero)
{
    Journal journal = Completed();
    journal.measured.push_back({"Write p99", 1, "ms"});
    const CheckResult result = ResultOf(ordinary, journal, Exited(0));
    EXPECT_EQ(result.outcome, Outcome::PASSED);
    EXPECT_EQ(result.name, "speaker.order");
    EXPECT_EQ(result.level, 5);
    EXPECT_EQ(result.clauses, (Clauses{"SPK-4", "SPK-5"}));
    EXPECT_EQ(result.seconds, 1.5);
    EXPECT_EQ(result.measured.size(), 1u);
    EXPECT_TRUE(result.lastStep.empty());
}

TEST(ProcessResult, FailsWithBrokenClauseEvenIfRestWasSkipped)
{
    Journal journal = Completed();
    journal.failures.push_back({"SPK-5", "21 blocks"});
    journal.skipped = "no loudspeaker";
    const CheckResult result = ResultOf(ordinary, journal, Exited(0));
    EXPECT_EQ(result.outcome, Outcome::FAILED);
    EXPECT_EQ(BrokenIn(result), Clauses{"SPK-5"});
}

TEST(ProcessResult, SkipsAndWarns)
{
    Journal skipped = Completed();
    skipped.skipped = "no loudspeaker";
    EXPECT_EQ(ResultOf(ordinary, skipped, Exited(0)).outcome, Outcome::SKIPPED);
    EXPECT_EQ(ResultOf(ordinary, skipped, Exited(0)).reason, "no loudspeaker");
    Journal warned = Completed();
    warned.warnings = {"slow"};
    EXPECT_EQ(ResultOf(ordinary, warned, Exited(0)).outcome, Outcome::WARNED);
}

TEST(ProcessResult, CrashBreaksClausesOfLastStep)
{
    Journal journal = WithFault(Begun(), true, false);
    journal.failures.push_back({"SPK-5", "21 blocks"});
    const CheckResult result = ResultOf(ordinary, journal, Exited(accessViolation));
    EXPECT_EQ(result.outcome, Outcome::CRASHED);
    EXPECT_EQ(BrokenIn(result), (Clauses{"SPK-5", "SPK-4"}));
    EXPECT_EQ(result.fault, "some.dll+0x10: access violation");
    EXPECT_EQ(result.lastStep, "writes");
}

TEST(ProcessResult, EndOfProcessBeforeVerdictIsCrash)
{
    EXPECT_EQ(ResultOf(ordinary, Begun(), Exited(0)).outcome, Outcome::CRASHED);
    const CheckResult result = ResultOf(ordinary, Begun(), Exited(0xC0000409));
    EXPECT_EQ(result.outcome, Outcome::CRASHED);
    EXPECT_NE(result.fault.find("0xC0000409"), std::string::npos);
}

TEST(ProcessResult, TimeLimitBreaksClausesOfLastStep)
{
    const CheckResult result = ResultOf(ordinary, Begun(), Ended(Kind::TIMED_OUT));
    EXPECT_EQ(result.outcome, Outcome::HUNG);
    EXPECT_EQ(BrokenIn(result), Clauses{"SPK-4"});
}

TEST(ProcessResult, TimeLimitDuringCrashReportIsCrash)
{
    const Journal journal = WithFault(Begun(), true, false);
    EXPECT_EQ(ResultOf(ordinary, journal, Ended(Kind::TIMED_OUT)).outcome, Outcome::CRASHED);
}

TEST(ProcessResult, TimeLimitAfterSurvivedFaultIsHang)
{
    Journal journal = WithFault(Begun(), true, false);
    journal.endsWithFault = false;
    EXPECT_EQ(ResultOf(ordinary, journal, Ended(Kind::TIMED_OUT)).outcome, Outcome::HUNG);
}

TEST(ProcessResult, SurvivedFaultDoesNotFailCheck)
{
    Journal journal = WithFault(Begun(), true, false);
    journal.hasVerdict = true;
    journal.endsWithFault = false;
    EXPECT_EQ(ResultOf(ordinary, journal, Exited(0)).outcome, Outcome::PASSED);
}

TEST(ProcessResult, FailureOfCheckerIsBroken)
{
    EXPECT_EQ(ResultOf(ordinary, {}, Ended(Kind::NOT_STARTED)).outcome, Outcome::BROKEN);
    EXPECT_NE(ResultOf(ordinary, {}, Ended(Kind::NOT_STARTED)).reason.find("access denied"),
              std::string::npos);
    EXPECT_EQ(ResultOf(ordinary, Begun(), Ended(Kind::INTERRUPTED)).outcome, Outcome::BROKEN);
    EXPECT_EQ(ResultOf(ordinary, {}, Exited(accessViolation)).outcome, Outcome::BROKEN);
    Journal broken = Begun();
    broken.broken = "no memory";
    EXPECT_EQ(ResultOf(ordinary, broken, Exited(7)).outcome, Outcome::BROKEN);
    EXPECT_EQ(ResultOf(ordinary, broken, Exited(7)).reason, "no memory");
    broken.failures.push_back({"SPK-5", "no sound"});
    const CheckResult unfinished = ResultOf(ordinary, broken, Exited(7));
    EXPECT_EQ(unfinished.outcome, Outcome::FAILED);
    EXPECT_EQ(BrokenIn(unfinished), Clauses{"SPK-5"});
    EXPECT_EQ(unfinished.warnings, std::vector<std::string>{"the check was not finished: no memory"});
    Journal damaged = Completed();
    damaged.isDamaged = true;
    EXPECT_EQ(ResultOf(ordinary, damaged, Exited(0)).outcome, Outcome::BROKEN);
}

TEST(ProcessResult, KeepsVerdictWhenInterruptedLater)
{
    EXPECT_EQ(ResultOf(ordinary, Completed(), Ended(Kind::INTERRUPTED)).outcome, Outcome::PASSED);
    EXPECT_EQ(ResultOf(lifecycle, Completed(), Ended(Kind::INTERRUPTED)).outcome, Outcome::PASSED);
}

TEST(ProcessResult, EndAfterVerdictDoesNotFailOrdinaryCheck)
{
    EXPECT_EQ(ResultOf(ordinary, WithFault(Completed(), false, true), Exited(accessViolation)).outcome,
              Outcome::PASSED);
    EXPECT_EQ(ResultOf(ordinary, WithFault(Completed(), true, false), Exited(accessViolation)).outcome,
              Outcome::WARNED);
    EXPECT_EQ(ResultOf(ordinary, Completed(), Ended(Kind::TIMED_OUT)).outcome, Outcome::WARNED);
}

TEST(ProcessResult, FaultOfModuleAfterVerdictFailsLifecycleCheck)
{
    const CheckResult result =
        ResultOf(lifecycle, WithFault(Completed(), true, false), Exited(accessViolation));
    EXPECT_EQ(result.outcome, Outcome::CRASHED);
    EXPECT_EQ(BrokenIn(result), Clauses{"LIF-3"});
}

TEST(ProcessResult, FaultOfModuleAtEndWarnsInLifecycleCheckWithoutClauseOfEnd)
{
    const CheckResult result =
        ResultOf(lifecycleBeforeEnd, WithFault(Completed(), true, false), Exited(accessViolation));
    EXPECT_EQ(result.outcome, Outcome::WARNED);
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_NE(result.warnings[0].find("LIF-3"), std::string::npos);
}

TEST(ProcessResult, FaultOfModuleWhileFreedBreaksClausesOfLastStep)
{
    Journal freeing = Completed();
    freeing.hasEnded = false;
    const CheckResult result = ResultOf(lifecycle, WithFault(freeing, true, false), Exited(accessViolation));
    EXPECT_EQ(result.outcome, Outcome::CRASHED);
    EXPECT_EQ(BrokenIn(result), Clauses{"SPK-4"});
}

TEST(ProcessResult, FaultOfModuleThatProcessSurvivedFailsLifecycleCheck)
{
    EXPECT_EQ(ResultOf(lifecycle, WithFault(Completed(), true, false), Exited(0)).outcome, Outcome::CRASHED);
    EXPECT_EQ(ResultOf(lifecycle, WithFault(Completed(), true, true), Exited(0)).outcome, Outcome::CRASHED);
}

TEST(ProcessResult, SurvivedFaultThatModuleOnlyCalledFailsLifecycleCheckAtEndOrUnderWine)
{
    Journal during = WithFault(Begun(), true, false);
    during.faults.back().isOnStackOnly = true;
    during.hasVerdict = during.hasEnded = true;
    EXPECT_EQ(ResultOf(lifecycle, during, Exited(0)).outcome, Outcome::CRASHED);
    EXPECT_EQ(ResultOf(lifecycle, during, Exited(0, false)).outcome, Outcome::PASSED);
    EXPECT_EQ(ResultOf(lifecycle, during, Exited(1, false)).outcome, Outcome::CRASHED);
    Journal atEnd = WithFault(Completed(), true, false);
    atEnd.faults.back().isOnStackOnly = true;
    EXPECT_EQ(ResultOf(lifecycle, atEnd, Exited(0, false)).outcome, Outcome::CRASHED);
}

TEST(ProcessResult, EndByWindowsForLockOfEndedThreadWarnsInLifecycleCheck)
{
    constexpr uint32_t threadIsTerminating = 0xC000004B;
    EXPECT_EQ(ResultOf(lifecycle, Completed(), Exited(threadIsTerminating, false)).outcome, Outcome::WARNED);
    Journal freeing = Completed();
    freeing.hasEnded = false;
    EXPECT_EQ(ResultOf(lifecycle, freeing, Exited(threadIsTerminating, false)).outcome, Outcome::CRASHED);
}

TEST(ProcessResult, FaultOfWineAfterVerdictWarnsInLifecycleCheck)
{
    const CheckResult result =
        ResultOf(lifecycle, WithFault(Completed(), false, true), Exited(accessViolation));
    EXPECT_EQ(result.outcome, Outcome::WARNED);
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_NE(result.warnings[0].find("some.dll+0x10"), std::string::npos);
    EXPECT_EQ(ResultOf(lifecycle, Completed(), Exited(9)).outcome, Outcome::WARNED);
}

TEST(ProcessResult, UnexplainedEndAfterVerdictFailsLifecycleCheckOutsideWine)
{
    EXPECT_EQ(ResultOf(lifecycle, Completed(), Exited(9, false)).outcome, Outcome::CRASHED);
    EXPECT_EQ(ResultOf(lifecycle, WithFault(Completed(), false, false), Exited(accessViolation)).outcome,
              Outcome::CRASHED);
    ProcessEnd hang = Ended(Kind::TIMED_OUT);
    hang.isUnderWine = false;
    EXPECT_EQ(ResultOf(lifecycle, Completed(), hang).outcome, Outcome::HUNG);
}

TEST(ProcessResult, HangOfWineAtEndOfProcessWarnsInLifecycleCheck)
{
    EXPECT_EQ(ResultOf(lifecycle, Completed(), Ended(Kind::TIMED_OUT)).outcome, Outcome::WARNED);
    Journal freeing = Completed();
    freeing.hasEnded = false;
    EXPECT_EQ(ResultOf(lifecycle, freeing, Ended(Kind::TIMED_OUT)).outcome, Outcome::HUNG);
    EXPECT_EQ(ResultOf(lifecycle, WithFault(Completed(), true, false), Ended(Kind::TIMED_OUT)).outcome,
              Outcome::CRASHED);
}

} // namespace
} // namespace velto::check
