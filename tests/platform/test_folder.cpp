#include "tests/platform/test_folder.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace fs = std::filesystem;

namespace {

constexpr const char *folderVariable = "VELTO_PLATFORM_TESTS_FOLDER";

unsigned long ProcessId()
{
#ifdef _WIN32
    return GetCurrentProcessId();
#else
    return static_cast<unsigned long>(getpid());
#endif
}

// Removes the test folder when all other static objects are gone: the log in it is open until
// then, and an open file cannot be removed.
class FolderRemover {
public:
    ~FolderRemover()
    {
        if (folder != nullptr && owner == ProcessId()) { // a forked child has a copy of this object
            std::error_code ignored;
            fs::remove_all(*folder, ignored);
            delete folder;
        }
    }
    static inline fs::path *folder = nullptr;
    static inline unsigned long owner = 0;
};
__attribute__((init_priority(101))) FolderRemover folderRemover; // constructed first

} // namespace

const fs::path &TestFolder()
{
    static const fs::path folder = GetEnvironment(folderVariable);
    return folder;
}

fs::path SharedLogFile()
{
    return TestFolder() / "sub folder" / fs::path(u8"sh\u00E4red-\u97F3.log");
}

fs::path FreshPath(const std::string &name)
{
    static int count = 0;
    return TestFolder() / (std::to_string(++count) + "-" + name);
}

fs::path OldPath(const fs::path &path, int age)
{
    fs::path old = path;
    old.replace_filename(path.stem().string() + "." + std::to_string(age) + path.extension().string());
    return old;
}

std::vector<std::string> ReadLines(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines.push_back(line);
    }
    return lines;
}

int CountLinesWith(const fs::path &path, const std::string &text)
{
    const std::vector<std::string> lines = ReadLines(path);
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const std::string &line) {
        return line.find(text) != std::string::npos;
    }));
}

std::string AfterTimeAndThread(const std::string &line)
{
    const std::string timePattern = "0000-00-00 00:00:00.000 [";
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    std::string begin = line.substr(0, timePattern.size());
    std::replace_if(begin.begin(), begin.end(), isDigit, '0');
    const size_t threadEnd = line.find("] ", begin.size());
    if (begin != timePattern || threadEnd == begin.size() || threadEnd == std::string::npos ||
        !std::all_of(line.begin() + static_cast<std::ptrdiff_t>(begin.size()),
                     line.begin() + static_cast<std::ptrdiff_t>(threadEnd), isDigit)) {
        return "";
    }
    return line.substr(threadEnd + 2);
}

void SetEnvironment(const std::string &name, const fs::path &value)
{
#ifdef _WIN32
    SetEnvironmentVariableW(std::wstring(name.begin(), name.end()).c_str(),
                            value.empty() ? nullptr : value.c_str());
#else
    if (value.empty()) {
        unsetenv(name.c_str());
    } else {
        setenv(name.c_str(), value.c_str(), 1);
    }
#endif
}

fs::path GetEnvironment(const std::string &name)
{
#ifdef _WIN32
    wchar_t value[2048] = {};
    GetEnvironmentVariableW(std::wstring(name.begin(), name.end()).c_str(), value, 2048);
    return value;
#else
    const char *value = std::getenv(name.c_str());
    return value != nullptr ? value : "";
#endif
}

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (GetEnvironment(folderVariable).empty()) { // not a child of this program
        const fs::path folder =
            fs::temp_directory_path() / ("velto-platform-tests-" + std::to_string(ProcessId()));
        fs::remove_all(folder); // of a process with the same number that was killed
        fs::create_directories(folder);
        SetEnvironment(folderVariable, folder);
        SetEnvironment("VELTO_LOG_FILE", SharedLogFile());
        SetEnvironment("VELTO_LOG_LEVEL", {});
        FolderRemover::folder = new fs::path(folder);
        FolderRemover::owner = ProcessId();
    }
    return RUN_ALL_TESTS();
}
