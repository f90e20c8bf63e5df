// Logger and NrLogger as the module uses them, also while the process ends.
#include "logging/logger.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "logging/first_line.h"
#include "logging/last_error.h"
#include "tests/platform/process.h"
#include "tests/platform/process_end_fake.h"
#include "tests/platform/test_folder.h"
#include "tests/platform/threads.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

std::wstringstream Text(const wchar_t *text)
{
    std::wstringstream stream;
    stream << text;
    return stream;
}

// Logs from a destructor that runs after those of all other static objects, and then calls `afterLast`.
class LogsAfterAllDestructors {
public:
    ~LogsAfterAllDestructors()
    {
        if (logger != nullptr) {
            logger->Log(LOG_LEVEL_INFO, Text(L"after all destructors"));
            auto stream = Text(L"after all destructors");
            NrLogger::GetInstance().Log(LOG_LEVEL_INFO, stream);
        }
        if (afterLast != nullptr) {
            afterLast();
        }
    }
    static inline Logger *logger = nullptr;
    static inline void (*afterLast)() = nullptr;
};
__attribute__((init_priority(101))) LogsAfterAllDestructors last; // constructed first, destroyed last

Logger &StaticLogger()
{
    static Logger logger("Late");
    return logger;
}

TEST(Logger, WritesItsChannelAndLeavesStreamUnchanged)
{
    Logger logger("OceloMirror");
    std::wstringstream stream = Text(L"Kopfh\u00F6rer \U0001F3A7 ");
    stream << 42;
    logger.Log(LOG_LEVEL_ERROR, stream);
    stream << L"(" << "Some::Tag" << L")";
    NrLogger::GetInstance().Log(LOG_LEVEL_ERROR, stream);
    EXPECT_EQ(CountLinesWith(SharedLogFile(), "[error] [OceloMirror] Kopfh\xC3\xB6rer \xF0\x9F\x8E\xA7 42"),
              1);
    EXPECT_EQ(CountLinesWith(SharedLogFile(), "[error] [NR] Kopfh\xC3\xB6rer \xF0\x9F\x8E\xA7 42(Some::Tag)"),
              1);
    EXPECT_EQ(stream.str(), L"Kopfh\u00F6rer \U0001F3A7 42(Some::Tag)");
}

TEST(Logger, WritesMessageWithLineBreaksAsOneLine)
{
    Logger("OceloMirror").Log(LOG_LEVEL_INFO, Text(L"not the first line"));
    const std::size_t before = ReadLines(SharedLogFile()).size();
    Logger("OceloMirror")
        .Log(LOG_LEVEL_INFO, Text(L"first\r\n2024-01-01 00:00:00.000 [1] [error] [NR] second"));
    EXPECT_EQ(ReadLines(SharedLogFile()).size(), before + 1);
}

TEST(Logger, WritesEmptyMessageAsLine)
{
    Logger("Empty").Log(LOG_LEVEL_INFO, std::wstringstream());
    EXPECT_EQ(CountLinesWith(SharedLogFile(), "[Empty] "), 1);
}

TEST(Logger, TruncatesLongNamesAndMessages)
{
    Logger(std::string(200, 'n')).Log(LOG_LEVEL_INFO, Text(std::wstring(100000, L'm').c_str()));
    const std::string name = "[" + std::string(63, 'n') + "] ";
    EXPECT_EQ(CountLinesWith(SharedLogFile(), name + std::string(8192, 'm') + "\xE2\x80\xA6"), 1);
}

TEST(Logger, ReturnsSameNrLoggerOnEveryThread)
{
    NrLogger *seen = nullptr;
    std::thread([&seen] { seen = &NrLogger::GetInstance(); }).join();
    EXPECT_EQ(seen, &NrLogger::GetInstance());
}

TEST(Logger, PreservesErrorCodeOfThread)
{
    Logger logger("Error");
    errno = 4711;
#ifdef _WIN32
    SetLastError(1168);
#endif
    logger.Log(LOG_LEVEL_ERROR, Text(L"err="));
#ifdef _WIN32
    EXPECT_EQ(GetLastError(), 1168U);
#endif
    EXPECT_EQ(errno, 4711);
}

TEST(KeepLastError, RestoresErrorCodesAtEndOfScope)
{
    errno = 4711;
#ifdef _WIN32
    SetLastError(1168);
#endif
    {
        const logging::KeepLastError keepLastError;
        errno = 5;
#ifdef _WIN32
        SetLastError(5);
#endif
    }
#ifdef _WIN32
    EXPECT_EQ(GetLastError(), 1168U);
#endif
    EXPECT_EQ(errno, 4711);
}

