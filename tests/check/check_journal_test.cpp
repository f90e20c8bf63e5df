// The journal of a check's process, also of one that crashed.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>

#include "check/portable/check_journal.h"

namespace velto::check {
namespace {

class CheckJournal : public testing::Test {
protected:
    CheckJournal()
        : m_file(std::filesystem::temp_directory_path() /
                 ("velto-journal-" + std::to_string(testing::UnitTest::GetInstance()->random_seed()) + "-" +
                  testing::UnitTest::GetInstance()->current_test_info()->name()))
    {
        std::filesystem::remove(m_file);
    }
    ~CheckJournal() override { std::filesystem::remove(m_file); }

    std::string Text() const
    {
        std::ifstream stream(m_file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }

    const std::filesystem::path m_file;
};

HeardSound SomeSound()
{
    HeardSound heard;
    heard.source = "loopback of \"Speakers\"";
    heard.seconds = 2.5;
    heard.levelDb = -std::numeric_limits<double>::infinity();
    heard.framesSent = 100;
    heard.framesHeard = 97;
    heard.framesMissing = 3;
    heard.framesRepeated = 2;
    heard.framesOutOfOrder = 1;
    heard.channelsSwapped = true;
    heard.gapsAtSeconds = {0.5, 1.25};
    heard.envelope = {0.0F, 0.5F};
    heard.framesInOrder = {1, 3, 2};
    return heard;
}

TEST_F(CheckJournal, ReturnsWhatWasWritten)
{
    JournalWriter writer(m_file);
    writer.OnBegan();
    writer.OnStep("first", {"ENT-1"});
    writer.OnStep("second \"quoted\"\n", {"ENT-2", "ENT-3"});
    writer.OnFailure("ENT-2", "result 0");
    writer.OnWarning("slow");
    writer.OnMeasured("Open p99", 12.5, "µs");
    writer.OnHeard(SomeSound());
    writer.OnVerdict();
    writer.OnEnd();

    const Journal journal = ReadJournal(m_file);
    EXPECT_TRUE(journal.hasBegun && journal.hasVerdict && journal.hasEnded);
    EXPECT_FALSE(journal.isDamaged || journal.skipped || journal.broken);
    EXPECT_EQ(journal.lastStep, "second \"quoted\"\n");
    EXPECT_EQ(journal.lastStepClauses, (std::vector<std::string>{"ENT-2", "ENT-3"}));
    ASSERT_EQ(journal.failures.size(), 1u);
    EXPECT_EQ(journal.failures[0].clause, "ENT-2");
    EXPECT_EQ(journal.failures[0].text, "result 0");
    EXPECT_EQ(journal.warnings, std::vector<std::string>{"slow"});
    ASSERT_EQ(journal.measured.size(), 1u);
    EXPECT_EQ(journal.measured[0].value, 12.5);
    EXPECT_EQ(journal.measured[0].unit, "µs");
    ASSERT_TRUE(journal.heard);
    EXPECT_EQ(journal.heard->source, "loopback of \"Speakers\"");
    EXPECT_TRUE(std::isnan(journal.heard->levelDb)); // JSON has no infinity
    EXPECT_EQ(journal.heard->seconds, 2.5);
    EXPECT_EQ(journal.heard->framesSent, 100u);
    EXPECT_EQ(journal.heard->framesHeard, 97u);
    EXPECT_EQ(journal.heard->framesMissing, 3u);
    EXPECT_EQ(journal.heard->framesRepeated, 2u);
    EXPECT_EQ(journal.heard->framesOutOfOrder, 1u);
    EXPECT_TRUE(journal.heard->channelsSwapped);
    EXPECT_EQ(journal.heard->gapsAtSeconds, (std::vector<double>{0.5, 1.25}));
    EXPECT_EQ(journal.heard->envelope, (std::vector<float>{0.0F, 0.5F}));
    EXPECT_EQ(journal.heard->framesInOrder, (std::vector<uint32_t>{1, 3, 2}));
}

TEST_F(CheckJournal, HasEachEventInFileBeforeCallReturns)
{
    JournalWriter writer(m_file);
    writer.OnStep("opens", {});
    EXPECT_EQ(ReadJournal(m_file).lastStep, "opens");
    writer.OnSkipped("no microphone");
    EXPECT_EQ(ReadJournal(m_file).skipped, "no microphone");
    writer.OnBroken("out of memory");
    EXPECT_EQ(ReadJournal(m_file).broken, "out of memory");
}

TEST_F(CheckJournal, KeepsEventsBeforeEachPlaceWhereWritingStopped)
{
    JournalWriter writer(m_file);
    writer.OnBegan();
    writer.OnStep("reads", {"MIC-2"});
    const size_t complete = Text().size();
    writer.OnVerdict();
    const std::string text = Text();
    for (size_t length = complete; length < text.size(); ++length) {
        const Journal journal = ParseJournal(text.substr(0, length));
        EXPECT_EQ(journal.lastStep, "reads") << length;
        EXPECT_FALSE(journal.hasVerdict || journal.isDamaged) << length;
    }
    EXPECT_TRUE(ParseJournal(text).hasVerdict);
}

TEST_F(CheckJournal, ReplacesBytesThatAreNoText)
{
    JournalWriter writer(m_file);
    writer.OnWarning("id \xFF\xFE");
    const Journal journal = ReadJournal(m_file);
    EXPECT_FALSE(journal.isDamaged);
    EXPECT_EQ(journal.warnings.size(), 1u);
}

TEST_F(CheckJournal, IsEmptyWithoutFile)
{
    const Journal journal = ReadJournal(m_file);
    EXPECT_FALSE(journal.hasBegun || journal.hasVerdict || journal.isDamaged);
}

TEST_F(CheckJournal, CannotBeWrittenInMissingFolder)
{
    EXPECT_THROW(JournalWriter(m_file / "no-folder" / "file"), std::runtime_error);
}

TEST_F(CheckJournal, ReadsFaultInMiddleOfAnotherLine)
{
    const Journal journal = ParseJournal("{\"event\":\"began\"}\n"
                                         "{\"event\":\"step\",\"te\n"
                                         "{\"event\":\"fault\",\"place\":\"a.dll+0x10: illegal instruction\","
                                         "\"ofModule\":false,\"ofWine\":true}\n"
                                         "\n{\"event\":\"fault stack\",\"ofModule\":true}\n");
    ASSERT_EQ(journal.faults.size(), 1u);
    EXPECT_EQ(journal.faults[0].place, "a.dll+0x10: illegal instruction");
    EXPECT_TRUE(journal.faults[0].isOfModule);
    EXPECT_TRUE(journal.faults[0].isOnStackOnly);
    EXPECT_TRUE(journal.faults[0].isOfWine);
    EXPECT_FALSE(journal.faults[0].isAfterVerdict);
    EXPECT_TRUE(journal.endsWithFault);
    EXPECT_TRUE(journal.isDamaged);
}

TEST_F(CheckJournal, DistinguishesSurvivedFault)
{
    constexpr char fault[] =
        "{\"event\":\"fault\",\"place\":\"a.dll+0x10\",\"ofModule\":true,\"ofWine\":false}\n";
    EXPECT_FALSE(ParseJournal(std::string(fault) + "{\"event\":\"warning\",\"text\":\"\"}\n").endsWithFault);
    const Journal late = ParseJournal(std::string("{\"event\":\"verdict\"}\n") + fault);
    EXPECT_TRUE(late.endsWithFault);
    EXPECT_TRUE(late.faults.at(0).isAfterVerdict);
    EXPECT_FALSE(late.faults.at(0).isAtEnd);
    EXPECT_FALSE(late.faults.at(0).isOnStackOnly);
}

TEST_F(CheckJournal, ReportsDamagedLines)
{
    for (const char *line :
         {"text of a module\n", "{}\n", "{\"event\":\"other\"}\n", "[]\n",
          "{\"event\":\"failure\",\"clause\":\"ENT-1\"}\n", "{\"event\":\"step\",\"text\":1}\n"}) {
        EXPECT_TRUE(ParseJournal(line).isDamaged) << line;
    }
}

} // namespace
} // namespace velto::check
