#include "logging/append_file.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace logging {

#ifdef _WIN32

namespace {

// Null if the file cannot be opened.
HANDLE OpenForAppending(const std::filesystem::path &path)
{
    // With the right to append but not to write, Windows moves each write to the end of the file.
    const HANDLE file = CreateFileW(path.c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    return file == INVALID_HANDLE_VALUE ? nullptr : file;
}

void CloseFile(HANDLE file)
{
    CloseHandle(file);
}

FILE_STANDARD_INFO StandardInfo(HANDLE file)
{
    FILE_STANDARD_INFO info{};
    GetFileInformationByHandleEx(file, FileStandardInfo, &info, sizeof(info));
    return info;
}

} // namespace

bool AppendFile::Append(std::string_view bytes)
{
    DWORD written = 0;
    return WriteFile(m_handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) != FALSE &&
           written == bytes.size();
}

std::uint64_t AppendFile::Size() const
{
    return static_cast<std::uint64_t>(StandardInfo(m_handle).EndOfFile.QuadPart);
}

bool AppendFile::HasName() const
{
    const FILE_STANDARD_INFO info = StandardInfo(m_handle);
    return info.NumberOfLinks != 0 && info.DeletePending == FALSE;
}

#else

namespace {

// -1 if the file cannot be opened.
int OpenForAppending(const std::filesystem::path &path)
{
    return open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
}

void CloseFile(int file)
{
    close(file);
}

// All fields are 0 if the system cannot report them.
struct stat StatusOf(int file)
{
    struct stat status {};
    fstat(file, &status);
    return status;
}

} // namespace

bool AppendFile::Append(std::string_view bytes)
{
    return write(m_handle, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

std::uint64_t AppendFile::Size() const
{
    return static_cast<std::uint64_t>(StatusOf(m_handle).st_size);
}

bool AppendFile::HasName() const
{
    return StatusOf(m_handle).st_nlink != 0;
}

#endif

bool AppendFile::Open(const std::filesystem::path &path)
{
    Close();
    m_handle = OpenForAppending(path);
    return IsOpen();
}

void AppendFile::Close()
{
    if (IsOpen()) {
        CloseFile(m_handle);
        m_handle = noHandle;
    }
}

} // namespace logging
