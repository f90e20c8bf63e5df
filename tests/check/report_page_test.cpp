#include "check/portable/report_page.h"

#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/portable/clause.h"
#include "check/portable/report_pictures.h"
#include "sample_run.h"

namespace velto::check {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// A section of the page; "" if the page lacks it.
std::string SectionOf(const std::string &page, const std::string &id)
{
    const size_t begin = page.find("<section aria-labelledby=\"" + id + "\">");
    return begin == std::string::npos ? "" : page.substr(begin, page.find("</section>", begin) - begin);
}

size_t CountOf(const std::string &text, std::string_view part)
{
    size_t count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++count;
    }
    return count;
}

TEST(HtmlReport, BeginsWithVerdictLevelAndModule)
{
    const std::string page = HtmlReport(PassedRun());
    EXPECT_THAT(page,
                AllOf(HasSubstr("<header class=\"verdict passed\">"),
                      HasSubstr("Contract check of LibVeltoAudioHandler.dll"), HasSubstr(">Passed</span>"),
                      HasSubstr("Level 8 of 8 was reached."), HasSubstr(std::string(64, 'a')),
                      HasSubstr("commit 0123456789ab"), HasSubstr("none is broken")));
    EXPECT_THAT(HtmlReport(FailedRun()),
                AllOf(HasSubstr("<header class=\"verdict failed\">"), HasSubstr("No level was reached."),
                      HasSubstr("clauses are broken")));
    check::Run broken = PassedRun();
    broken.results[0].outcome = Outcome::BROKEN;
    EXPECT_THAT(HtmlReport(broken), AllOf(HasSubstr("<header class=\"verdict broken\">"),
                                          HasSubstr("says nothing about the module")));
}

TEST(HtmlReport, SaysThatRunWasInterrupted)
{
    check::Run run = PassedRun();
    for (CheckResult &result : run.results) {
        if (result.level >= 7) {
            result.outcome = Outcome::BROKEN;
            result.reason = interruptedReason;
        }
    }
    const std::string page = HtmlReport(run);
    EXPECT_THAT(
        page,
        AllOf(
            HasSubstr("The run was interrupted: 2 of 7 checks were not finished. Level 5 of 8 was reached."),
            HasSubstr("not finished, 1 check, 1 interrupted")));
    EXPECT_EQ(SectionOf(page, "failed"), "");
}

TEST(HtmlReport, ClaimsNoLevelForSelectedChecks)
{
    check::Run run = PassedRun();
    run.only = "ENT-2";
    EXPECT_THAT(HtmlReport(run), AllOf(HasSubstr("Only ENT-2 was examined, no level as a whole."),
                                       HasSubstr("Passed, ENT-2</title>"), HasSubstr("--only ENT-2 --seed")));
}

TEST(HtmlReport, NeedsNothingElse)
{
    const std::string page = HtmlReport(FailedRun());
    for (const char *part : {"<script", "http://", "https://", "src=", "@import", "url("}) {
        EXPECT_THAT(page, Not(HasSubstr(part)));
    }
}

TEST(HtmlReport, ShowsFailedChecksBeforeAllElse)
{
    const std::string page = HtmlReport(FailedRun());
    const std::string failed = SectionOf(page, "failed");
    EXPECT_LT(page.find("id=\"failed\""), page.find("id=\"heard\""));
    EXPECT_EQ(CountOf(failed, "<article"), 4U);
    EXPECT_THAT(failed,
                AllOf(HasSubstr("LibVeltoAudioHandler.dll+0x1a2b: access violation"),
                      HasSubstr("fills a table that ends at a guard page"), HasSubstr("entry.table.dmp"),
                      HasSubstr("&quot;speaker1&quot; &amp; &lt;4 bytes&gt;"),
                      HasSubstr("--only arguments.wrong-ids --seed 7")));
    EXPECT_EQ(SectionOf(HtmlReport(PassedRun()), "failed"), "");
}

TEST(HtmlReport, ListsEveryClauseOnceWithItsOutcome)
{
    const std::string clauses = SectionOf(HtmlReport(FailedRun()), "clauses");
    for (const Clause &clause : AllClauses()) {
        EXPECT_EQ(CountOf(clauses, "<td class=\"id\">" + std::string(clause.id) + "</td>"), 1U) << clause.id;
    }
    EXPECT_THAT(clauses, HasSubstr("IDS-2</td><td class=\"state bad\">broken"));
    EXPECT_THAT(clauses, HasSubstr("ENT-2</td><td class=\"state good\">passed"));
    EXPECT_THAT(clauses, HasSubstr("MIC-2</td><td class=\"state off\">skipped"));
    EXPECT_THAT(clauses, HasSubstr("MIC-1</td><td class=\"state off\">not checked"));
    EXPECT_THAT(clauses, HasSubstr("<code>VELTOGetAudioHandler</code>"));
}

