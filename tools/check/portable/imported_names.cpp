#include "check/portable/imported_names.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

namespace velto::check {
namespace {

// The parts of Microsoft's PE format that lead to the imports. All offsets are in bytes, all numbers
// little-endian.
constexpr size_t offsetOfNewHeader = 0x3C;
constexpr uint32_t signature = 0x00004550; // "PE\0\0"
constexpr size_t offsetOfSectionCount = 6;
constexpr size_t offsetOfOptionalSize = 20;
constexpr size_t offsetOfOptionalHeader = 24;
constexpr uint16_t magicOf64Bit = 0x20B;
constexpr size_t offsetOfDirectoryCount = 108; // in the optional header
constexpr size_t offsetOfDirectories = 112;
constexpr size_t directoryBytes = 8;
constexpr size_t sectionBytes = 40;

// A table of records of `bytes` bytes, which have the address of a name at `name`.
struct ImportTable {
    uint32_t directory;
    size_t bytes;
    size_t name;
};
constexpr std::array<ImportTable, 2> tables{{{1, 20, 12}, {13, 32, 4}}};

class Image {
public:
    explicit Image(std::string_view content) : m_content(content)
    {
        const std::optional<uint32_t> header = Read<uint32_t>(offsetOfNewHeader);
        if (header && Read<uint32_t>(*header) == signature &&
            Read<uint16_t>(size_t{*header} + offsetOfOptionalHeader) == magicOf64Bit) {
            m_header = *header;
        }
    }

    // The names in a table.
    void AddNames(const ImportTable &table, std::vector<std::string> &names) const
    {
        const std::optional<size_t> begin = TablePosition(table);
        for (size_t record = begin.value_or(m_content.size());; record += table.bytes) {
            const std::optional<uint32_t> address = Read<uint32_t>(record + table.name);
            const std::optional<std::string> name =
                address && *address != 0 ? NameAt(*address) : std::nullopt;
            if (!name) {
                return; // the last record, which is zero, or a damaged one
            }
            names.push_back(*name);
        }
    }

private:
    template <typename Number>
    std::optional<Number> Read(size_t position) const
    {
        Number number = 0;
        if (position > m_content.size() || m_content.size() - position < sizeof(number)) {
            return std::nullopt;
        }
        std::memcpy(&number, m_content.data() + position, sizeof(number));
        return number;
    }

    std::optional<size_t> TablePosition(const ImportTable &table) const
    {
        if (!m_header) {
            return std::nullopt;
        }
        const size_t optional = *m_header + offsetOfOptionalHeader;
        const std::optional<uint32_t> count = Read<uint32_t>(optional + offsetOfDirectoryCount);
        const std::optional<uint32_t> address =
            Read<uint32_t>(optional + offsetOfDirectories + table.directory * directoryBytes);
        return count && *count > table.directory && address && *address != 0 ? Position(*address)
                                                                             : std::nullopt;
    }

    // The position in the file of an address in the loaded binary.
    std::optional<size_t> Position(uint32_t address) const
    {
        const std::optional<uint16_t> count = Read<uint16_t>(*m_header + offsetOfSectionCount);
        const std::optional<uint16_t> optionalBytes = Read<uint16_t>(*m_header + offsetOfOptionalSize);
        for (size_t i = 0; count && optionalBytes && i < *count; ++i) {
            const size_t section = *m_header + offsetOfOptionalHeader + *optionalBytes + i * sectionBytes;
            const std::optional<uint32_t> begin = Read<uint32_t>(section + 12);
            const std::optional<uint32_t> bytes = Read<uint32_t>(section + 16);
            const std::optional<uint32_t> position = Read<uint32_t>(section + 20);
            if (begin && bytes && position && address >= *begin && address - *begin < *bytes) {
                return size_t{*position} + (address - *begin);
            }
        }
        return std::nullopt;
    }

    // Null for a name that is empty, has no end, or is not in the file.
    std::optional<std::string> NameAt(uint32_t address) const
    {
        const std::optional<size_t> position = Position(address);
        const size_t end = position ? m_content.find('\0', *position) : std::string_view::npos;
        return end == std::string_view::npos || end == *position
                   ? std::nullopt
                   : std::optional<std::string>(m_content.substr(*position, end - *position));
    }

    std::string_view m_content;
    std::optional<size_t> m_header; // its position; null if this is no 64-bit binary
};

} // namespace

std::vector<std::string> ImportedNames(std::string_view content)
{
    const Image image(content);
    std::vector<std::string> names;
    for (const ImportTable &table : tables) {
        image.AddNames(table, names);
    }
    return names;
}

} // namespace velto::check
