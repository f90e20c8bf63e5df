#include "check/portable/module_commit.h"

#include <gtest/gtest.h>

namespace velto::check {
namespace {

TEST(ModuleCommit, IsInTheFirstLineOfTheLog)
{
    EXPECT_EQ(
        ModuleCommit("2026-03-07 04:05:06.007 [4711] [info] [Logging] LibVeltoAudioHandler 1.0.0, commit "
                     "0123456789ab, build id 415D, FFmpeg 5.1.9, Windows 10.0.19045\r\nmore\r\n"),
        "0123456789ab");
}

TEST(ModuleCommit, MayEndTheLine)
{
    EXPECT_EQ(ModuleCommit("[Logging] LibVeltoAudioHandler 1, commit ab\r\n, commit cd,"), "ab");
    EXPECT_EQ(ModuleCommit("[Logging] LibVeltoAudioHandler 1, commit ab"), "ab");
}

TEST(ModuleCommit, IsEmptyWithoutLineThatNamesIt)
{
    EXPECT_EQ(ModuleCommit(""), "");
    EXPECT_EQ(ModuleCommit("[OceloMirror] text, commit 0123456789ab, text"), "");
    EXPECT_EQ(ModuleCommit("[Logging] LibVeltoAudioHandler 1.0.0\n[x] a, commit 0123456789ab"), "");
}

} // namespace
} // namespace velto::check
