// The program's troubleshooting table, and the same table in the guide.
#include "velto-host/portable/troubleshooting.h"

#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velto::host {
namespace {

std::string PageText(const char *name)
{
    std::ifstream file(std::string(VELTO_SOURCE_FOLDER "/docs/") + name, std::ios::binary);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

// The lines of the table that follows this heading.
std::vector<std::string> TableAfter(const std::string &page, const std::string &heading)
{
    std::vector<std::string> lines;
    size_t begin = page.find(heading);
    EXPECT_NE(begin, std::string::npos) << heading;
    begin = page.find('\n', page.find("|---|", begin)) + 1;
    while (page.compare(begin, 1, "|") == 0) {
        const size_t end = page.find('\n', begin);
        lines.push_back(page.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

std::vector<std::string> CodeSpans(const std::string &markdown)
{
    std::vector<std::string> spans;
    const std::regex code("`([^`]*)`");
    for (std::sregex_iterator i(markdown.begin(), markdown.end(), code), end; i != end; ++i) {
        spans.push_back((*i)[1]);
    }
    return spans;
}

// The rows whose messages are those of another row. RowOfMessage returns the other one.
RowId MessageRow(RowId id)
{
    switch (id) {
    case RowId::NO_CUSHION:
        return RowId::CUSHION;
    case RowId::NOT_AAC:
        return RowId::DAMAGED_UNIT;
    case RowId::NOTHING_PLAYED_YET:
        return RowId::UNDERRUN;
    default:
        return id;
    }
}

TEST(Troubleshooting, TableIsThatOfGuide)
{
    std::vector<std::string> expected;
    for (const Row &row : TroubleshootingRows()) {
        expected.push_back("| " + std::string(row.line) + " | " + row.meaning + " |");
    }
    EXPECT_THAT(TableAfter(PageText("integration.md"), "\n## Log\n"), testing::ElementsAreArray(expected));
}

TEST(Troubleshooting, RowsAreInOrderOfTheirIds)
{
    for (size_t i = 0; i < rowCount; ++i) {
        EXPECT_EQ(static_cast<size_t>(TroubleshootingRows()[i].id), i);
        EXPECT_EQ(&RowOf(static_cast<RowId>(i)), &TroubleshootingRows()[i]);
    }
}

TEST(Troubleshooting, NormalRowsBeginWithNormal)
{
    for (const Row &row : TroubleshootingRows()) {
        EXPECT_EQ(row.kind == RowKind::NORMAL, std::string_view(row.meaning).starts_with("*normal*"))
            << row.name;
    }
}

TEST(Troubleshooting, EachTextOfRowMeansThatRow)
{
    for (const Row &row : TroubleshootingRows()) {
        if (row.id == RowId::NO_LOG_FILE || row.id == RowId::SPEAKER_NOT_OPENED) {
            continue; // about a missing line
        }
        const auto texts = CodeSpans(row.line);
        EXPECT_FALSE(texts.empty()) << row.name;
        for (const std::string &text : texts) {
            if (text != "Line:") {
                EXPECT_EQ(RowOfMessage(text), MessageRow(row.id)) << row.name << ": " << text;
            }
        }
    }
}

TEST(Troubleshooting, OtherMessagesHaveNoRow)
{
    for (const char *message :
         {"", "AudioPlayerWas there is no need to close", "VeltoRelease type = 1", "OnDefaultDeviceChanged",
          "AudioPlayerWas OnAudioDeviceChanged failed", "Capture audio frame failed! err=0x88890001",
          "Unable to get padding with -1 padding=0"}) {
        EXPECT_FALSE(RowOfMessage(message)) << message;
    }
}

TEST(Troubleshooting, StepsAreThoseOfContract)
{
    const std::regex entry(R"(\| ([0-9]+(?:, [0-9]+)?) \| ([^|]+?) (?=\|))");
    size_t found = 0;
    for (const std::string &line : TableAfter(PageText("contract.md"), "| Number | Step that failed |")) {
        for (std::sregex_iterator i(line.begin(), line.end(), entry), end; i != end; ++i) {
            const std::string numbers = (*i)[1];
            EXPECT_EQ(StepName(std::stoi(numbers)), (*i)[2].str()) << numbers;
            ++found;
            if (const size_t comma = numbers.find(", "); comma != std::string::npos) {
                EXPECT_EQ(StepName(std::stoi(numbers.substr(comma + 2))), (*i)[2].str()) << numbers;
                ++found;
            }
        }
    }
    EXPECT_EQ(found, 25U);
    EXPECT_EQ(StepName(1), "");
}

TEST(Troubleshooting, PlainTextHasNoMarkdown)
{
    EXPECT_EQ(PlainText("*normal*: see [No sound](#no-sound), `Line:`"), "normal: see No sound, Line:");
    EXPECT_EQ(PlainText("[open](never"), "open");
    EXPECT_EQ(PlainText(""), "");
}

TEST(Troubleshooting, ResultsHaveHexadecimalNumbersAndNames)
{
    EXPECT_EQ(ResultText(static_cast<uint32_t>(-2004287484)), "0x88890004 (AUDCLNT_E_DEVICE_INVALIDATED)");
    EXPECT_EQ(ResultText(0x88890099), "0x88890099");
}

} // namespace
} // namespace velto::host