TEST(Logger, WritesEveryLineWholeFromEightThreads)
{
    constexpr int threadCount = 8;
    constexpr int linesEach = 1000;
    RunOnThreads(threadCount, [](int thread) {
        Logger logger("Threads");
        for (int line = 0; line < linesEach; ++line) {
            std::wstringstream stream;
            stream << L"thread " << thread << L" line " << line << L" end";
            logger.Log(LOG_LEVEL_INFO, stream);
        }
    });
    const std::string beforeMessage = "[info] [Threads] ";
    std::set<std::string> seen;
    for (const std::string &line : ReadLines(SharedLogFile())) {
        if (line.find("Threads") != std::string::npos) {
            const std::string rest = AfterTimeAndThread(line);
            ASSERT_EQ(rest.substr(0, beforeMessage.size()), beforeMessage) << line;
            seen.insert(rest.substr(beforeMessage.size()));
        }
    }
    std::set<std::string> written;
    for (int line = 0; line < threadCount * linesEach; ++line) {
        written.insert("thread " + std::to_string(line / linesEach) + " line " +
                       std::to_string(line % linesEach) + " end");
    }
    EXPECT_TRUE(seen == written) << seen.size() << " different lines";
}

TEST(Logger, WritesUnknownLevelAsError)
{
    Logger("Unknown").Log(static_cast<LOG_MESSAGE_LEVEL>(7), Text(L"level seven"));
    EXPECT_EQ(CountLinesWith(SharedLogFile(), "[error] [Unknown] level seven"), 1);
}

// Makes death tests start a new process instead of forking, so that the child has not logged yet.
class StartNewProcesses {
public:
    StartNewProcesses() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    ~StartNewProcesses() { GTEST_FLAG_SET(death_test_style, m_previous); }
    StartNewProcesses(const StartNewProcesses &) = delete;
    StartNewProcesses &operator=(const StartNewProcesses &) = delete;

private:
    const std::string m_previous = GTEST_FLAG_GET(death_test_style);
};

TEST(LoggerDeathTest, ReportsInvalidLevelAndLogsEverything)
{
    const StartNewProcesses startNewProcesses;
    EXPECT_EXIT(
        {
            SetEnvironment("VELTO_LOG_LEVEL", "loud");
            Logger("Loud").Log(LOG_LEVEL_TRACE, Text(L"all of it"));
            std::exit(7);
        },
        testing::ExitedWithCode(7), "");
    EXPECT_EQ(CountLinesWith(SharedLogFile(), "[error] [Logging] VELTO_LOG_LEVEL is none of"), 1);
    EXPECT_EQ(CountLinesWith(SharedLogFile(), "[trace] [Loud] all of it"), 1);
}

TEST(LoggerDeathTest, BeginsWithVersionsOncePerProcess)
{
    const StartNewProcesses startNewProcesses;
    const std::filesystem::path path = TestFolder() / "versions.log"; // the same in all processes
    for (int process = 0; process < 2; ++process) {
        EXPECT_EXIT(
            {
                SetEnvironment("VELTO_LOG_FILE", path);
                Logger("First").Log(LOG_LEVEL_ERROR, Text(L"one"));
                Logger("Second").Log(LOG_LEVEL_INFO, Text(L"two"));
                std::exit(7);
            },
            testing::ExitedWithCode(7), "");
    }
    const std::vector<std::string> lines = ReadLines(path);
    ASSERT_EQ(lines.size(), 6U);
    for (const std::size_t first : {0U, 3U}) {
        EXPECT_EQ(AfterTimeAndThread(lines[first]), "[info] [Logging] " + logging::FirstLine());
        EXPECT_EQ(AfterTimeAndThread(lines[first + 1]), "[error] [First] one");
        EXPECT_EQ(AfterTimeAndThread(lines[first + 2]), "[info] [Second] two");
    }
}

TEST(LoggerDeathTest, RotatesFileAtFiveMebibytes)
{
    const StartNewProcesses startNewProcesses;
    const std::filesystem::path path = TestFolder() / "running.log"; // the same in both processes
    EXPECT_EXIT(
        {
            std::ofstream{path};
            std::filesystem::resize_file(path, 5242880 - 1000);
            SetEnvironment("VELTO_LOG_FILE", path);
            Logger logger("Running");
            logger.Log(LOG_LEVEL_INFO, Text(L"room for this"));
            std::filesystem::resize_file(path, 5242880 - 1);
            logger.Log(LOG_LEVEL_INFO, Text(L"no room for this"));
            std::exit(7);
        },
        testing::ExitedWithCode(7), "");
    EXPECT_EQ(std::filesystem::file_size(OldPath(path, 1)), 5242880U - 1);
    EXPECT_EQ(CountLinesWith(OldPath(path, 1), "[Running] room for this"), 1);
    const std::vector<std::string> lines = ReadLines(path);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(AfterTimeAndThread(lines[0]), "[info] [Logging] " + logging::FirstLine());
    EXPECT_EQ(AfterTimeAndThread(lines[1]), "[info] [Running] no room for this");
}

