#include "velto-host/portable/privacy.h"

#include <gtest/gtest.h>

namespace velto::host {
namespace {

const Privacy privacy({"C:\\Users\\Anna\\", "C:\\Users\\AN12~1"}, "Anna", "ANNAS-PC");

TEST(Privacy, ReplacesProfileWithAnyCaseAndSlash)
{
    EXPECT_EQ(privacy.Without("open C:\\Users\\Anna\\AppData\\x.log failed"),
              "open <profile>\\AppData\\x.log failed");
    EXPECT_EQ(privacy.Without("c:/users/ANNA/x"), "<profile>/x");
    EXPECT_EQ(privacy.Without("C:\\Users\\Anna"), "<profile>");
}

TEST(Privacy, ReplacesNamesThatArePartsOfPaths)
{
    EXPECT_EQ(privacy.Without("Z:\\home\\anna\\log"), "Z:\\home\\<user>\\log");
    EXPECT_EQ(privacy.Without("\\\\annas-pc\\share"), "\\\\<computer>\\share");
    EXPECT_EQ(privacy.Without("\"/home/Anna\""), "\"/home/<user>\"");
}

TEST(Privacy, KeepsNamesElsewhereAndLongerNames)
{
    for (const char *text :
         {"anna", "Anna failed", "C:\\Users\\Annabel\\x", "C:\\Annas\\x", "C:\\xAnna\\y", ""}) {
        EXPECT_EQ(privacy.Without(text), text);
    }
}

TEST(Privacy, ReplacesProfileAndNamesBeforePunctuation)
{
    EXPECT_EQ(privacy.Without("in C:\\Users\\Anna."), "in <profile>.");
    EXPECT_EQ(privacy.Without("{C:\\Users\\Anna}"), "{<profile>}");
    EXPECT_EQ(privacy.Without("C:\\Users\\Anna.OFFICE\\x"), "<profile>.OFFICE\\x");
    EXPECT_EQ(privacy.Without("D:\\logs\\anna.log"), "D:\\logs\\<user>.log");
    EXPECT_EQ(privacy.Without("\\\\annas-pc.example.org\\share"), "\\\\<computer>.example.org\\share");
}

TEST(Privacy, ReplacesShortFormOfProfile)
{
    EXPECT_EQ(privacy.Without("C:\\Users\\AN12~1\\AppData"), "<profile>\\AppData");
    EXPECT_EQ(privacy.Without("C:\\Users\\AN12~10\\AppData"), "C:\\Users\\AN12~10\\AppData");
}

TEST(Privacy, NameOfUsersFolderCountsAsUser)
{
    const Privacy other({"C:\\Users\\annam"}, "anna.miller", "");
    EXPECT_EQ(other.Without("D:\\backup\\annam\\x"), "D:\\backup\\<user>\\x");
    EXPECT_EQ(other.Without("D:\\anna.miller\\x"), "D:\\<user>\\x");
}

TEST(Privacy, PathCanBeginWithName)
{
    EXPECT_EQ(privacy.PathWithout("anna\\x.log"), "<user>\\x.log");
    EXPECT_EQ(privacy.PathWithout("anna.log"), "<user>.log");
    EXPECT_EQ(privacy.PathWithout("C:\\Users\\Anna"), "<profile>");
    EXPECT_EQ(privacy.PathWithout(""), "");
}

TEST(Privacy, WithoutNamesChangesNothing)
{
    const Privacy nobody({"", ""}, "", "");
    EXPECT_EQ(nobody.Without("C:\\Users\\Anna\\x \\\\"), "C:\\Users\\Anna\\x \\\\");
    EXPECT_EQ(Privacy({"\\"}, "", "").Without("\\a\\"), "\\a\\");
}

} // namespace
} // namespace velto::host
