#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "velto-host/portable/html_text.h"
#include "velto-host/portable/log_report.h"

namespace velto::host {
namespace {

// The plot, in units of the picture.
constexpr int plotLeft = 130;
constexpr int plotWidth = 1000;
constexpr int laneHeight = 46;
constexpr int barHeight = 34;
constexpr int plotTop = 24;
constexpr int64_t mostBars = 250;

constexpr std::array<std::string_view, logColumns.size()> colours{"#4c78a8", "#e45756", "#f2a73b", "#b279a2",
                                                                  "#d62728", "#54a24b", "#2f7f86", "#8c564b"};

constexpr std::string_view style = R"(
:root { color-scheme: light dark; }
body { font: 15px/1.45 system-ui, sans-serif; margin: 2em auto; max-width: 75em; padding: 0 1em; }
h1 { font-size: 1.4em; } h2 { font-size: 1.1em; margin-top: 2em; }
table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; vertical-align: top; padding: .25em .6em; border-bottom: 1px solid #8884; }
td.n, th.n { text-align: right; font-variant-numeric: tabular-nums; }
tr.problem td:first-child { border-left: .3em solid #d62728; }
tr.normal td:first-child, tr.note td:first-child { border-left: .3em solid #8886; }
code { font-family: ui-monospace, monospace; font-size: .92em; }
svg { width: 100%; height: auto; } svg text { fill: currentColor; font: 12px system-ui, sans-serif; }
)";

// The shortest usual period of which fewer than `most` whole ones are in the time.
int64_t UsualPeriod(int64_t seconds, int64_t most)
{
    constexpr std::array<int64_t, 12> lengths{1, 2, 5, 10, 30, 60, 300, 600, 1800, 3600, 21600, 86400};
    const auto *const length =
        std::find_if(lengths.begin(), lengths.end(), [=](int64_t each) { return seconds / each < most; });
    return length != lengths.end() ? *length : seconds / most + 1;
}

std::string PeriodText(int64_t seconds)
{
    return seconds % 3600 == 0 ? fmt::format("{} h", seconds / 3600)
           : seconds % 60 == 0 ? fmt::format("{} min", seconds / 60)
                               : fmt::format("{} s", seconds);
}

struct Plot {
    int64_t begin = 0; // in seconds since 1970
    int64_t step = 1;
    int64_t bars = 1;

    double XOf(double second) const
    {
        return plotLeft +
               (second - static_cast<double>(begin)) / static_cast<double>(step * bars) * plotWidth;
    }
};

std::string Lane(const Plot &plot, const std::map<int64_t, LogCounts> &periods, size_t lane)
{
    const LogColumn &column = logColumns[lane];
    uint64_t most = 0;
    for (const auto &[begin, counts] : periods) {
        most = std::max(most, counts.*column.count);
    }
    const int bottom = plotTop + static_cast<int>(lane) * laneHeight + barHeight;
    std::string svg = fmt::format("<text x=\"0\" y=\"{}\">{}</text>\n<text x=\"0\" y=\"{}\" opacity=\"0.6\">"
                                  "most: {}</text>\n<line x1=\"{}\" x2=\"{}\" y1=\"{}\" y2=\"{}\" "
                                  "stroke=\"#8888\"/>\n<g fill=\"{}\">\n",
                                  bottom - 18, column.title, bottom - 3, most, plotLeft, plotLeft + plotWidth,
                                  bottom, bottom, colours[lane]);
    for (const auto &[begin, counts] : periods) {
        const uint64_t count = counts.*column.count;
        if (count > 0) {
            const double height =
                std::max(1.0, barHeight * static_cast<double>(count) / static_cast<double>(most));
            svg +=
                fmt::format("<rect x=\"{:.2f}\" y=\"{:.2f}\" width=\"{:.2f}\" height=\"{:.2f}\"><title>{}: "
                            "{} {}</title></rect>\n",
                            plot.XOf(static_cast<double>(begin)), bottom - height,
                            std::max(1.0, plotWidth / static_cast<double>(plot.bars) - 0.5), height,
                            DateAndTimeText(begin * 1000).substr(0, 19), count, column.title);
        }
    }
    return svg + "</g>\n";
}

// Streams and recordings as bands below the lanes.
std::string Bands(const Plot &plot, const LogResult &result, int top)
{
    std::string svg =
        fmt::format("<text x=\"0\" y=\"{}\">streams</text>\n<text x=\"0\" y=\"{}\">recordings</text>\n",
                    top + 11, top + 27);
    const auto band = [&](int64_t beginMs, int64_t endMs, int y, std::string_view colour) {
        const double left = plot.XOf(static_cast<double>(beginMs) / 1000);
        const double right = plot.XOf(static_cast<double>(endMs) / 1000);
        svg += fmt::format("<rect x=\"{:.2f}\" y=\"{}\" width=\"{:.2f}\" height=\"12\" fill=\"{}\" "
                           "fill-opacity=\"0.7\"><title>{} to {}</title></rect>\n",
                           left, y, std::max(1.0, right - left), colour, TimeText(beginMs), TimeText(endMs));
    };
    for (const LogStream &stream : result.streams) {
        band(stream.beginMs, stream.endMs, top, colours[0]);
    }
    for (const LogRecording &recording : result.recordings) {
        band(recording.beginMs, recording.endMs, top + 16, colours[6]);
    }
    return svg;
}

std::string TimeAxis(const Plot &plot, int bottom)
{
    constexpr int64_t mostMarks = 10;
    const int64_t end = plot.begin + plot.step * plot.bars;
    const int64_t step = UsualPeriod(end - plot.begin, mostMarks);
    constexpr int64_t sixHours = 21600; // in seconds, as in UsualPeriod
    // The marks of a long log can be on several days.
    const bool hasDate = step >= sixHours;
    std::string svg;
    for (int64_t second = (plot.begin + step - 1) / step * step; second <= end; second += step) {
        const double x = plot.XOf(static_cast<double>(second));
        const std::string text = DateAndTimeText(second * 1000);
        svg += fmt::format("<line x1=\"{:.1f}\" x2=\"{:.1f}\" y1=\"{}\" y2=\"{}\" stroke=\"#8884\"/>\n"
                           "<text x=\"{:.1f}\" y=\"{}\" text-anchor=\"middle\">{}</text>\n",
                           x, x, plotTop, bottom, x, bottom + 16,
                           hasDate ? text.substr(5, 11) : text.substr(11, 8));
    }
    return svg;
}

std::string PlotOf(const LogResult &result)
{
    Plot plot;
    const int64_t first = result.beginMs / 1000;
    const int64_t last = result.endMs / 1000;
    plot.step = UsualPeriod(last - first + 1, mostBars);
    plot.begin = first / plot.step * plot.step;
    plot.bars = (last - plot.begin) / plot.step + 1;
    const std::map<int64_t, LogCounts> periods = result.Per(plot.step);
    const int bands = plotTop + static_cast<int>(logColumns.size()) * laneHeight + 4;
    const int bottom = bands + 32;
    std::string svg =
        fmt::format("<p>Each bar is a period of {}.</p>\n<svg viewBox=\"0 0 {} {}\" role=\"img\" "
                    "aria-label=\"counts over time\">\n",
                    PeriodText(plot.step), plotLeft + plotWidth + 40, bottom + 24);
    svg += TimeAxis(plot, bottom);
    for (size_t lane = 0; lane < logColumns.size(); ++lane) {
        svg += Lane(plot, periods, lane);
    }
    return svg + Bands(plot, result, bands) + "</svg>\n";
}

std::string Builds(const LogResult &result)
{
    std::string html;
    for (const LogBuild &build : result.builds) {
        html += fmt::format("<p>{} from {}.</p>\n", EscapeHtml(build.text), TimeText(build.firstMs));
    }
    return html;
}

std::string FindingsTable(const LogResult &result)
{
    std::string html = "<table>\n<tr><th>Found</th><th class=\"n\">Count</th><th>First</th><th>Last</th>"
                       "<th>Line of the log</th><th>Meaning</th></tr>\n";
    for (const RowKind kind : {RowKind::PROBLEM, RowKind::NORMAL, RowKind::NOTE}) {
        for (const auto &[id, finding] : result.findings) {
            const Row &row = RowOf(id);
            if (row.kind == kind) {
                html += fmt::format(
                    "<tr class=\"{}\" id=\"{}\"><td>{}</td><td class=\"n\">{}</td><td>{}</td><td>{}</td>"
                    "<td>{}</td><td>{}</td></tr>\n",
                    NameOf(kind), row.name, EscapeHtml(row.title), finding.count, TimeText(finding.firstMs),
                    TimeText(finding.lastMs), HtmlOfMarkdown(row.line), HtmlOfMarkdown(row.meaning));
            }
        }
    }
    for (const auto &[text, finding] : result.otherErrors) {
        html += fmt::format(
            "<tr class=\"problem\"><td>another error</td><td class=\"n\">{}</td><td>{}</td>"
            "<td>{}</td><td><code>{}</code></td><td>no row in the table; # is a number</td></tr>\n",
            finding.count, TimeText(finding.firstMs), TimeText(finding.lastMs), EscapeHtml(text));
    }
    return html + "</table>\n";
}

std::string TimeLineTable(const LogResult &result)
{
    constexpr size_t mostEntries = 2000;
    const std::vector<TimeLineEntry> entries = TimeLine(result);
    std::string html = "<table>\n<tr><th>From</th><th>To</th><th>Event</th></tr>\n";
    for (size_t i = 0; i < std::min(entries.size(), mostEntries); ++i) {
        const TimeLineEntry &entry = entries[i];
        html += fmt::format("<tr class=\"{}\"><td>{}</td><td>{}</td><td>{}</td></tr>\n", NameOf(entry.kind),
                            DateAndTimeText(entry.beginMs), TimeText(entry.endMs), EscapeHtml(entry.text));
    }
    html += "</table>\n";
    const size_t omitted = entries.size() - std::min(entries.size(), mostEntries) + result.eventsOmitted;
    return omitted == 0 ? html : html + fmt::format("<p>{} more are left out.</p>\n", omitted);
}

std::string MinutesTable(const LogResult &result)
{
    std::string html = "<table>\n<tr><th>Minute</th>";
    for (const LogColumn &column : logColumns) {
        html += fmt::format("<th class=\"n\">{}</th>", column.title);
    }
    html += "</tr>\n";
    for (const auto &[begin, counts] : result.Per(60)) {
        html += fmt::format("<tr><td>{}</td>", DateAndTimeText(begin * 1000).substr(0, 16));
        for (const LogColumn &column : logColumns) {
            html += fmt::format("<td class=\"n\">{}</td>", counts.*column.count);
        }
        html += "</tr>\n";
    }
    return html + "</table>\n";
}

} // namespace

std::string LogPage(const LogResult &result, std::string_view title)
{
    const std::string name = EscapeHtml(title);
    return fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n<title>{}</title>\n"
        "<style>{}</style>\n</head>\n<body>\n<h1>{}</h1>\n<p>{} to {}: {} lines, {} messages, {} "
        "broken lines.</p>\n{}<h2>Counts over time</h2>\n{}<h2>Findings</h2>\n{}<h2>Time line</h2>\n{}"
        "<h2>Counts per minute</h2>\n{}</body>\n</html>\n",
        name, style, name, DateAndTimeText(result.beginMs), DateAndTimeText(result.endMs), result.lines,
        result.messages, result.brokenLines, Builds(result), PlotOf(result), FindingsTable(result),
        TimeLineTable(result), MinutesTable(result));
}

} // namespace velto::host
