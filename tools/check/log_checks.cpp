#include "check/log_checks.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "check/portable/process_check_list.h"
#include "check/process_context.h"
#include "velto-host/portable/log_line.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

using host::ModuleLogLine;

constexpr std::string_view channel = "OceloMirror";
constexpr std::string_view firstLineChannel = "Logging";

// A line that a call must write.
struct ExpectedLine {
    std::string_view message;
    std::string_view tag;
    bool isError = true;
};

// In the order of MakeCalls.
constexpr std::array<ExpectedLine, 11> expectedLines{{
    {"VeltoRelease type = 7", "`anonymous-namespace'::VeltoRelease", false},
    {"released ptr is null", "`anonymous-namespace'::VeltoRelease"},
    {"VELTO Listener is null", "`anonymous-namespace'::VeltoRegisterListener"},
    {"speaker id invalid", "`anonymous-namespace'::VeltoSetAudioParameter"},
    {"Set Audio Parameter failed, profile is null", "`anonymous-namespace'::VeltoSetAudioParameter"},
    {"speaker id is invalid", "`anonymous-namespace'::VeltoCloseAudioTrack"},
    {"mic id or profiles is null or invalid", "`anonymous-namespace'::VeltoOpenAudioRecord"},
    {"mic id is null or invalid", "`anonymous-namespace'::VeltoReadStreamBuffer"},
    {"mic id is null or invalid", "`anonymous-namespace'::VeltoCloseAudioRecord"},
    {"speaker id or data is null or invalid", "`anonymous-namespace'::VeltoWriteStreamBuffer"},
    {"Data for audio play is null", "`anonymous-namespace'::VeltoWriteStreamBuffer"},
}};

void MakeCalls(const AudioHandlerTable &table)
{
    constexpr uint32_t idLength = sizeof(VELTO_ID_SPEAKER) - 1;
    table.Release(7, nullptr, 0);
    table.RegisterListener(nullptr);
    table.SetAudioParameter(nullptr, 0, nullptr, nullptr, nullptr);
    table.SetAudioParameter(VELTO_ID_SPEAKER, idLength, nullptr, nullptr, nullptr);
    table.CloseAudioTrack(nullptr, 0);
    table.OpenAudioRecord(nullptr, 0, nullptr, nullptr, nullptr);
    table.ReadStreamBuffer(nullptr, 0, nullptr, nullptr);
    table.CloseAudioRecord(nullptr, 0);
    table.WriteStreamBuffer(nullptr, 0, nullptr, nullptr);
    table.WriteStreamBuffer(VELTO_ID_SPEAKER, idLength, nullptr, nullptr);
}

std::string TextOf(const std::filesystem::path &file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// The parsed lines are views into `text`.
std::vector<ModuleLogLine> ParseLines(Context &context, std::string_view text)
{
    std::vector<ModuleLogLine> lines;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        line.remove_suffix(line.ends_with('\r') ? 1 : 0);
        const std::optional<ModuleLogLine> parsed = host::ParseModuleLogLine(line);
        // A line of another level than information and error has no parsed form.
        if (context.Expect(parsed.has_value(), "LOG-2", fmt::format("not a line of the log: {}", line))) {
            lines.push_back(*parsed);
        }
    }
    return lines;
}

void ExpectFirstLine(Context &context, const ModuleLogLine &line)
{
    bool isComplete = line.channel == firstLineChannel && !line.isError;
    for (const std::string_view part : {"LibVeltoAudioHandler ", ", commit ", ", build id ", ", FFmpeg "}) {
        isComplete = isComplete && line.message.find(part) != std::string_view::npos;
    }
    context.Expect(isComplete, "LOG-7",
                   fmt::format("the first line is: [{}] {}", line.channel, line.message));
}

void ExpectLine(Context &context, const std::vector<ModuleLogLine> &lines, const ExpectedLine &expected)
{
    const auto count = [&](std::string_view channelName, std::string_view tag) {
        return std::ranges::count_if(lines, [&](const ModuleLogLine &line) {
            return line.channel == channelName && line.message == expected.message && line.tag == tag;
        });
    };
    const auto alike = std::ranges::count_if(
        expectedLines, [&](const ExpectedLine &other) { return other.message == expected.message; });
    const auto ofChannel = count(channel, "");
    const auto processWide = count(host::processWideChannel, expected.tag);
    if (!context.Expect(ofChannel + processWide > 0, "LOG-3",
                        fmt::format("no line \"{}\" of {}", expected.message, expected.tag))) {
        return;
    }
    context.Expect(
        ofChannel == alike && processWide == 1, "LOG-1",
        fmt::format("\"{}\" of {}: {} lines of the channel instead of {}, {} process-wide lines instead of 1",
                    expected.message, expected.tag, ofChannel, alike, processWide));
    const bool hasLevel = std::ranges::all_of(lines, [&](const ModuleLogLine &line) {
        return line.message != expected.message || line.isError == expected.isError;
    });
    context.Expect(hasLevel, "LOG-2", fmt::format("\"{}\" has another level", expected.message));
}

void WritesDocumentedLines(Context &context)
{
    const std::filesystem::path file =
        std::filesystem::path(host::ToWide(CurrentProcess().workFolder)) / "module.log";
    // The module reads both variables when it writes its first line.
    SetEnvironmentVariableW(L"VELTO_LOG_FILE", file.c_str());
    SetEnvironmentVariableW(L"VELTO_LOG_LEVEL", nullptr);
    context.Step("makes calls that write log lines", {"LOG-1"});
    MakeCalls(context.table);
    const std::string text = TextOf(file);
    if (text.empty()) {
        context.Skip(
            "the module does not log to the file that VELTO_LOG_FILE names: it was built with another "
            "logging library");
    }
    const std::vector<ModuleLogLine> lines = ParseLines(context, text);
    context.Require(!lines.empty(), "LOG-7", "the log has no line");
    ExpectFirstLine(context, lines.front());
    for (const ExpectedLine &expected : expectedLines) {
        ExpectLine(context, lines, expected);
    }
}

} // namespace

std::span<const Check> LogChecks()
{
    static const std::vector<Check> checks{ProcessCheck("log.lines", WritesDocumentedLines)};
    return checks;
}

} // namespace velto::check
