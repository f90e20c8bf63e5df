#include "check/file_watch.h"

#include <windows.h>

#include <utility>

#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

namespace fs = std::filesystem;

constexpr const wchar_t *temporaryVariables[] = {L"TEMP", L"TMP"};

std::string Name(const fs::path &path)
{
    return host::ToUtf8(path.wstring());
}

} // namespace

WatchedFolders::WatchedFolders(const ProcessContext &process) : m_earlierFolder(fs::current_path())
{
    const fs::path work = host::ToWide(process.workFolder);
    const fs::path current = work / "current";
    const fs::path temporary = work / "temporary";
    m_folders = {current, temporary, fs::path(host::ToWide(process.modulePath)).parent_path()};
    fs::create_directories(current);
    fs::create_directories(temporary);
    fs::current_path(current);
    for (const wchar_t *name : temporaryVariables) {
        m_earlierVariables[name] = host::EnvironmentVariable(name);
        SetEnvironmentVariableW(name, temporary.c_str());
    }
    m_before = Read();
}

WatchedFolders::~WatchedFolders()
{
    for (const auto &[name, value] : m_earlierVariables) {
        SetEnvironmentVariableW(name.c_str(), value.empty() ? nullptr : value.c_str());
    }
    std::error_code ignored; // the folder may be gone
    fs::current_path(m_earlierFolder, ignored);
}

WatchedFolders::Files WatchedFolders::Read() const
{
    Files files;
    for (const fs::path &folder : m_folders) {
        for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
            std::error_code ignored; // the file may be gone meanwhile
            if (entry.is_regular_file(ignored) && entry.path().extension() != ".log") {
                files[entry.path()] = {entry.file_size(ignored), entry.last_write_time(ignored)};
            }
        }
    }
    return files;
}

std::map<std::string, std::string> WatchedFolders::TakeChanges()
{
    std::map<std::string, std::string> changes;
    Files after = Read();
    for (const auto &[path, state] : after) {
        const auto old = m_before.find(path);
        if (old == m_before.end()) {
            changes[Name(path)] = "new file";
        } else if (old->second != state) {
            changes[Name(path)] = "changed file";
        }
    }
    for (const auto &[path, state] : m_before) {
        if (!after.contains(path)) {
            changes[Name(path)] = "deleted file";
        }
    }
    m_before = std::move(after);
    return changes;
}

} // namespace velto::check
