#include "check/portable/report_junit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sample_run.h"

namespace velto::check {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// The lines of a test case.
std::string CaseOf(const std::string &xml, const std::string &name)
{
    const size_t begin = xml.find("name=\"" + name + "\"");
    return begin == std::string::npos ? "" : xml.substr(begin, xml.find("</testcase>", begin) - begin);
}

TEST(JunitReport, HasSuiteForEachLevel)
{
    const std::string xml = JunitReport(FailedRun());
    EXPECT_THAT(xml,
                HasSubstr("<testsuite name=\"level 1\" tests=\"2\" failures=\"0\" errors=\"1\" skipped=\"0\" "
                          "time=\"0.500\" timestamp=\"2026-03-07T04:05:06Z\">"));
    EXPECT_THAT(
        xml, HasSubstr("<testsuite name=\"level 3\" tests=\"1\" failures=\"1\" errors=\"0\" skipped=\"0\""));
    EXPECT_THAT(
        xml, HasSubstr("<testsuite name=\"level 6\" tests=\"1\" failures=\"0\" errors=\"0\" skipped=\"1\""));
    EXPECT_THAT(xml, Not(HasSubstr("level 2\"")));
    EXPECT_THAT(xml,
                HasSubstr("<testsuites name=\"velto-host check\" tests=\"7\" failures=\"2\" errors=\"2\" "
                          "skipped=\"1\""));
}

TEST(JunitReport, NamesModuleAndSeed)
{
    EXPECT_THAT(JunitReport(PassedRun()),
                AllOf(HasSubstr("<property name=\"module\" value=\"LibVeltoAudioHandler.dll\"/>"),
                      HasSubstr("<property name=\"module.sha256\" value=\"" + std::string(64, 'a') + "\"/>"),
                      HasSubstr("<property name=\"seed\" value=\"18446744073709551615\"/>"),
                      HasSubstr("<property name=\"verdict\" value=\"passed\"/>")));
}

TEST(JunitReport, DescribesEachOutcome)
{
    const std::string xml = JunitReport(FailedRun());
    EXPECT_THAT(CaseOf(xml, "entry.null-table"), AllOf(Not(HasSubstr("<failure")), Not(HasSubstr("<error"))));
    EXPECT_THAT(CaseOf(xml, "arguments.wrong-ids"),
                AllOf(HasSubstr("<failure type=\"failed\" message=\"IDS-2: "),
                      HasSubstr("IDS-2: the last byte"),
                      HasSubstr("repeat: velto-host check --module &quot;C:\\a b\\x.dll&quot;")));
    EXPECT_THAT(CaseOf(xml, "entry.table"),
                AllOf(HasSubstr("<error type=\"crashed\" message=\"LibVeltoAudioHandler.dll+0x1a2b: access"),
                      HasSubstr("last step: fills a table"), HasSubstr("minidump: entry.table.dmp")));
    EXPECT_THAT(CaseOf(xml, "storm.calls"), HasSubstr("<error type=\"hung\""));
    EXPECT_THAT(CaseOf(xml, "microphone.packets"),
                HasSubstr("<skipped message=\"there is no microphone\"/>"));
    EXPECT_THAT(CaseOf(xml, "speaker.stream"), HasSubstr("<system-out>warning: a call took"));
}

TEST(JunitReport, FailedCheckerIsError)
{
    check::Run run = PassedRun();
    run.results[0].outcome = Outcome::BROKEN;
    run.results[0].reason = "no journal";
    EXPECT_THAT(CaseOf(JunitReport(run), "entry.null-table"),
                HasSubstr("<error type=\"broken\" message=\"no journal\">"));
}

TEST(JunitReport, HasOnlyCharactersOfXml)
{
    check::Run run = FailedRun();
    run.results[4].reason = "<no microphone>";
    run.results[2].broken[0].text = "<&\">\x01\xff\xEF\xBF\xBE\xEF\xBF\xBF]]>";
    EXPECT_THAT(CaseOf(JunitReport(run), "microphone.packets"),
                HasSubstr("message=\"&lt;no microphone&gt;\""));
    EXPECT_THAT(
        CaseOf(JunitReport(run), "arguments.wrong-ids"),
        HasSubstr("IDS-2: &lt;&amp;&quot;&gt;\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD]]&gt;\n"));
}

} // namespace
} // namespace velto::check
