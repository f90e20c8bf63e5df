#include "tests/platform/test_folder.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "tests/platform/process.h"

namespace fs = std::filesystem;

namespace {

constexpr const char *folderVariable = "VELTO_PLATFORM_TESTS_FOLDER";

// Removes the test folder after the destruction of all other static objects. One of them has the log open,
// and Windows does not remove open files.
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
__attribute__((init_priority(101))) FolderRemover folderRemover; // constructed first, destroyed last

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

std::string ReadBytes(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
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

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (GetEnvironment(folderVariable).empty()) { // a child of a test inherits the variable
        const fs::path folder =
            fs::temp_directory_path() / ("velto-platform-tests-" + std::to_string(ProcessId()));
        fs::remove_all(folder); // may be left from a killed process with the same id
        fs::create_directories(folder);
        SetEnvironment(folderVariable, folder);
        SetEnvironment("VELTO_LOG_FILE", SharedLogFile());
        SetEnvironment("VELTO_LOG_LEVEL", {});
        FolderRemover::folder = new fs::path(folder);
        FolderRemover::owner = ProcessId();
    }
    return RUN_ALL_TESTS();
}
