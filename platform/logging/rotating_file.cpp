#include "logging/rotating_file.h"

#include <system_error>
#include <utility>

namespace logging {

RotatingFile::RotatingFile(std::filesystem::path path, std::uint64_t maxBytes, int oldFiles,
                           std::chrono::milliseconds retryAfter, Clock now)
    : m_path(std::move(path)),
      m_maxBytes(maxBytes),
      m_oldFiles(oldFiles),
      m_retryAfter(retryAfter),
      m_clock(now)
{
}

bool RotatingFile::Append(std::string_view line)
{
    const auto now = m_clock();
    if (now < m_notBefore) {
        return false;
    }
    if (TryAppend(line)) {
        return true;
    }
    m_file.Close();
    m_notBefore = now + m_retryAfter;
    return false;
}

bool RotatingFile::TryAppend(std::string_view line)
{
    if (!m_file.IsOpen() || !m_file.HasName()) {
        if (!Open()) {
            return false;
        }
    }
    if (m_firstLine && (!m_hasBegun || m_file.Size() == 0 || !HasRoomFor(line.size()))) {
        m_hasBegun = AppendText(m_firstLine() + std::string(line));
        return m_hasBegun;
    }
    return AppendText(line);
}

bool RotatingFile::AppendText(std::string_view text)
{
    return (HasRoomFor(text.size()) || MakeRoomFor(text.size())) && m_file.Append(text);
}

bool RotatingFile::Open()
{
    std::error_code ignored; // only a failure to open the file matters
    std::filesystem::create_directories(m_path.parent_path(), ignored);
    return m_file.Open(m_path);
}

// An empty file has room for any line.
bool RotatingFile::HasRoomFor(std::uint64_t bytes) const
{
    const std::uint64_t size = m_file.Size();
    return size == 0 || size + bytes <= m_maxBytes;
}

bool RotatingFile::MakeRoomFor(std::uint64_t bytes)
{
    // If another process has already rotated, the path now names a new file.
    if (!Open()) {
        return false;
    }
    if (HasRoomFor(bytes)) {
        return true;
    }
    m_file.Close();
    Rotate();
    return Open() && HasRoomFor(bytes);
}

void RotatingFile::Rotate()
{
    std::error_code error;
    for (int age = m_oldFiles; age != 0; --age) {
        std::filesystem::rename(OldPath(age - 1), OldPath(age), error);
    }
    // The last rename was that of the current file.
    if (m_oldFiles == 0 || error) {
        std::filesystem::resize_file(m_path, 0, error);
    }
}

std::filesystem::path RotatingFile::OldPath(int age) const
{
    if (age == 0) {
        return m_path;
    }
    std::filesystem::path path = m_path;
    path.replace_filename(m_path.stem());
    path += "." + std::to_string(age);
    path += m_path.extension();
    return path;
}

} // namespace logging
