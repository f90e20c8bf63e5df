#include "velto-host/zip_file.h"

#include <windows.h>

#include <zlib.h>

#include <limits>
#include <new>

#include "velto-host/log_files.h"
#include "velto-host/output.h"

namespace velto::host {
namespace {

constexpr uint16_t neededVersion = 20; // of a reader, for deflate
constexpr uint16_t utf8Names = 1U << 11U;
constexpr uint16_t deflated = 8;
constexpr uint32_t localHeader = 0x04034b50;
constexpr uint32_t directoryHeader = 0x02014b50;
constexpr uint32_t endOfDirectory = 0x06054b50;

template <typename Number>
void Append(std::string &out, Number number)
{
    for (size_t i = 0; i < sizeof(number); ++i) {
        out += static_cast<char>(static_cast<uint64_t>(number) >> (8 * i) & 0xFF);
    }
}

// Without a header, as ZIP files need it.
std::string Deflate(std::string_view content)
{
    z_stream stream{};
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 9, Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::bad_alloc();
    }
    std::string out(deflateBound(&stream, static_cast<uLong>(content.size())), '\0');
    // zlib takes a pointer to mutable bytes, but only reads them.
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(content.data()));
    stream.avail_in = static_cast<uInt>(content.size());
    stream.next_out = reinterpret_cast<Bytef *>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    const int result = deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    if (result != Z_STREAM_END) {
        throw FileError("a part of the report cannot be compressed");
    }
    return out;
}

} // namespace

void ZipFile::Add(std::string_view name, std::string_view content)
{
    constexpr size_t most = std::numeric_limits<int32_t>::max();
    const std::string packed = content.size() <= most ? Deflate(content) : std::string();
    if (content.size() > most || m_entries.size() + packed.size() > most) {
        throw FileError("the report would be too large");
    }
    SYSTEMTIME now;
    GetLocalTime(&now);
    const auto crc = static_cast<uint32_t>(
        crc32(0, reinterpret_cast<const Bytef *>(content.data()), static_cast<uInt>(content.size())));
    std::string common;
    Append(common, neededVersion);
    Append(common, utf8Names);
    Append(common, deflated);
    Append(common, static_cast<uint16_t>(now.wHour << 11U | now.wMinute << 5U | now.wSecond / 2U));
    Append(common, static_cast<uint16_t>((now.wYear - 1980U) << 9U | now.wMonth << 5U | now.wDay));
    Append(common, crc);
    Append(common, static_cast<uint32_t>(packed.size()));
    Append(common, static_cast<uint32_t>(content.size()));
    Append(common, static_cast<uint16_t>(name.size()));
    Append(common, uint16_t{0}); // no extra field

    Append(m_directory, directoryHeader);
    Append(m_directory, neededVersion); // of the writer
    m_directory += common;
    m_directory.append(10, '\0'); // comment's length, disk and attributes
    Append(m_directory, static_cast<uint32_t>(m_entries.size()));
    m_directory += name;

    Append(m_entries, localHeader);
    m_entries += common;
    m_entries += name;
    m_entries += packed;
    m_names.emplace_back(name);
}

void ZipFile::Write(const std::filesystem::path &path) const
{
    std::string content = m_entries + m_directory;
    const auto count = static_cast<uint16_t>(m_names.size());
    Append(content, endOfDirectory);
    Append(content, uint32_t{0}); // the only disk
    Append(content, count);
    Append(content, count);
    Append(content, static_cast<uint32_t>(m_directory.size()));
    Append(content, static_cast<uint32_t>(m_entries.size()));
    Append(content, uint16_t{0}); // no comment
    WriteWholeFile(path, content);
}

} // namespace velto::host
