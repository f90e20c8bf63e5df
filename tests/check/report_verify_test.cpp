#include "check/portable/report_verify.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sample_run.h"

namespace velto::check {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

TEST(VerifyReport, AcceptsSameBytes)
{
    const Verification verification = VerifyReport(PassedRun(), PassedRun().files);
    EXPECT_TRUE(verification.isOfTheseBytes);
    EXPECT_TRUE(verification.hasPassed);
    EXPECT_THAT(verification.lines, ElementsAre(HasSubstr("passed: level 8 of 8")));
}

TEST(VerifyReport, AcceptsOtherCaseAndRenamedModule)
{
    std::vector<FileIdentity> files = PassedRun().files;
    files[0].name = "renamed.dll";
    files[1].name = "AVCODEC-59.DLL";
    EXPECT_TRUE(VerifyReport(PassedRun(), files).isOfTheseBytes);
}

TEST(VerifyReport, AcceptsOtherOrderOfDlls)
{
    check::Run run = PassedRun();
    run.files.push_back({"swresample-4.dll", "", 5, std::string(64, 'c')});
    std::vector<FileIdentity> files = run.files;
    std::swap(files[1], files[2]);
    EXPECT_TRUE(VerifyReport(run, files).isOfTheseBytes);
}

TEST(VerifyReport, NamesFileThatDiffers)
{
    for (const size_t i : {0, 1}) {
        std::vector<FileIdentity> files = PassedRun().files;
        files[i].sha256[63] = 'f';
        const Verification verification = VerifyReport(PassedRun(), files);
        EXPECT_FALSE(verification.isOfTheseBytes);
        ASSERT_THAT(verification.lines, SizeIs(2));
        EXPECT_THAT(verification.lines[0], HasSubstr(files[i].name + " differs"));
    }
}

TEST(VerifyReport, ComparesSizes)
{
    std::vector<FileIdentity> files = PassedRun().files;
    ++files[1].bytes;
    EXPECT_FALSE(VerifyReport(PassedRun(), files).isOfTheseBytes);
}

TEST(VerifyReport, NamesMissingAndExtraFiles)
{
    std::vector<FileIdentity> files = PassedRun().files;
    files[1].name = "other.dll";
    const Verification verification = VerifyReport(PassedRun(), files);
    EXPECT_FALSE(verification.isOfTheseBytes);
    EXPECT_THAT(verification.lines, ElementsAre("avcodec-59.dll is missing", HasSubstr("other.dll is extra"),
                                                HasSubstr("verdict")));
}

TEST(VerifyReport, UnreadableFilesNeverMatch)
{
    check::Run run = PassedRun();
    std::vector<FileIdentity> files = run.files;
    files[0].sha256.clear();
    EXPECT_FALSE(VerifyReport(run, files).isOfTheseBytes);
    run.files[0].sha256.clear();
    EXPECT_FALSE(VerifyReport(run, files).isOfTheseBytes);
    const Verification unknown = VerifyReport(run, PassedRun().files);
    EXPECT_FALSE(unknown.isOfTheseBytes);
    EXPECT_THAT(unknown.lines[0], HasSubstr("the report has no SHA-256"));
}

TEST(VerifyReport, RefusesEmptyLists)
{
    EXPECT_FALSE(VerifyReport(PassedRun(), {}).isOfTheseBytes);
    check::Run run = PassedRun();
    run.files.clear();
    EXPECT_FALSE(VerifyReport(run, {}).isOfTheseBytes);
    EXPECT_FALSE(VerifyReport(run, PassedRun().files).isOfTheseBytes);
}

TEST(VerifyReport, SaysThatReportOfTheseBytesHasNotPassed)
{
    const Verification failed = VerifyReport(FailedRun(), FailedRun().files);
    EXPECT_TRUE(failed.isOfTheseBytes);
    EXPECT_FALSE(failed.hasPassed);
    EXPECT_THAT(failed.lines, ElementsAre(HasSubstr("verdict is failed")));

    check::Run run = PassedRun();
    run.results[0].outcome = Outcome::BROKEN;
    EXPECT_THAT(VerifyReport(run, run.files).lines, ElementsAre(HasSubstr("certifies nothing")));
}

} // namespace
} // namespace velto::check
