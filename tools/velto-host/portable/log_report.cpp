#include "velto-host/portable/log_report.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "velto-host/portable/printable_text.h"

namespace velto::host {
namespace {

constexpr int64_t minute = 60;

std::string Times(uint64_t count)
{
    return count == 1 ? "" : fmt::format(", {} times", count);
}

std::string Describe(const LogEvent &event)
{
    return fmt::format("{}{}{}{}", RowOf(event.row).title, event.detail.empty() ? "" : ": ", event.detail,
                       Times(event.count));
}

std::string Describe(const LogStream &stream, size_t number)
{
    std::string text = fmt::format("stream {}: about {} units, {}", number, stream.units,
                                   stream.hasCushion ? "with a cushion" : "without a cushion");
    if (stream.underruns > 0) {
        text += fmt::format(", {} underruns", stream.underruns);
    }
    if (stream.decodeErrors > 0) {
        text += fmt::format(", {} decode errors", stream.decodeErrors);
    }
    return text;
}

std::string Describe(const LogRecording &recording, size_t number)
{
    return fmt::format("recording {}{}{}", number,
                       recording.restarts == 0 ? "" : fmt::format(", {} restarts", recording.restarts),
                       recording.hasEnd ? "" : ", not closed in this log");
}

std::string_view Mark(RowKind kind)
{
    return kind == RowKind::PROBLEM ? "! " : "  ";
}

std::string Period(int64_t beginMs, int64_t endMs)
{
    return beginMs == endMs ? fmt::format("{:27}", TimeText(beginMs))
                            : fmt::format("{} - {}", TimeText(beginMs), TimeText(endMs));
}

void AppendTimeLine(std::vector<std::string> &lines, const LogResult &result, size_t mostEntries)
{
    const std::vector<TimeLineEntry> entries = TimeLine(result);
    lines.insert(lines.end(), {"", "Time line (\"!\" marks a problem)"});
    int64_t day = -1;
    for (size_t i = 0; i < std::min(entries.size(), mostEntries); ++i) {
        const TimeLineEntry &entry = entries[i];
        constexpr int64_t dayMs = int64_t{24} * 3600 * 1000;
        if (entry.beginMs / dayMs != day) {
            day = entry.beginMs / dayMs;
            lines.push_back("  " + DateAndTimeText(entry.beginMs).substr(0, 10));
        }
        lines.push_back(
            fmt::format("{}{}  {}", Mark(entry.kind), Period(entry.beginMs, entry.endMs), entry.text));
    }
    if (entries.size() > mostEntries || result.eventsOmitted > 0) {
        lines.push_back(
            fmt::format("  ... and {} more",
                        entries.size() - std::min(entries.size(), mostEntries) + result.eventsOmitted));
    }
}

void AppendMinutes(std::vector<std::string> &lines, const LogResult &result)
{
    std::string head = "  minute          ";
    for (const LogColumn &column : logColumns) {
        head += fmt::format("  {}", column.title);
    }
    lines.insert(lines.end(), {"", "Counts per minute", head});
    for (const auto &[begin, counts] : result.Per(minute)) {
        std::string line = "  " + DateAndTimeText(begin * 1000).substr(0, 16);
        for (const LogColumn &column : logColumns) {
            line += fmt::format("  {:>{}}", counts.*column.count, std::string_view(column.title).size());
        }
        lines.push_back(line);
    }
}

void AppendFindings(std::vector<std::string> &lines, const LogResult &result, RowKind kind,
                    const char *heading)
{
    bool isFirst = true;
    for (const auto &[id, finding] : result.findings) {
        const Row &row = RowOf(id);
        if (row.kind != kind) {
            continue;
        }
        if (std::exchange(isFirst, false)) {
            lines.insert(lines.end(), {"", heading});
        }
        lines.push_back(fmt::format("{}{}: {}, from {} to {}", Mark(kind), row.title, finding.count,
                                    TimeText(finding.firstMs), TimeText(finding.lastMs)));
        lines.push_back(fmt::format("      line:    {}", PlainText(row.line)));
        lines.push_back(fmt::format("      meaning: {}", PlainText(row.meaning)));
    }
}

void AppendOtherErrors(std::vector<std::string> &lines, const LogResult &result)
{
    if (result.otherErrors.empty()) {
        return;
    }
    lines.insert(lines.end(), {"", "Other errors, without a row in the table (\"#\" is a number)"});
    for (const auto &[text, finding] : result.otherErrors) {
        lines.push_back(fmt::format("! {}: {}, from {} to {}", text, finding.count, TimeText(finding.firstMs),
                                    TimeText(finding.lastMs)));
    }
}

} // namespace

std::vector<TimeLineEntry> TimeLine(const LogResult &result)
{
    std::vector<TimeLineEntry> entries;
    for (size_t i = 0; i < result.streams.size(); ++i) {
        const LogStream &stream = result.streams[i];
        entries.push_back({stream.beginMs, stream.endMs, RowKind::NOTE, Describe(stream, i + 1)});
    }
    for (size_t i = 0; i < result.recordings.size(); ++i) {
        const LogRecording &recording = result.recordings[i];
        entries.push_back({recording.beginMs, recording.endMs, RowKind::NOTE, Describe(recording, i + 1)});
    }
    for (const LogEvent &event : result.events) {
        entries.push_back({event.beginMs, event.endMs, RowOf(event.row).kind, Describe(event)});
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const TimeLineEntry &a, const TimeLineEntry &b) { return a.beginMs < b.beginMs; });
    return entries;
}

std::vector<std::string> LogReport(const LogResult &result, size_t mostEntries)
{
    std::vector<std::string> lines;
    lines.push_back(fmt::format("{} to {}, {} lines, {} messages", DateAndTimeText(result.beginMs),
                                DateAndTimeText(result.endMs), result.lines, result.messages));
    for (const LogBuild &build : result.builds) {
        lines.push_back(fmt::format("{} from {}", build.text, TimeText(build.firstMs)));
    }
    if (result.brokenLines > 0) {
        std::string numbers;
        for (const uint64_t number : result.firstBrokenLines) {
            numbers += fmt::format("{}{}", numbers.empty() ? "" : ", ", number);
        }
        lines.push_back(fmt::format("{} broken lines were left out: {}{}", result.brokenLines, numbers,
                                    result.brokenLines > result.firstBrokenLines.size() ? ", ..." : ""));
    }
    AppendTimeLine(lines, result, mostEntries);
    AppendMinutes(lines, result);
    AppendFindings(lines, result, RowKind::PROBLEM,
                   "Problems, each with its row of the troubleshooting table");
    AppendOtherErrors(lines, result);
    AppendFindings(lines, result, RowKind::NORMAL, "Normal, although logged as errors");
    std::transform(lines.begin(), lines.end(), lines.begin(), PrintableText);
    return lines;
}

} // namespace velto::host