TEST(LoggerDeathTest, WritesLinesAfterStaticDestruction)
{
    const int before = CountLinesWith(SharedLogFile(), "after all destructors");
    EXPECT_EXIT(
        {
            StaticLogger().Log(LOG_LEVEL_INFO, Text(L"before exit"));
            LogsAfterAllDestructors::logger = &StaticLogger();
            std::exit(7);
        },
        testing::ExitedWithCode(7), "");
    EXPECT_EQ(CountLinesWith(SharedLogFile(), "after all destructors"), before + 2);
    EXPECT_EQ(CountLinesWith(SharedLogFile(), "[Late] after all destructors"), 1);
}

#ifndef _WIN32
// How many descriptors of this process refer to a file.
std::size_t DescriptorsOf(const std::filesystem::path &path)
{
    std::size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored; // the iterator's own descriptor may be gone
        count += std::filesystem::read_symlink(entry.path(), ignored) == path ? 1 : 0;
    }
    return count;
}

// Ends the process with the number of descriptors that refer to the log file.
void ExitWithDescriptorsOfLog()
{
    _exit(static_cast<int>(DescriptorsOf(GetEnvironment("VELTO_LOG_FILE"))));
}

void LogAndExit()
{
    static Logger logger("Exit");
    logger.Log(LOG_LEVEL_INFO, Text(L"before exit"));
    LogsAfterAllDestructors::logger = &logger;
    LogsAfterAllDestructors::afterLast = ExitWithDescriptorsOfLog;
    std::exit(99);
}

TEST(LoggerDeathTest, ClosesFileAfterEachLineOnceDestroyed)
{
    const StartNewProcesses startNewProcesses;
    EXPECT_EXIT(LogAndExit(), testing::ExitedWithCode(0), "");
}

// The system closes the file. The sinks may be inconsistent, because a thread was killed while it used them.
TEST(LoggerDeathTest, LeavesFileOpenAtProcessEnd)
{
    const StartNewProcesses startNewProcesses;
    EXPECT_EXIT(
        {
            Logger("Exit").Log(LOG_LEVEL_INFO, Text(L"opens the file"));
            PretendThatProcessEnds();
            LogAndExit();
        },
        testing::ExitedWithCode(1), "");
}

// Starts a thread that owns the log's lock until this process ends, because it writes to a full pipe. False
// on a failure.
bool BlockThreadInLog(const std::filesystem::path &path)
{
    if (mkfifo(path.c_str(), 0600) != 0) {
        return false;
    }
    const int pipe = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    const std::string filling(65536, ' ');
    while (write(pipe, filling.data(), filling.size()) > 0) {
    }
    while (write(pipe, filling.data(), 1) > 0) {
    }
    SetEnvironment("VELTO_LOG_FILE", path);
    std::thread([] { Logger("Blocked").Log(LOG_LEVEL_INFO, Text(L"never written")); }).detach();
    // The thread opens the pipe after it has locked the log.
    for (int tries = 0; DescriptorsOf(path) < 2; ++tries) {
        if (tries == 1000) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// True if a call of the log returns within ten seconds.
bool LogReturns()
{
    auto returned = std::make_shared<std::promise<void>>();
    std::future<void> finished = returned->get_future();
    std::thread([returned] {
        Logger("Last").Log(LOG_LEVEL_INFO, Text(L"dropped"));
        returned->set_value();
    }).detach();
    return finished.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
}

TEST(LoggerDeathTest, DropsLineAtProcessEndWhenKilledThreadOwnsLock)
{
    const StartNewProcesses startNewProcesses;
    EXPECT_EXIT(
        {
            const bool isBlocked = BlockThreadInLog(TestFolder() / "full.log");
            PretendThatProcessEnds();
            _exit(isBlocked && LogReturns() ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
    std::filesystem::remove(TestFolder() / "full.log");
}
#endif

#ifdef _WIN32
// Ends the process while threads are logging. Windows kills the threads at any point; destructors that run
// afterwards still log.
TEST(LoggerDeathTest, DoesNotBlockExitWhenThreadsAreKilledMidLine)
{
    for (int run = 0; run < 5; ++run) {
        EXPECT_EXIT(
            {
                SetEnvironment("VELTO_LOG_FILE", FreshPath("killed.log"));
                for (int thread = 0; thread < 4; ++thread) {
                    std::thread([] {
                        Logger logger("Killed");
                        for (;;) {
                            logger.Log(LOG_LEVEL_INFO, Text(L"busy"));
                        }
                    }).detach();
                }
                Sleep(50);
                LogsAfterAllDestructors::logger = &StaticLogger();
                ExitProcess(7);
            },
            testing::ExitedWithCode(7), "");
    }
}
#endif

} // namespace
