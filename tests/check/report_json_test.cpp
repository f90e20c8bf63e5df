#include "check/portable/report_json.h"

#include <cmath>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sample_run.h"

namespace velto::check {
namespace {

using testing::HasSubstr;

// The report without its last member, "measured".
std::string WithoutMeasured(const std::string &report)
{
    const size_t measured = report.find("\n  \"measured\": {");
    return measured == std::string::npos ? throw std::runtime_error("no measured values")
                                         : report.substr(0, measured);
}

std::string Replaced(std::string text, std::string_view old, std::string_view replacement)
{
    const size_t at = text.find(old);
    return at == std::string::npos ? throw std::runtime_error("not found: " + std::string(old))
                                   : text.replace(at, old.size(), replacement);
}

// The text of the error that reading throws; "" if it throws none.
std::string ErrorOf(const std::string &report)
{
    try {
        ReadJsonReport(report);
        return {};
    } catch (const std::runtime_error &error) {
        return error.what();
    }
}

TEST(JsonReport, CanBeReadBack)
{
    for (const check::Run &run : {PassedRun(), FailedRun(), SilentRun()}) {
        const std::string report = JsonReport(run);
        EXPECT_EQ(JsonReport(ReadJsonReport(report)), report);
    }
}

TEST(JsonReport, KeepsEveryMember)
{
    const check::Run run = FailedRun();
    const check::Run read = ReadJsonReport(JsonReport(run));
    EXPECT_EQ(read.seed, 18446744073709551615U);
    EXPECT_EQ(read.level, 8);
    EXPECT_EQ(read.only, run.only);
    EXPECT_EQ(read.listen, run.listen);
    EXPECT_EQ(read.moduleCommit, run.moduleCommit);
    EXPECT_EQ(read.checkerVersion, run.checkerVersion);
    EXPECT_EQ(read.system, run.system);
    EXPECT_EQ(read.processor, run.processor);
    EXPECT_EQ(read.beganAt, run.beganAt);
    EXPECT_EQ(read.seconds, run.seconds);
    ASSERT_EQ(read.files.size(), 2U);
    EXPECT_EQ(read.files[1].name, "avcodec-59.dll");
    EXPECT_EQ(read.files[1].version, "59.37.100");
    EXPECT_EQ(read.files[1].bytes, 7654321U);
    EXPECT_EQ(read.files[1].sha256, std::string(64, 'b'));
    ASSERT_EQ(read.endpoints.size(), 2U);
    EXPECT_EQ(read.endpoints[0].direction, "render");
    EXPECT_EQ(read.endpoints[0].roles, "console, multimedia");
    EXPECT_EQ(read.endpoints[0].mixFormat, "48000 Hz, 2 channels, 32-bit float");
    ASSERT_EQ(read.results.size(), run.results.size());
    const CheckResult &table = read.results[1];
    EXPECT_EQ(table.name, "entry.table");
    EXPECT_EQ(table.level, 1);
    EXPECT_EQ(table.outcome, Outcome::CRASHED);
    EXPECT_EQ(table.clauses, run.results[1].clauses);
    EXPECT_EQ(table.lastStep, run.results[1].lastStep);
    EXPECT_EQ(table.fault, run.results[1].fault);
    EXPECT_EQ(table.dumpFile, run.results[1].dumpFile);
    EXPECT_EQ(table.seconds, run.results[1].seconds);
    const CheckResult &ids = read.results[2];
    ASSERT_EQ(ids.broken.size(), 3U);
    EXPECT_EQ(ids.broken[0].clause, "IDS-2"); // in the order in which they were reported
    EXPECT_EQ(ids.broken[1].text, "a null id\nwas \x01 accepted");
    EXPECT_EQ(ids.repeat, run.results[2].repeat);
    EXPECT_EQ(read.results[3].outcome, Outcome::WARNED);
    EXPECT_EQ(read.results[3].warnings, run.results[3].warnings);
    ASSERT_EQ(read.results[3].measured.size(), 7U);
    EXPECT_EQ(read.results[3].measured[1].name, "WriteStreamBuffer p99");
    EXPECT_EQ(read.results[3].measured[1].value, 0.91);
    EXPECT_EQ(read.results[3].measured[1].unit, "ms");
    EXPECT_EQ(read.results[4].outcome, Outcome::SKIPPED);
    EXPECT_EQ(read.results[4].reason, "there is no microphone");
    ASSERT_TRUE(read.results[5].heard);
    EXPECT_FALSE(read.results[4].heard);
}

TEST(JsonReport, KeepsHeardSound)
{
    const HeardSound sent = *FailedRun().results[5].heard;
    const HeardSound heard = *ReadJsonReport(JsonReport(FailedRun())).results[5].heard;
    EXPECT_EQ(heard.source, sent.source);
    EXPECT_EQ(heard.seconds, sent.seconds);
    EXPECT_EQ(heard.delayMs, sent.delayMs);
    EXPECT_EQ(heard.levelDb, sent.levelDb);
    EXPECT_EQ(heard.speed, sent.speed);
    EXPECT_EQ(heard.framesSent, sent.framesSent);
    EXPECT_EQ(heard.framesHeard, sent.framesHeard);
    EXPECT_EQ(heard.framesMissing, 4U);
    EXPECT_EQ(heard.framesRepeated, 3U);
    EXPECT_EQ(heard.framesOutOfOrder, 2U);
    EXPECT_TRUE(heard.channelsSwapped);
    EXPECT_EQ(heard.gapsAtSeconds, sent.gapsAtSeconds);
    EXPECT_EQ(heard.framesInOrder, sent.framesInOrder);
    EXPECT_THAT(heard.envelope, testing::Pointwise(testing::FloatNear(1e-4F), sent.envelope));
    EXPECT_TRUE(std::isnan(ReadJsonReport(JsonReport(SilentRun())).results[5].heard->levelDb));
}

TEST(JsonReport, DiffersInMeasuredValuesOnly)
{
    const check::Run run = FailedRun();
    check::Run other = run;
    other.beganAt = "2027-01-01T00:00:00Z";
    other.seconds = 99;
    other.system = "Windows 11";
    other.processor = "another";
    other.endpoints.clear();
    for (CheckResult &result : other.results) {
        result.seconds += 1;
        result.fault += "1";
        result.lastStep += "1";
        result.dumpFile += "1";
        result.measured.clear();
        result.heard.reset();
        for (BrokenClause &broken : result.broken) {
            broken.text += " after 17 ms";
        }
    }
    // Threads may report clauses in another order, and a warning may depend on a measured value.
    std::swap(other.results[2].broken[0], other.results[2].broken[1]);
    other.results[3].outcome = Outcome::PASSED;
    other.results[3].warnings.clear();
    EXPECT_NE(JsonReport(other), JsonReport(run));
    EXPECT_EQ(WithoutMeasured(JsonReport(other)), WithoutMeasured(JsonReport(run)));
}

TEST(JsonReport, DiffersOutsideMeasuredValuesWithInputsAndOutcomes)
{
    const std::string report = WithoutMeasured(JsonReport(FailedRun()));
    const auto differs = [&](auto change) {
        check::Run run = FailedRun();
        change(run);
        return WithoutMeasured(JsonReport(run)) != report;
    };
    EXPECT_TRUE(differs([](check::Run &run) { run.seed = 1; }));
    EXPECT_TRUE(differs([](check::Run &run) { run.level = 7; }));
    EXPECT_TRUE(differs([](check::Run &run) { run.only = "IDS-2"; }));
    EXPECT_TRUE(differs([](check::Run &run) { run.listen = true; }));
    EXPECT_TRUE(differs([](check::Run &run) { run.files[0].sha256[0] = 'f'; }));
    EXPECT_TRUE(differs([](check::Run &run) { run.results[0].outcome = Outcome::HUNG; }));
    EXPECT_TRUE(differs([](check::Run &run) {
        run.results[2].broken.pop_back();
        run.results[2].broken.pop_back();
    }));
    EXPECT_TRUE(differs([](check::Run &run) { std::swap(run.results[0], run.results[1]); }));
}

TEST(JsonReport, ListsEachBrokenClauseOnceAndSorted)
{
    const std::string report = WithoutMeasured(JsonReport(FailedRun()));
    EXPECT_THAT(report, HasSubstr("\"broken\": [\n        \"IDS-1\",\n        \"IDS-2\"\n      ]"));
}

TEST(JsonReport, ReplacesBytesThatAreNoUtf8)
{
    check::Run run = PassedRun();
    run.results[3].warnings = {"\xff"};
    EXPECT_EQ(ReadJsonReport(JsonReport(run)).results[3].warnings[0], "\xEF\xBF\xBD");
}

TEST(ReadJsonReport, RefusesWhatIsNoReport)
{
    EXPECT_THAT(ErrorOf(""), HasSubstr("no JSON"));
    EXPECT_THAT(ErrorOf("{\"schema\": "), HasSubstr("no JSON, or incomplete"));
    EXPECT_EQ(ErrorOf("[]"), "this is no report of velto-host check");
    EXPECT_EQ(ErrorOf("{\"schema\": 1}"), "this is no report of velto-host check");
    EXPECT_EQ(ErrorOf("{\"schema\": \"urn:velto:velto-host-play:1\"}"),
              "this is a urn:velto:velto-host-play:1, not a report of velto-host check");
}

TEST(ReadJsonReport, RefusesOtherVersionOfForm)
{
    EXPECT_EQ(ErrorOf(Replaced(JsonReport(PassedRun()), "check:1", "check:2")),
              "the report has version 2 of the form; this program reads version 1");
}

TEST(ReadJsonReport, NamesMissingAndWrongMembers)
{
    EXPECT_THAT(ErrorOf(Replaced(JsonReport(PassedRun()), "\"seed\"", "\"sead\"")), HasSubstr("seed"));
    EXPECT_THAT(ErrorOf(Replaced(JsonReport(PassedRun()), "\"level\": 8", "\"level\": \"8\"")),
                HasSubstr("another type"));
    EXPECT_THAT(ErrorOf(Replaced(JsonReport(PassedRun()), "\"outcome\": \"passed\",\n      \"broken\"",
                                 "\"outcome\": \"fine\",\n      \"broken\"")),
                HasSubstr("unknown outcome \"fine\""));
}

TEST(ReadJsonReport, RefusesSummaryThatContradictsResults)
{
    const std::string report = JsonReport(FailedRun());
    EXPECT_THAT(ErrorOf(Replaced(report, "\"verdict\": \"failed\"", "\"verdict\": \"passed\"")),
                HasSubstr("its verdict is \"passed\""));
    EXPECT_THAT(ErrorOf(Replaced(report, "\"levelReached\": 0", "\"levelReached\": 8")),
                HasSubstr("level 8"));
    EXPECT_THAT(ErrorOf(Replaced(report, "\"broken\": [\n        \"IDS-1\",\n", "\"broken\": [\n")),
                HasSubstr("broken clauses of arguments.wrong-ids"));
    EXPECT_THAT(ErrorOf(Replaced(report, "\"broken\": [\n        \"ENT-3\"\n      ]", "\"broken\": []")),
                HasSubstr("broken clauses of entry.table"));
}

} // namespace
} // namespace velto::check