TEST(HtmlReport, ShowsWhatWasHeard)
{
    const std::string heard = SectionOf(HtmlReport(FailedRun()), "heard");
    EXPECT_THAT(heard, AllOf(HasSubstr("156 of 160"), HasSubstr("Left was heard on the right"),
                             HasSubstr("152 ms"), HasSubstr("-0.4 dB"), HasSubstr("99.98 %"),
                             HasSubstr("gap at 1.500 s"), HasSubstr("frame 50, late or repeated")));
    EXPECT_EQ(CountOf(heard, "<svg"), 2U);
}

TEST(HtmlReport, SaysThatNothingWasHeard)
{
    const std::string heard = SectionOf(HtmlReport(SilentRun()), "heard");
    EXPECT_THAT(heard, AllOf(HasSubstr("Nothing of the 160 frames that were sent was heard."),
                             Not(HasSubstr("inf")), Not(HasSubstr("<dt>Delay"))));
    EXPECT_EQ(CountOf(heard, "<svg"), 1U);
}

TEST(HtmlReport, DrawsTimesAgainstBudgets)
{
    const std::string times = SectionOf(HtmlReport(PassedRun()), "times");
    EXPECT_THAT(times, AllOf(HasSubstr("WriteStreamBuffer: p50 380 µs, p99 910 µs, budget 21.30 ms"),
                             HasSubstr("CloseAudioTrack: p50 12.0 µs, p99 6.00 ms, budget 5.00 ms")));
    EXPECT_EQ(CountOf(times, "class=\"over\""), 1U); // only CloseAudioTrack exceeds its budget
    EXPECT_EQ(CountOf(times, "class=\"budget\""), 2U);
    EXPECT_THAT(times, HasSubstr("<td>units</td><td class=\"n\">500 units</td>"));
}

TEST(HtmlReport, KeepsTimesOfOneCallInTwoChecksApart)
{
    check::Run run = PassedRun();
    run.results[6].measured = {{"WriteStreamBuffer p50", 1, "ms"}, {"a short read, p50", 2, "ms"}};
    EXPECT_THAT(SectionOf(HtmlReport(run), "times"),
                AllOf(HasSubstr("WriteStreamBuffer (storm.calls): p50 1.00 ms, p99 –"),
                      HasSubstr("a short read: p50 2.00 ms")));
}

TEST(HtmlReport, ListsWarningsSkippedChecksMachineAndFiles)
{
    const std::string page = HtmlReport(PassedRun());
    EXPECT_THAT(SectionOf(page, "warnings"), HasSubstr("longer than a unit lasts"));
    EXPECT_THAT(SectionOf(page, "skipped"), HasSubstr("there is no microphone"));
    EXPECT_THAT(SectionOf(page, "machine"),
                AllOf(HasSubstr("&lt;with&gt; &quot;marks&quot; &amp; signs"), HasSubstr("Wine 8.0"),
                      HasSubstr("console, multimedia"), HasSubstr("44100 Hz")));
    EXPECT_THAT(SectionOf(page, "files"),
                AllOf(HasSubstr("avcodec-59.dll"), HasSubstr(std::string(64, 'b'))));
    EXPECT_THAT(SectionOf(page, "repeat"), AllOf(HasSubstr("--level 8 --seed 18446744073709551615"),
                                                 HasSubstr("check --verify REPORT.json")));
}

TEST(HtmlReport, OfEmptyRunIsComplete)
{
    EXPECT_THAT(HtmlReport(check::Run()),
                AllOf(HasSubstr("unknown module"), HasSubstr("No verdict"), HasSubstr("</html>")));
}

TEST(Pictures, AreEmptyWithoutData)
{
    EXPECT_EQ(EnvelopePicture({}), "");
    EXPECT_EQ(FrameOrderPicture({}), "");
    EXPECT_EQ(SlotTimesPicture({}), "");
}

TEST(Pictures, StayWithinTheirFrameWhateverTheValues)
{
    HeardSound heard;
    heard.seconds = 1;
    heard.envelope = {7.0F, -1.0F, std::numeric_limits<float>::quiet_NaN()};
    heard.gapsAtSeconds = {-5, 99, std::numeric_limits<double>::infinity()};
    const std::string picture = EnvelopePicture(heard);
    EXPECT_THAT(picture, AllOf(HasSubstr("height=\"130.00\""), Not(HasSubstr("nan")), Not(HasSubstr("inf"))));
    EXPECT_EQ(CountOf(picture, "class=\"gap\""), 2U);

    const std::string times = SlotTimesPicture({{"a", 0.0, std::numeric_limits<double>::infinity(), 1e12}});
    EXPECT_THAT(times, AllOf(Not(HasSubstr("nan")), Not(HasSubstr("inf"))));
}

TEST(DurationText, HasFittingUnit)
{
    EXPECT_EQ(DurationText(0.85), "850 ns");
    EXPECT_EQ(DurationText(12.34), "12.3 µs");
    EXPECT_EQ(DurationText(123.4), "123 µs");
    EXPECT_EQ(DurationText(4560), "4.56 ms");
    EXPECT_EQ(DurationText(1200000), "1.20 s");
    EXPECT_EQ(DurationText(std::numeric_limits<double>::quiet_NaN()), "–");
}

} // namespace
} // namespace velto::check
