#include "velto-host/portable/log_line.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velto::host {
namespace {

using testing::ElementsAre;

std::vector<std::string> Split(const std::vector<std::string_view> &blocks)
{
    std::vector<std::string> lines;
    LineSplitter splitter([&](std::string_view line) { lines.emplace_back(line); });
    for (const std::string_view block : blocks) {
        splitter.Add(block);
    }
    splitter.Finish();
    return lines;
}

TEST(LogLine, ReadsPartsOfChannelLine)
{
    const auto line = ParseModuleLogLine(
        "2026-03-07 04:05:06.007 [4711] [error] [OceloMirror] AudioPlayerWas padding = 0 ");
    ASSERT_TRUE(line);
    EXPECT_EQ(DateAndTimeText(line->timeMs), "2026-03-07 04:05:06.007");
    EXPECT_EQ(line->thread, 4711U);
    EXPECT_TRUE(line->isError);
    EXPECT_EQ(line->channel, "OceloMirror");
    EXPECT_EQ(line->message, "AudioPlayerWas padding = 0 ");
    EXPECT_EQ(line->tag, "");
}

TEST(LogLine, SeparatesTagOfProcessWideLogger)
{
    const auto line =
        ParseModuleLogLine("2026-03-07 04:05:06.007 [1] [info] [NR] "
                           "AudioDeviceNotify::UnInitialize()(AudioDeviceNotify::UnInitialize)");
    ASSERT_TRUE(line);
    EXPECT_FALSE(line->isError);
    EXPECT_EQ(line->message, "AudioDeviceNotify::UnInitialize()");
    EXPECT_EQ(line->tag, "AudioDeviceNotify::UnInitialize");
}

TEST(LogLine, SeparatesTagThatHasParentheses)
{
    const auto line = ParseModuleLogLine(
        "2026-03-07 04:05:06.007 [1] [info] [NR] No audio data for 4mins, release audio resource."
        "(`anonymous-namespace'::InitDefaultAudioDevice::<lambda_1>::operator ())");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->message, "No audio data for 4mins, release audio resource.");
    EXPECT_EQ(line->tag, "`anonymous-namespace'::InitDefaultAudioDevice::<lambda_1>::operator ()");
}

TEST(LogLine, KeepsParenthesesOfChannelMessage)
{
    const auto line = ParseModuleLogLine(
        "2026-03-07 04:05:06.007 [1] [info] [OceloMirror] AudioDeviceNotify::UnInitialize()");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->message, "AudioDeviceNotify::UnInitialize()");
}

TEST(LogLine, RefusesLinesOfOtherForm)
{
    for (const char *text :
         {"", " ", "2026-03-07", "2026-03-07 04:05:06.007", "2026-03-07 04:05:06.007 [1] [info] [NR]",
          "2026-13-07 04:05:06.007 [1] [info] [NR] x", "2026-02-30 04:05:06.007 [1] [info] [NR] x",
          "2026-03-07 24:05:06.007 [1] [info] [NR] x", "2026-03-07 04:60:06.007 [1] [info] [NR] x",
          "2026-03-07 04:05:06.07 [1] [info] [NR] x", "2026-03-07 04:05:06,007 [1] [info] [NR] x",
          "2026-03-07 04:05:-6.007 [1] [info] [NR] x", "2026-03-07 04:05:06.007 [x] [info] [NR] x",
          "2026-03-07 04:05:06.007 [4294967296] [info] [NR] x", "2026-03-07 04:05:06.007 [1] [loud] [NR] x",
          "x2026-03-07 04:05:06.007 [1] [info] [NR] x", "2026-03-07 04:05:06.007 1 [info] [NR] x"}) {
        EXPECT_FALSE(ParseModuleLogLine(text)) << text;
    }
}

TEST(LogLine, ShowsTimesBefore1970AndLeapDays)
{
    EXPECT_EQ(DateAndTimeText(-1), "1969-12-31 23:59:59.999");
    const auto line = ParseModuleLogLine("2028-02-29 00:00:00.000 [1] [info] [NR] x");
    ASSERT_TRUE(line);
    EXPECT_EQ(DateAndTimeText(line->timeMs), "2028-02-29 00:00:00.000");
}

TEST(LineSplitter, AcceptsBothLineEndings)
{
    EXPECT_THAT(Split({"a\r\nb\nc\r\n"}), ElementsAre("a", "b", "c"));
}

TEST(LineSplitter, KeepsEmptyLinesAndLastLineWithoutEnding)
{
    EXPECT_THAT(Split({"a\n\nb"}), ElementsAre("a", "", "b"));
    EXPECT_THAT(Split({""}), ElementsAre());
    EXPECT_THAT(Split({"\n"}), ElementsAre(""));
}

TEST(LineSplitter, JoinsLinesAcrossBlocksOfAnySize)
{
    const std::string text = "\xEF\xBB\xBF"
                             "first\r\nsecond\r\nthird";
    for (size_t size = 1; size <= text.size(); ++size) {
        std::vector<std::string_view> blocks;
        for (size_t i = 0; i < text.size(); i += size) {
            blocks.push_back(std::string_view(text).substr(i, size));
        }
        EXPECT_THAT(Split(blocks), ElementsAre("first", "second", "third")) << size;
    }
}

TEST(LineSplitter, CutsLongLines)
{
    const std::string longLine(LineSplitter::longestLine + 5, 'x');
    const auto lines = Split({longLine, longLine, "\nnext"});
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].size(), LineSplitter::longestLine);
    EXPECT_EQ(lines[1], "next");
}

} // namespace
} // namespace velto::host
