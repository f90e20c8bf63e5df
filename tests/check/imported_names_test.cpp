#include "check/portable/imported_names.h"

#include <array>
#include <cstdint>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velto::check {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A 64-bit binary with one section, which imports two DLLs, and a third one delayed.
class Binary {
public:
    Binary()
    {
        Put<uint32_t>(0x3C, header);
        Put<uint32_t>(header, 0x4550);
        Put<uint16_t>(header + 6, 1);      // sections
        Put<uint16_t>(header + 20, 0xF0);  // bytes of the optional header
        Put<uint16_t>(optional, 0x20B);    // 64-bit
        Put<uint32_t>(optional + 108, 16); // directories
        Put<uint32_t>(optional + 112 + 1 * 8, address);
        Put<uint32_t>(optional + 112 + 13 * 8, address + 0x80);
        Put<uint32_t>(section + 12, address);
        Put<uint32_t>(section + 16, 0x400); // bytes
        Put<uint32_t>(section + 20, file);
        Put<uint32_t>(file + 12, address + 0x100);      // first import
        Put<uint32_t>(file + 20 + 12, address + 0x120); // second import
        Put<uint32_t>(file + 0x80 + 4, address + 0x140);
        PutName(0x100, "avutil-57.dll");
        PutName(0x120, "KERNEL32.dll");
        PutName(0x140, "ole32.dll");
    }

    template <typename Number>
    void Put(size_t position, Number number)
    {
        std::memcpy(content.data() + position, &number, sizeof(number));
    }

    void PutName(size_t offset, const char *name)
    {
        std::memcpy(content.data() + file + offset, name, std::strlen(name));
    }

    static constexpr size_t header = 0x80;
    static constexpr size_t optional = header + 24;
    static constexpr size_t section = optional + 0xF0;
    static constexpr size_t file = 0x400;
    static constexpr uint32_t address = 0x3000;
    std::string content = std::string(0x800, '\0');
};

TEST(ImportedNames, AreThoseOfBothTables)
{
    EXPECT_THAT(ImportedNames(Binary().content), ElementsAre("avutil-57.dll", "KERNEL32.dll", "ole32.dll"));
}

TEST(ImportedNames, AreEmptyForOtherFiles)
{
    EXPECT_THAT(ImportedNames(""), IsEmpty());
    EXPECT_THAT(ImportedNames("text"), IsEmpty());
    Binary binary;
    binary.Put<uint32_t>(Binary::header, 0x4551);
    EXPECT_THAT(ImportedNames(binary.content), IsEmpty());
    Binary narrow;
    narrow.Put<uint16_t>(Binary::optional, 0x10B);
    EXPECT_THAT(ImportedNames(narrow.content), IsEmpty());
}

TEST(ImportedNames, IgnoreDirectoriesThatAreNotCounted)
{
    Binary binary;
    binary.Put<uint32_t>(Binary::optional + 108, 2);
    EXPECT_THAT(ImportedNames(binary.content), ElementsAre("avutil-57.dll", "KERNEL32.dll"));
}

TEST(ImportedNames, EndAtAddressOutsideTheFile)
{
    Binary binary;
    binary.Put<uint32_t>(Binary::file + 20 + 12, 0xFFFFFFF0);
    EXPECT_THAT(ImportedNames(binary.content), ElementsAre("avutil-57.dll", "ole32.dll"));
}

TEST(ImportedNames, NeverReadBehindTheFile)
{
    const std::string content = Binary().content;
    for (size_t bytes = 0; bytes < content.size(); ++bytes) {
        const std::string part = content.substr(0, bytes); // a heap block that AddressSanitizer guards
        EXPECT_LE(ImportedNames(part).size(), 3U);
    }
    Binary binary;
    binary.Put<uint32_t>(0x3C, 0xFFFFFFFF);
    EXPECT_THAT(ImportedNames(binary.content), IsEmpty());
}

} // namespace
} // namespace velto::check
