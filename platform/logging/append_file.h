// A file that is only ever appended to, each piece in one system call, so that pieces from
// several processes do not overwrite each other. No buffer, no lock: nothing is left to be
// written when the process ends.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace logging {

// One thread at a time.
class AppendFile {
public:
    AppendFile() = default;
    ~AppendFile() { Close(); }
    AppendFile(const AppendFile &) = delete;
    AppendFile &operator=(const AppendFile &) = delete;

    // Opens the file, creating it when there is none, instead of the one that was open. Others
    // may read, write, rename and remove it meanwhile.
    bool Open(const std::filesystem::path &path);
    bool IsOpen() const { return m_handle != noHandle; }
    void Close();

    // False unless all of it was written.
    bool Append(std::string_view bytes);

    // In bytes; 0 when it cannot be told.
    std::uint64_t Size() const;
    // False when the file was removed while it was open.
    bool HasName() const;

private:
#ifdef _WIN32
    using Handle = void *; // HANDLE
    static constexpr Handle noHandle = nullptr;
#else
    using Handle = int;
    static constexpr Handle noHandle = -1;
#endif
    Handle m_handle = noHandle;
};

} // namespace logging
