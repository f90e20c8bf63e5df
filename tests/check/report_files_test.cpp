// Writes sample reports for test_reports.py, which checks them with Python's parsers and the schema.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <utility>

#include <gtest/gtest.h>

#include "check/portable/report_json.h"
#include "check/portable/report_junit.h"
#include "check/portable/report_page.h"
#include "sample_run.h"

namespace velto::check {
namespace {

void Write(const std::filesystem::path &file, const std::string &text)
{
    std::ofstream(file, std::ios::binary) << text;
    EXPECT_EQ(std::filesystem::file_size(file), text.size());
}

TEST(ReportFiles, AreWrittenForOtherTests)
{
    const char *folder = std::getenv("VELTO_REPORT_FOLDER");
    if (folder == nullptr) {
        GTEST_SKIP() << "VELTO_REPORT_FOLDER is not set";
    }
    check::Run odd = FailedRun(); // with characters that neither XML nor JSON has
    odd.results[2].warnings = {"\x01\xff\xEF\xBF\xBE <&\">]]>\n"};
    check::Run empty;
    empty.level = 1;
    for (const auto &[name, run] :
         {std::pair{"passed", PassedRun()}, std::pair{"failed", FailedRun()},
          std::pair{"silent", SilentRun()}, std::pair{"odd", odd}, std::pair{"empty", empty}}) {
        const std::filesystem::path base = std::filesystem::path(folder) / name;
        Write(base.string() + ".json", JsonReport(run));
        Write(base.string() + ".xml", JunitReport(run));
        Write(base.string() + ".html", HtmlReport(run));
    }
}

} // namespace
} // namespace velto::check
