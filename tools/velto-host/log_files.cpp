#include "velto-host/log_files.h"

#include <windows.h>

#include <algorithm>

#include "velto-host/handle.h"
#include "velto-host/output.h"
#include "velto-host/windows_text.h"

namespace velto::host {
namespace {

constexpr int oldFiles = 2;
constexpr size_t blockBytes = 1U << 20U;

Handle Open(const std::filesystem::path &path, DWORD access, DWORD share, DWORD disposition)
{
    const HANDLE file =
        CreateFileW(path.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        throw FileError("cannot open " + ToUtf8(path.wstring()) + ": " + SystemErrorText(GetLastError()));
    }
    return Handle(file);
}

} // namespace

std::filesystem::path ModuleLogFile()
{
    if (std::filesystem::path file = EnvironmentVariable(L"VELTO_LOG_FILE"); !file.empty()) {
        return file;
    }
    const std::filesystem::path folder = EnvironmentVariable(L"LOCALAPPDATA");
    return folder.empty() ? folder : folder / L"VELTO" / L"LibVeltoAudioHandler.log";
}

std::vector<std::filesystem::path> ModuleLogFiles()
{
    const std::filesystem::path file = ModuleLogFile();
    std::vector<std::filesystem::path> files;
    for (int age = oldFiles; age >= 0 && !file.empty(); --age) {
        std::filesystem::path each = file;
        if (age > 0) {
            each.replace_filename(file.stem());
            each += "." + std::to_string(age);
            each += file.extension();
        }
        std::error_code error;
        if (std::filesystem::is_regular_file(each, error)) {
            files.push_back(each);
        }
    }
    return files;
}

void ReadBlocks(const std::filesystem::path &path, const std::function<void(std::string_view)> &sink,
                const std::function<void(uint64_t, uint64_t)> &progress)
{
    // Without FILE_SHARE_DELETE, the module could not rename a full log, and would empty it instead.
    const Handle file =
        Open(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING);
    LARGE_INTEGER size{};
    GetFileSizeEx(file.get(), &size);
    std::string block(blockBytes, '\0');
    uint64_t done = 0;
    for (;;) {
        DWORD read = 0;
        if (ReadFile(file.get(), block.data(), static_cast<DWORD>(block.size()), &read, nullptr) == FALSE) {
            throw FileError("cannot read " + ToUtf8(path.wstring()) + ": " + SystemErrorText(GetLastError()));
        }
        if (read == 0) {
            return;
        }
        done += read;
        sink(std::string_view(block).substr(0, read));
        if (progress) {
            progress(done, static_cast<uint64_t>(size.QuadPart));
        }
    }
}

void RefuseToReplace(const std::vector<std::filesystem::path> &files, const std::filesystem::path &output)
{
    for (const std::filesystem::path &file : files) {
        std::error_code error; // there is no output yet, or the file cannot be opened
        if (std::filesystem::equivalent(file, output, error)) {
            throw FileError(ToUtf8(output.wstring()) + " is a log that would be lost: choose another name");
        }
    }
}

void WriteWholeFile(const std::filesystem::path &path, std::string_view content)
{
    DWORD failure = ERROR_SUCCESS;
    {
        const Handle file = Open(path, GENERIC_WRITE, 0, CREATE_ALWAYS);
        while (!content.empty() && failure == ERROR_SUCCESS) {
            DWORD written = 0;
            const auto part = static_cast<DWORD>(std::min(content.size(), blockBytes));
            if (WriteFile(file.get(), content.data(), part, &written, nullptr) == FALSE) {
                failure = GetLastError();
            }
            content.remove_prefix(written);
        }
    }
    if (failure != ERROR_SUCCESS) {
        DeleteFileW(path.c_str());
        throw FileError("cannot write " + ToUtf8(path.wstring()) + ": " + SystemErrorText(failure));
    }
}

} // namespace velto::host
