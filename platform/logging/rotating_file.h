// A log file of limited size. A full file is renamed to NAME.1.EXT, the previous NAME.1.EXT to NAME.2.EXT
// and so on; the oldest file is overwritten.
//
// Several processes can write to one file, and lines stay whole. If another process rotates the file, or the
// file is removed, this process continues in the new file. If the file cannot be renamed because another
// program has it open, it is emptied instead, so that the limit still applies.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "logging/append_file.h"

namespace logging {

// One thread at a time. The file is opened when the first line is written.
class RotatingFile {
public:
    using Clock = std::chrono::steady_clock::time_point (*)();

    // With an empty path, every Append fails. After a failure, Append does not try again until
    // `retryAfter` has passed on the clock `now`.
    RotatingFile(std::filesystem::path path, std::uint64_t maxBytes, int oldFiles,
                 std::chrono::milliseconds retryAfter, Clock now = std::chrono::steady_clock::now);

    // Makes `line` the first line of this object and of each file that it begins. It is called for each of
    // them, and returns the line with its ending.
    void BeginWith(std::function<std::string()> line) { m_firstLine = std::move(line); }

    // Passes a line, including its line ending, to the system. Returns false if it could not be written.
    bool Append(std::string_view line);

private:
    bool TryAppend(std::string_view line);
    bool AppendText(std::string_view text);
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
    std::function<std::string()> m_firstLine; // null: none
    AppendFile m_file;
    bool m_hasBegun = false; // the first line was written
    std::chrono::steady_clock::time_point m_notBefore{};
};

} // namespace logging
