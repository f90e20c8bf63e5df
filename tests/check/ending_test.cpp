// Whose fault a bad end of a process is.
#include "check/portable/ending.h"

#include <gtest/gtest.h>

namespace velto::check {
namespace {

constexpr uint32_t expectedCode = 42;
const std::string lastStep = "ends the process";

// A process that ended well under Wine.
struct Process {
    Journal journal;
    ProcessEnd end;

    Process()
    {
        journal.hasBegun = true;
        journal.lastStep = lastStep;
        end.kind = ProcessEnd::Kind::EXITED;
        end.exitCode = expectedCode;
        end.isUnderWine = true;
    }
    void AddFault(bool isOfModule, bool isOfWine)
    {
        journal.faults.push_back({"a.dll+0x10: access violation", isOfModule, isOfWine, false});
        journal.endsWithFault = true;
    }
    Blame WhoseFault() const { return ExamineEnd(journal, end, expectedCode, lastStep).blame; }
};

TEST(Ending, IsGoodWithExpectedCodeAfterLastStep)
{
    const Process process;
    EXPECT_EQ(process.WhoseFault(), Blame::NOBODY);
    EXPECT_EQ(ExamineEnd(process.journal, process.end, expectedCode, lastStep).reason, "");
}

TEST(Ending, WithExpectedCodeBeforeLastStepIsOfModule)
{
    Process process;
    process.journal.lastStep = "plays";
    EXPECT_EQ(process.WhoseFault(), Blame::MODULE);
}

TEST(Ending, WithAnotherCodeBeforeLastStepIsOfModule)
{
    Process process;
    process.end.exitCode = 1;
    process.journal.lastStep = "plays";
    process.end.isUnderWine = false;
    EXPECT_EQ(process.WhoseFault(), Blame::MODULE);
}

TEST(Ending, WithAnotherCodeAndNoTraceAtEndIsUnknown)
{
    for (const bool isUnderWine : {true, false}) {
        Process process;
        process.end.exitCode = 1;
        process.end.isUnderWine = isUnderWine;
        EXPECT_EQ(process.WhoseFault(), Blame::UNKNOWN);
        EXPECT_EQ(ExamineEnd(process.journal, process.end, expectedCode, lastStep).reason,
                  "the process ended with exit code 1 instead of 42, at its end");
    }
}

TEST(Ending, FaultInWineAfterLastStepIsOfWine)
{
    Process process;
    process.AddFault(false, true);
    process.end.exitCode = 0xC0000005;
    EXPECT_EQ(process.WhoseFault(), Blame::WINE);
}

TEST(Ending, FaultInWineBeforeLastStepIsOfModule)
{
    Process process;
    process.journal.lastStep = "plays";
    process.AddFault(false, true);
    EXPECT_EQ(process.WhoseFault(), Blame::MODULE);
}

TEST(Ending, FaultOutsideWineAndModuleIsUnknownOnWindowsOnly)
{
    Process process;
    process.AddFault(false, false);
    process.end.exitCode = 0xC0000005;
    EXPECT_EQ(process.WhoseFault(), Blame::MODULE);
    process.end.isUnderWine = false;
    EXPECT_EQ(process.WhoseFault(), Blame::UNKNOWN);
    process.journal.lastStep = "plays";
    EXPECT_EQ(process.WhoseFault(), Blame::MODULE);
}

TEST(Ending, FaultThatModuleOnlyCalledCountsAtBadEndAtLastStepOrUnderWine)
{
    Process handled;
    handled.AddFault(true, false);
    handled.journal.faults.back().isOnStackOnly = true;
    handled.journal.endsWithFault = false;
    EXPECT_EQ(handled.WhoseFault(), Blame::MODULE);
    handled.end.isUnderWine = false;
    EXPECT_EQ(handled.WhoseFault(), Blame::NOBODY);
    Process last = handled;
    last.journal.endsWithFault = true;
    EXPECT_EQ(last.WhoseFault(), Blame::MODULE);
    Process bad = handled;
    bad.end.exitCode = 1;
    EXPECT_EQ(bad.WhoseFault(), Blame::MODULE);
}

TEST(Ending, FaultThatSystemHandlesIsIgnoredOnWindows)
{
    Process process;
    process.AddFault(false, false);
    process.end.isUnderWine = false;
    EXPECT_EQ(process.WhoseFault(), Blame::NOBODY);
}

TEST(Ending, FaultThatWineSurvivesCounts)
{
    Process ofWine;
    ofWine.AddFault(false, true);
    EXPECT_EQ(ofWine.WhoseFault(), Blame::WINE);
    Process other;
    other.AddFault(false, false);
    EXPECT_EQ(other.WhoseFault(), Blame::MODULE);
}

TEST(Ending, FaultOfModuleCountsWhenProcessSurvivesIt)
{
    Process process;
    process.AddFault(true, false);
    process.AddFault(false, true);
    process.journal.endsWithFault = false;
    EXPECT_EQ(process.WhoseFault(), Blame::MODULE);
}

TEST(Ending, HangAtEndIsUnknownUnderWineOnly)
{
    Process process;
    process.end.kind = ProcessEnd::Kind::TIMED_OUT;
    EXPECT_EQ(process.WhoseFault(), Blame::UNKNOWN);
    process.end.isUnderWine = false;
    EXPECT_EQ(process.WhoseFault(), Blame::MODULE);
}

TEST(Ending, HangBeforeLastStepIsOfModule)
{
    Process process;
    process.end.kind = ProcessEnd::Kind::TIMED_OUT;
    process.journal.lastStep = "plays";
    EXPECT_EQ(process.WhoseFault(), Blame::MODULE);
}

} // namespace
} // namespace velto::check
