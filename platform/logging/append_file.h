// A file for appending. Each append is one unbuffered system call: several processes can append without
// overwriting each other, and no line is lost when a process ends.
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

    // Closes the current file and opens `path`, creating the file if it is missing. Other processes may
    // read, write, rename and remove the file while it is open.
    bool Open(const std::filesystem::path &path);
    bool IsOpen() const { return m_handle != noHandle; }
    void Close();

    // Returns false unless all bytes were written.
    bool Append(std::string_view bytes);

    // In bytes; 0 if the system cannot report it.
    std::uint64_t Size() const;
    // False if the file was removed while it was open.
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
