#include "velto-host/portable/privacy.h"

#include <gtest/gtest.h>

namespace velto::host {
namespace {

const Privacy privacy("C:\\Users\\Anna\\", "Anna", "ANNAS-PC");

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

TEST(Privacy, WithoutNamesChangesNothing)
{
    const Privacy nobody("", "", "");
    EXPECT_EQ(nobody.Without("C:\\Users\\Anna\\x \\\\"), "C:\\Users\\Anna\\x \\\\");
    EXPECT_EQ(Privacy("\\", "", "").Without("\\a\\"), "\\a\\");
}

} // namespace
} // namespace velto::host
