#include "velto-host/log_command.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "velto-host/log_files.h"
#include "velto-host/portable/log_report.h"
#include "velto-host/windows_text.h"

namespace velto::host {
namespace {

// A line on stderr with the part of a file that has been read. On a console it is rewritten.
class ReadingProgress {
public:
    explicit ReadingProgress(bool always) : m_inPlace(Output::IsConsole()), m_shown(always || m_inPlace) {}

    void Show(const std::string &name, uint64_t done, uint64_t size)
    {
        const auto now = std::chrono::steady_clock::now();
        if (!m_shown || (done < size && now < m_next)) {
            return;
        }
        m_next = now + std::chrono::milliseconds(500);
        const std::string line = Format("{}reading {}: {} of {} MiB{}", m_inPlace ? "\r" : "", name,
                                        done >> 20U, size >> 20U, m_inPlace && done < size ? "" : "\n");
        std::fputs(line.c_str(), stderr);
        std::fflush(stderr);
    }

private:
    const bool m_inPlace;
    const bool m_shown;
    std::chrono::steady_clock::time_point m_next = std::chrono::steady_clock::now();
};

std::vector<std::filesystem::path> FilesOf(const LogOptions &options)
{
    if (options.files.empty()) {
        std::vector<std::filesystem::path> files = ModuleLogFiles();
        if (files.empty()) {
            throw FileError("there is no log file " + ToUtf8(ModuleLogFile().wstring()) + ": " +
                            PlainText(RowOf(RowId::NO_LOG_FILE).meaning));
        }
        return files;
    }
    std::vector<std::filesystem::path> files;
    for (const std::string &file : options.files) {
        files.emplace_back(ToWide(file));
    }
    return files;
}

LogResult Analyse(const std::vector<std::filesystem::path> &files, bool showProgress)
{
    LogAnalysis analysis;
    ReadingProgress progress(showProgress);
    for (const std::filesystem::path &file : files) {
        const std::string name = ToUtf8(file.filename().wstring());
        LineSplitter lines([&](std::string_view line) { analysis.Add(line); });
        ReadBlocks(
            file, [&](std::string_view block) { lines.Add(block); },
            [&](uint64_t done, uint64_t size) { progress.Show(name, done, size); });
        lines.Finish();
    }
    return analysis.Finish();
}

// Adds the counts to the members of `json`.
Json WithCounts(Json json, const LogCounts &counts)
{
    for (const LogColumn &column : logColumns) {
        json[column.name] = counts.*column.count;
    }
    return json;
}

Json MinutesOf(const LogResult &result)
{
    Json minutes = Json::Array();
    for (const auto &[begin, counts] : result.Per(60)) {
        minutes.Append(WithCounts({{"begin", DateAndTimeText(begin * 1000).substr(0, 16)}}, counts));
    }
    return minutes;
}

Json BuildsOf(const LogResult &result)
{
    Json builds = Json::Array();
    for (const LogBuild &build : result.builds) {
        builds.Append({{"text", build.text}, {"first", DateAndTimeText(build.firstMs)}});
    }
    return builds;
}

Json StreamsOf(const LogResult &result)
{
    Json streams = Json::Array();
    for (const LogStream &stream : result.streams) {
        streams.Append({{"begin", DateAndTimeText(stream.beginMs)},
                        {"end", DateAndTimeText(stream.endMs)},
                        {"units", stream.units},
                        {"hasCushion", stream.hasCushion},
                        {"beginsInLog", stream.beginsInLog},
                        {"underruns", stream.underruns},
                        {"decodeErrors", stream.decodeErrors}});
    }
    return streams;
}

Json RecordingsOf(const LogResult &result)
{
    Json recordings = Json::Array();
    for (const LogRecording &recording : result.recordings) {
        recordings.Append({{"begin", DateAndTimeText(recording.beginMs)},
                           {"end", DateAndTimeText(recording.endMs)},
                           {"isClosed", recording.hasEnd},
                           {"restarts", recording.restarts}});
    }
    return recordings;
}

Json EventsOf(const LogResult &result)
{
    Json events = Json::Array();
    for (const LogEvent &event : result.events) {
        events.Append({{"begin", DateAndTimeText(event.beginMs)},
                       {"end", DateAndTimeText(event.endMs)},
                       {"row", RowOf(event.row).name},
                       {"kind", std::string(NameOf(RowOf(event.row).kind))},
                       {"title", RowOf(event.row).title},
                       {"detail", event.detail},
                       {"count", event.count}});
    }
    return events;
}

Json FindingsOf(const LogResult &result)
{
    Json findings = Json::Array();
    for (const auto &[id, finding] : result.findings) {
        const Row &row = RowOf(id);
        findings.Append({{"row", row.name},
                         {"kind", std::string(NameOf(row.kind))},
                         {"title", row.title},
                         {"line", PlainText(row.line)},
                         {"meaning", PlainText(row.meaning)},
                         {"count", finding.count},
                         {"first", DateAndTimeText(finding.firstMs)},
                         {"last", DateAndTimeText(finding.lastMs)}});
    }
    return findings;
}

Json OtherErrorsOf(const LogResult &result)
{
    Json errors = Json::Array();
    for (const auto &[text, finding] : result.otherErrors) {
        errors.Append({{"message", text},
                       {"count", finding.count},
                       {"first", DateAndTimeText(finding.firstMs)},
                       {"last", DateAndTimeText(finding.lastMs)}});
    }
    return errors;
}

Json JsonOf(const LogResult &result, const std::vector<std::filesystem::path> &files)
{
    Json names = Json::Array();
    for (const std::filesystem::path &file : files) {
        names.Append(ToUtf8(file.wstring()));
    }
    LogCounts total;
    for (const auto &[second, counts] : result.seconds) {
        total += counts;
    }
    return {{"files", names},
            {"begin", DateAndTimeText(result.beginMs)},
            {"end", DateAndTimeText(result.endMs)},
            {"lines", result.lines},
            {"brokenLines", result.brokenLines},
            {"firstBrokenLines", result.firstBrokenLines},
            {"messages", result.messages},
            {"builds", BuildsOf(result)},
            {"total", WithCounts({}, total)},
            {"streams", StreamsOf(result)},
            {"recordings", RecordingsOf(result)},
            {"events", EventsOf(result)},
            {"eventsOmitted", result.eventsOmitted},
            {"findings", FindingsOf(result)},
            {"otherErrors", OtherErrorsOf(result)},
            {"minutes", MinutesOf(result)},
            {"exitCode", int{EXIT_OK}}};
}

} // namespace

ExitCode ExplainLog(const LogOptions &options, const Output &output)
{
    const std::vector<std::filesystem::path> files = FilesOf(options);
    RefuseToReplace(files, ToWide(options.htmlFile));
    const LogResult result = Analyse(files, options.showProgress);
    if (result.messages == 0) {
        throw FileError(ToUtf8(files.back().wstring()) + " has no line of the module's log" +
                        (result.lines == 0 ? ": it is empty" : ""));
    }
    if (!options.htmlFile.empty()) {
        WriteWholeFile(ToWide(options.htmlFile), LogPage(result, ToUtf8(files.back().filename().wstring())));
    }
    const size_t mostEntries = options.showAll ? std::numeric_limits<size_t>::max() : options.mostEntries;
    for (const std::string &line : LogReport(result, mostEntries)) {
        output.Say("{}", line);
    }
    output.Result(JsonOf(result, files));
    return EXIT_OK;
}

} // namespace velto::host
