#include "logging/first_line.h"

#include <algorithm>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>
#endif

namespace {

TEST(FirstLine, NamesVersionCommitBuildIdFfmpegAndSystem)
{
    const std::string text = logging::FirstLine();
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(
        text, parts,
        std::regex(
            R"(LibVeltoAudioHandler \d+\.\d+\.\d+, commit (\S+), build id (\S+), FFmpeg 5\.1\S*, (.+))")))
        << text;
    EXPECT_TRUE(std::regex_match(parts[1].str(), std::regex(R"([0-9a-f]{12}\+?|unknown)"))) << parts[1];
    EXPECT_EQ(parts[2].str(), logging::BuildId());
#ifdef _WIN32
    EXPECT_TRUE(std::regex_match(parts[3].str(), std::regex(R"(Windows \d+\.\d+\.\d+|Wine \d\S+)")))
        << parts[3];
#else
    EXPECT_EQ(parts[3].str(), "no Windows");
#endif
}

#ifdef _WIN32
// A file's bytes behind the text RSDS, wherever it is, as a build id: 16 bytes of a GUID and the age.
std::vector<std::string> BuildIdsIn(const std::filesystem::path &file)
{
    std::string content(std::filesystem::file_size(file), '\0');
    std::ifstream(file, std::ios::binary).read(content.data(), static_cast<std::streamsize>(content.size()));
    std::vector<std::string> ids;
    for (std::size_t found = content.find("RSDS"); found != std::string::npos;
         found = content.find("RSDS", found + 4)) {
        const std::string bytes = content.substr(found + 4, 17);
        std::string text;
        for (const std::size_t position : {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15}) {
            char digits[3] = {};
            if (position < bytes.size()) {
                std::snprintf(digits, sizeof(digits), "%02X", static_cast<unsigned char>(bytes[position]));
            }
            text += digits;
        }
        ids.push_back(text + std::to_string(static_cast<unsigned char>(bytes.back())));
    }
    return ids;
}

TEST(FirstLine, HasBuildIdOfProgramsFile)
{
    wchar_t path[MAX_PATH] = {};
    ASSERT_NE(GetModuleFileNameW(nullptr, path, MAX_PATH), 0U);
    const std::vector<std::string> ids = BuildIdsIn(path);
    EXPECT_EQ(std::count(ids.begin(), ids.end(), logging::BuildId()), 1) << logging::BuildId();
}
#else
TEST(FirstLine, HasNoBuildIdInOtherBinariesThanThoseOfWindows)
{
    EXPECT_EQ(logging::BuildId(), "none");
}
#endif

} // namespace
