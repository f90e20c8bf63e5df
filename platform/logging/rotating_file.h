// A file of lines that never outgrows its bound: when it is full it becomes NAME.1.EXT, the
// earlier NAME.1.EXT becomes NAME.2.EXT and so on, and the oldest one goes.
//
// Several processes may write to one file. Lines stay whole, and a process whose file was
// rotated or removed by another one, or by a person, goes on in the new file. Where the file
// cannot be renamed because a foreign program holds it, it is emptied instead: the bound holds.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string_view>

#include "logging/append_file.h"

namespace logging {

// One thread at a time. Nothing is opened before the first line.
class RotatingFile {
public:
    using Clock = std::chrono::steady_clock::time_point (*)();

    // An empty path means no file: every Append fails. After a failure, appending is not tried
    // again before `retryAfter` has passed by `now`.
    RotatingFile(std::filesystem::path path, std::uint64_t maxBytes, int oldFiles,
                 std::chrono::milliseconds retryAfter, Clock now = std::chrono::steady_clock::now);

    // Appends a line, which is handed to the system at once. False when it could not be written.
    bool Append(std::string_view line);

private:
    bool TryAppend(std::string_view line);
    bool Open();
    bool MakeRoomFor(std::uint64_t bytes);
    bool HasRoomFor(std::uint64_t bytes) const;
    void Rotate();
    std::filesystem::path OldPath(int age) const; // 0: the current file

    const std::filesystem::path m_path;
    const std::uint64_t m_maxBytes;
    const int m_oldFiles;
    const std::chrono::milliseconds m_retryAfter;
    const Clock m_clock;
    AppendFile m_file;
    std::chrono::steady_clock::time_point m_notBefore{};
};

} // namespace logging
