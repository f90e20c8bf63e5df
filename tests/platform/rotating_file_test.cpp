#include "logging/rotating_file.h"

#include <chrono>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "tests/platform/fake_clock.h"
#include "tests/platform/process.h"
#include "tests/platform/test_folder.h"
#include "tests/platform/threads.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace fs = std::filesystem;

namespace {

using logging::RotatingFile;
using std::chrono::milliseconds;

constexpr milliseconds noPause{0};

std::string Line(int number)
{
    std::string digits = std::to_string(number);
    return "line " + std::string(5 - digits.size(), '0') + digits + "\n"; // 11 bytes
}

TEST(RotatingFile, CreatesFoldersOnFirstLine)
{
    const fs::path path = FreshPath("a") / "b" / "c.log";
    RotatingFile file(path, 1000, 2, noPause);
    EXPECT_FALSE(fs::exists(path.parent_path()));
    EXPECT_TRUE(file.Append(Line(1)));
    EXPECT_EQ(ReadLines(path), std::vector<std::string>{"line 00001"});
}

TEST(RotatingFile, AppendsToExistingFile)
{
    const fs::path path = FreshPath("append.log");
    EXPECT_TRUE(RotatingFile(path, 1000, 2, noPause).Append(Line(1)));
    EXPECT_TRUE(RotatingFile(path, 1000, 2, noPause).Append(Line(2)));
    EXPECT_EQ(ReadLines(path), (std::vector<std::string>{"line 00001", "line 00002"}));
}

TEST(RotatingFile, KeepsNewestLinesWithinSizeLimit)
{
    const fs::path path = FreshPath("bound.log");
    RotatingFile file(path, 55, 2, noPause); // five lines
    for (int number = 0; number < 103; ++number) {
        ASSERT_TRUE(file.Append(Line(number)));
        ASSERT_LE(fs::file_size(path), 55U);
    }
    EXPECT_EQ(ReadLines(path), (std::vector<std::string>{"line 00100", "line 00101", "line 00102"}));
    EXPECT_EQ(ReadLines(OldPath(path, 1)).front(), "line 00095");
    EXPECT_EQ(ReadLines(OldPath(path, 1)).back(), "line 00099");
    EXPECT_EQ(ReadLines(OldPath(path, 2)).front(), "line 00090");
    EXPECT_FALSE(fs::exists(OldPath(path, 3)));
}

TEST(RotatingFile, BeginsEachFileWithFirstLineWithinSizeLimit)
{
    const fs::path path = FreshPath("begun.log");
    RotatingFile file(path, 55, 2, noPause); // five lines
    file.BeginWith([] { return std::string("the first\n"); });
    for (int number = 0; number < 10; ++number) {
        ASSERT_TRUE(file.Append(Line(number)));
        ASSERT_LE(fs::file_size(path), 55U);
    }
    EXPECT_EQ(ReadLines(path), (std::vector<std::string>{"the first", "line 00008", "line 00009"}));
    EXPECT_EQ(ReadLines(OldPath(path, 1)).front(), "the first");
    EXPECT_EQ(ReadLines(OldPath(path, 2)), (std::vector<std::string>{"the first", "line 00000", "line 00001",
                                                                     "line 00002", "line 00003"}));
}

TEST(RotatingFile, WritesFirstLineIntoExistingFileOnce)
{
    const fs::path path = FreshPath("continued.log");
    for (int process = 0; process < 2; ++process) {
        RotatingFile file(path, 1000, 2, noPause);
        file.BeginWith([] { return std::string("the first\n"); });
        ASSERT_TRUE(file.Append(Line(2 * process)));
        ASSERT_TRUE(file.Append(Line(2 * process + 1)));
    }
    EXPECT_EQ(ReadLines(path), (std::vector<std::string>{"the first", "line 00000", "line 00001", "the first",
                                                         "line 00002", "line 00003"}));
}

// Nothing can be written to the path until it is removed. Then another process writes first.
void ExpectFirstLineAfterObstacle(const fs::path &path)
{
    RotatingFile file(path, 1000, 2, noPause);
    file.BeginWith([] { return std::string("the first\n"); });
    EXPECT_FALSE(file.Append(Line(0)));
    fs::remove(path);
    ASSERT_TRUE(RotatingFile(path, 1000, 2, noPause).Append(Line(1))); // as another process
    EXPECT_TRUE(file.Append(Line(2)));
    EXPECT_EQ(ReadLines(path), (std::vector<std::string>{"line 00001", "the first", "line 00002"}));
}

TEST(RotatingFile, WritesFirstLineOnceFileCanBeOpened)
{
    const fs::path path = FreshPath("later.log");
    fs::create_directories(path); // a folder has the file's name
    ExpectFirstLineAfterObstacle(path);
}

TEST(RotatingFile, LeaksNoHandlesOverManyRotations)
{
    RotatingFile file(FreshPath("handles.log"), 11, 2, noPause); // one line
    ASSERT_TRUE(file.Append(Line(0)));
    const std::size_t before = OpenHandles();
    for (int number = 1; number < 50; ++number) {
        ASSERT_TRUE(file.Append(Line(number)));
    }
    EXPECT_LT(OpenHandles(), before + 10);
}

TEST(RotatingFile, ClosesFileWhenDestroyed)
{
    const fs::path path = FreshPath("destroyed.log");
    EXPECT_TRUE(RotatingFile(path, 1000, 2, noPause).Append(Line(1)));
    const std::size_t before = OpenHandles();
    EXPECT_TRUE(RotatingFile(path, 1000, 2, noPause).Append(Line(2)));
    EXPECT_EQ(OpenHandles(), before);
}

TEST(RotatingFile, KeepsFileOpenBetweenLines)
{
    const fs::path path = FreshPath("kept.log");
    RotatingFile file(path, 1000, 2, noPause);
    ASSERT_TRUE(file.Append(Line(1)));
    fs::rename(path, OldPath(path, 1)); // as another process that rotates the file
    ASSERT_TRUE(file.Append(Line(2)));
    EXPECT_EQ(ReadLines(OldPath(path, 1)), (std::vector<std::string>{"line 00001", "line 00002"}));
    EXPECT_FALSE(fs::exists(path));
}

TEST(RotatingFile, WritesLineAboveLimitOnlyIntoEmptyFile)
{
    const fs::path path = FreshPath("long.log");
    RotatingFile file(path, 5, 2, noPause);
    ASSERT_TRUE(file.Append(Line(1)));
    ASSERT_TRUE(file.Append(Line(2)));
    EXPECT_EQ(ReadLines(path), std::vector<std::string>{"line 00002"});
    EXPECT_EQ(ReadLines(OldPath(path, 1)), std::vector<std::string>{"line 00001"});
    fs::resize_file(path, 1);
    ASSERT_TRUE(file.Append(Line(3)));
    EXPECT_EQ(ReadLines(path), std::vector<std::string>{"line 00003"});
}

TEST(RotatingFile, EmptiesFullFileThatCannotBeRenamed)
{
    const fs::path path = FreshPath("fixed.log");
    fs::create_directories(OldPath(path, 1)); // a folder has the old file's name
    RotatingFile file(path, 22, 1, noPause);
    for (int number = 0; number < 5; ++number) {
        ASSERT_TRUE(file.Append(Line(number)));
    }
    EXPECT_EQ(ReadLines(path), std::vector<std::string>{"line 00004"});
}

TEST(RotatingFile, FailsWhenPathOfFullFileBecameFolder)
{
    const fs::path path = FreshPath("full.log");
    RotatingFile file(path, 11, 2, noPause);
    ASSERT_TRUE(file.Append(Line(1)));
    fs::rename(path, OldPath(path, 1));
    fs::create_directories(path);
    EXPECT_FALSE(file.Append(Line(2)));
    EXPECT_EQ(ReadLines(OldPath(path, 1)), std::vector<std::string>{"line 00001"});
}

#ifndef _WIN32
TEST(RotatingFile, ClosesFileThatCannotBeWritten)
{
    RotatingFile file("/dev/full", 1000, 2, noPause);
    const std::size_t before = OpenHandles();
    EXPECT_FALSE(file.Append(Line(1)));
    EXPECT_EQ(OpenHandles(), before);
}

TEST(RotatingFile, RetriesFirstLineAfterFullDisk)
{
    const fs::path path = FreshPath("disk.log");
    fs::create_symlink("/dev/full", path);
    ExpectFirstLineAfterObstacle(path);
}

// A file in memory that can neither be renamed nor shortened.
TEST(RotatingFile, WritesNothingIntoFullFileThatCannotBeEmptied)
{
    const int memory = memfd_create("full", MFD_ALLOW_SEALING | MFD_CLOEXEC);
    ASSERT_EQ(write(memory, "0123456789", 10), 10);
    ASSERT_EQ(fcntl(memory, F_ADD_SEALS, F_SEAL_SHRINK), 0);
    const fs::path path = fs::path("/proc/self/fd") / std::to_string(memory);
    EXPECT_FALSE(RotatingFile(path, 20, 1, noPause).Append(Line(1)));
    EXPECT_EQ(fs::file_size(path), 10U);
    close(memory);
}
#endif

TEST(AppendFile, IsNotOpenAfterClose)
{
    logging::AppendFile file;
    EXPECT_FALSE(file.IsOpen());
    ASSERT_TRUE(file.Open(FreshPath("closed.log")));
    EXPECT_TRUE(file.IsOpen());
    file.Close();
    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(file.Append(Line(1)));
}

TEST(RotatingFile, EmptiesFullFileWhenNoOldFilesAreKept)
{
    const fs::path path = FreshPath("single.log");
    RotatingFile file(path, 22, 0, noPause);
    for (int number = 0; number < 5; ++number) {
        ASSERT_TRUE(file.Append(Line(number)));
    }
    EXPECT_EQ(ReadLines(path), std::vector<std::string>{"line 00004"});
    EXPECT_FALSE(fs::exists(OldPath(path, 1)));
}

TEST(RotatingFile, RotatesFileOfTwoWritersOnceAndLosesNoLine)
{
    const fs::path path = FreshPath("two.log");
    RotatingFile first(path, 110, 20, noPause); // ten lines
    RotatingFile second(path, 110, 20, noPause);
    for (int number = 0; number < 100; ++number) {
        ASSERT_TRUE((number % 2 == 0 ? first : second).Append(Line(number)));
    }
    std::set<std::string> seen;
    for (int age = 0; age <= 9; ++age) {
        const std::vector<std::string> lines = ReadLines(age == 0 ? path : OldPath(path, age));
        EXPECT_EQ(lines.size(), 10U) << "generation " << age;
        seen.insert(lines.begin(), lines.end());
    }
    EXPECT_FALSE(fs::exists(OldPath(path, 10)));
    ASSERT_EQ(seen.size(), 100U);
    EXPECT_EQ(*seen.begin(), "line 00000");
    EXPECT_EQ(*seen.rbegin(), "line 00099");
}

// Not under Wine, which appends in two steps: it reads the file's size, and then writes there.
#ifndef _WIN32
TEST(RotatingFile, KeepsLinesOfSeveralWritersWhole)
{
    const fs::path path = FreshPath("threads.log");
    constexpr int writers = 4;
    constexpr int linesEach = 200;
    RunOnThreads(writers, [&path](int writer) {
        RotatingFile file(path, 1100, 3, noPause);
        for (int number = 0; number < linesEach; ++number) {
            file.Append(Line(writer * linesEach + number));
        }
    });
    int lines = 0;
    for (int age = 0; age <= 3; ++age) {
        const fs::path generation = age == 0 ? path : OldPath(path, age);
        for (const std::string &line : ReadLines(generation)) {
            EXPECT_EQ(line.size(), 10U) << line;
            EXPECT_EQ(line.substr(0, 5), "line ") << line;
            ++lines;
        }
    }
    EXPECT_GT(lines, 0);
}
#endif

#ifndef _WIN32 // Wine keeps writing to the removed file until its last handle is closed
TEST(RotatingFile, RecreatesFileRemovedWhileOpen)
{
    const fs::path path = FreshPath("removed.log");
    RotatingFile file(path, 1000, 2, noPause);
    EXPECT_TRUE(file.Append(Line(1)));
    EXPECT_TRUE(fs::remove(path));
    EXPECT_TRUE(file.Append(Line(2)));
    EXPECT_EQ(ReadLines(path), std::vector<std::string>{"line 00002"});
}

TEST(RotatingFile, BeginsFileRecreatedAfterRemovalWithFirstLine)
{
    const fs::path path = FreshPath("removed.log");
    RotatingFile file(path, 1000, 2, noPause);
    file.BeginWith([] { return std::string("the first\n"); });
    EXPECT_TRUE(file.Append(Line(1)));
    EXPECT_TRUE(fs::remove(path));
    EXPECT_TRUE(file.Append(Line(2)));
    EXPECT_EQ(ReadLines(path), (std::vector<std::string>{"the first", "line 00002"}));
}
#endif

TEST(RotatingFile, WritesNothingToEmptyPath)
{
    RotatingFile file({}, 1000, 2, noPause);
    EXPECT_FALSE(file.Append(Line(1)));
}

TEST(RotatingFile, FailsUntilPathCanBeOpened)
{
    const fs::path path = FreshPath("folder.log");
    fs::create_directories(path); // a folder has the file's name
    RotatingFile file(path, 1000, 2, noPause);
    EXPECT_FALSE(file.Append(Line(1)));
    fs::remove(path);
    EXPECT_TRUE(file.Append(Line(2)));
    EXPECT_EQ(ReadLines(path), std::vector<std::string>{"line 00002"});
}

TEST(RotatingFile, FailsWithoutThrowingWhenParentIsFile)
{
    const fs::path parent = FreshPath("parent");
    ASSERT_TRUE(RotatingFile(parent, 1000, 2, noPause).Append("x\n"));
    RotatingFile file(parent / "child.log", 1000, 2, noPause);
    EXPECT_NO_THROW(EXPECT_FALSE(file.Append(Line(1))));
}

TEST(RotatingFile, RetriesFailedFileAfterPause)
{
    const fs::path path = FreshPath("pause.log");
    fs::create_directories(path);
    RotatingFile file(path, 1000, 2, milliseconds{300}, FakeClock::Now);
    EXPECT_FALSE(file.Append(Line(1)));
    fs::remove(path);
    FakeClock::Advance(milliseconds{299});
    EXPECT_FALSE(file.Append(Line(2)));
    EXPECT_FALSE(fs::exists(path));
    FakeClock::Advance(milliseconds{1});
    EXPECT_TRUE(file.Append(Line(3)));
    EXPECT_EQ(ReadLines(path), std::vector<std::string>{"line 00003"});
}

#ifdef _WIN32
TEST(RotatingFile, EmptiesFileWhenViewerBlocksRename)
{
    const fs::path path = FreshPath("viewed.log");
    RotatingFile file(path, 55, 2, noPause);
    ASSERT_TRUE(file.Append(Line(0)));
    // Opens the file as a viewer does that allows other programs to write to the file but not to rename it.
    const HANDLE viewer = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(viewer, INVALID_HANDLE_VALUE);
    for (int number = 1; number < 30; ++number) {
        ASSERT_TRUE(file.Append(Line(number)));
        ASSERT_LE(fs::file_size(path), 55U);
    }
    EXPECT_EQ(ReadLines(path).back(), "line 00029");
    EXPECT_FALSE(fs::exists(OldPath(path, 1)));
    CloseHandle(viewer);
    for (int number = 30; number < 36; ++number) {
        ASSERT_TRUE(file.Append(Line(number)));
    }
    EXPECT_EQ(ReadLines(OldPath(path, 1)).back(), "line 00034")
        << "rotation renames again once the viewer has closed the file";
}
#endif

} // namespace
