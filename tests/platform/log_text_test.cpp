#include "logging/utf8.h"

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace {

using logging::ToLogText;

constexpr std::size_t noLimit = 1000;

TEST(LogText, KeepsPlainText)
{
    EXPECT_EQ(ToLogText(L"VeltoRelease type = 1", noLimit), "VeltoRelease type = 1");
    EXPECT_EQ(ToLogText(L"", noLimit), "");
    EXPECT_EQ(ToLogText(L"C:\\new\\table `anonymous-namespace'::X", noLimit),
              "C:\\new\\table `anonymous-namespace'::X");
}

TEST(LogText, EncodesOneToThreeByteUtf8)
{
    EXPECT_EQ(ToLogText(L"\u007E\u00E4\u07FF\u0800\uFFFD", noLimit),
              "~\xC3\xA4\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBD");
    EXPECT_EQ(ToLogText(L"\u00A0\u00A1\u00B5\uD7FF\uE000", noLimit),
              "\xC2\xA0\xC2\xA1\xC2\xB5\xED\x9F\xBF\xEE\x80\x80");
    EXPECT_EQ(ToLogText(L"Kopfh\u00F6rer \u8033\u673A", noLimit),
              "Kopfh\xC3\xB6rer \xE8\x80\xB3\xE6\x9C\xBA");
}

TEST(LogText, EncodesEmojiAsFourBytes)
{
    EXPECT_EQ(ToLogText(L"a\U0001F3A7b", noLimit), "a\xF0\x9F\x8E\xA7"
                                                   "b");
    EXPECT_EQ(ToLogText(L"\U00010000\U0010FFFF", noLimit), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(LogText, ReplacesLoneSurrogates)
{
    const wchar_t high = 0xD83C;
    const wchar_t low = 0xDFA7;
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(ToLogText(std::wstring{L'a', high}, noLimit), "a" + replacement);
    EXPECT_EQ(ToLogText(std::wstring{high, L'b'}, noLimit), replacement + "b");
    EXPECT_EQ(ToLogText(std::wstring{low, L'c'}, noLimit), replacement + "c");
    EXPECT_EQ(ToLogText(std::wstring{low, high}, noLimit), replacement + replacement);
    EXPECT_EQ(ToLogText(std::wstring{high, high, L'd'}, noLimit), replacement + replacement + "d");
}

TEST(LogText, CombinesPairsOfSurrogates)
{
    const auto pair = [](int high, int low) {
        return ToLogText(std::wstring{static_cast<wchar_t>(high), static_cast<wchar_t>(low), L'x'}, noLimit);
    };
    EXPECT_EQ(pair(0xD800, 0xDC00), "\xF0\x90\x80\x80x");
    EXPECT_EQ(pair(0xD83C, 0xDFA7), "\xF0\x9F\x8E\xA7x");
    EXPECT_EQ(pair(0xDBFF, 0xDFFF), "\xF4\x8F\xBF\xBFx");
}

TEST(LogText, ReplacesFirstAndLastSurrogateOfBothKinds)
{
    for (const int surrogate : {0xD800, 0xDBFF, 0xDC00, 0xDFFF}) {
        const std::wstring text{static_cast<wchar_t>(surrogate)};
        EXPECT_EQ(ToLogText(text, noLimit), "\xEF\xBF\xBD") << surrogate;
    }
    const std::wstring twoLow(2, static_cast<wchar_t>(0xDC00));
    EXPECT_EQ(ToLogText(twoLow, noLimit), "\xEF\xBF\xBD\xEF\xBF\xBD");
    const std::wstring highAndOther{static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0xE000)};
    EXPECT_EQ(ToLogText(highAndOther, noLimit), "\xEF\xBF\xBD\xEE\x80\x80");
}

// AddressSanitizer reports a read past the end.
TEST(LogText, ReadsNothingBehindTextThatEndsWithHighSurrogate)
{
    const std::vector<wchar_t> text{L'a', static_cast<wchar_t>(0xD83C)};
    EXPECT_EQ(ToLogText(std::wstring_view(text.data(), text.size()), noLimit), "a\xEF\xBF\xBD");
}

#ifndef _WIN32
TEST(LogText, ReplacesValuesBeyondUnicode)
{
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(ToLogText(std::wstring{static_cast<wchar_t>(0x110000)}, noLimit), replacement);
    EXPECT_EQ(ToLogText(std::wstring{static_cast<wchar_t>(-1)}, noLimit), replacement);
}
#endif

TEST(LogText, EscapesLineBreaksAndControlCharacters)
{
    EXPECT_EQ(ToLogText(L"a\nb\r\nc\td", noLimit), "a\\nb\\r\\nc\\td");
    EXPECT_EQ(ToLogText(std::wstring_view(L"\0\x1B[31m\x7F\x85", 8), noLimit), "\\x00\\x1B[31m\\x7F\\x85");
    EXPECT_EQ(ToLogText(L"\u2028\u2029", noLimit), "\\u2028\\u2029");
}

TEST(LogText, TruncatesAtCharacterBoundaryWithEllipsis)
{
    const std::string ellipsis = "\xE2\x80\xA6";
    EXPECT_EQ(ToLogText(L"12345", 5), "12345");
    EXPECT_EQ(ToLogText(L"123456", 5), "12345" + ellipsis);
    EXPECT_EQ(ToLogText(L"1234567890", 5), "12345" + ellipsis);
    EXPECT_EQ(ToLogText(L"1234\u00E4", 5), "1234" + ellipsis);
    EXPECT_EQ(ToLogText(L"1234\n", 5), "1234" + ellipsis);
}

} // namespace
