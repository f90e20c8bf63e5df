// Arguments in a command line of Windows.
#include <gtest/gtest.h>

#include "check/portable/windows_arguments.h"

namespace velto::check {
namespace {

TEST(WindowsArguments, LeavesSimpleArgumentsAsTheyAre)
{
    EXPECT_EQ(CommandLineOf({"velto-host", "check", "--only", "ENT-1"}), "velto-host check --only ENT-1");
    EXPECT_EQ(CommandLineOf({R"(C:\module.dll)"}), R"(C:\module.dll)");
}

TEST(WindowsArguments, QuotesSpacesAndEmptyArguments)
{
    EXPECT_EQ(CommandLineOf({"a b", "", "c"}), R"("a b" "" c)");
    EXPECT_EQ(CommandLineOf({"a&b"}), R"("a&b")");
}

TEST(WindowsArguments, DoublesBackslashesInFrontOfQuotationMarksOnly)
{
    EXPECT_EQ(CommandLineOf({R"(C:\a b\c)"}), R"("C:\a b\c")");
    EXPECT_EQ(CommandLineOf({R"(C:\a b\)"}), R"("C:\a b\\")");
    EXPECT_EQ(CommandLineOf({R"(a\"b)"}), R"("a\\\"b")");
}

} // namespace
} // namespace velto::check
