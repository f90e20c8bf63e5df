#include "check/portable/report_pictures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include <fmt/format.h>

#include "velto-host/portable/html_text.h"

namespace velto::check {
namespace {

using host::EscapeXml;

// The plots, in units of their pictures.
constexpr double width = 1000;
constexpr double left = 60;
constexpr double plotWidth = width - left - 20;
constexpr double top = 12;
constexpr double waveHeight = 130;
constexpr double orderHeight = 200;

std::string Begin(double height, std::string_view title)
{
    return fmt::format(
        "<svg viewBox=\"0 0 {:.0f} {:.0f}\" role=\"img\" aria-label=\"{}\">\n<title>{}</title>\n", width,
        height, EscapeXml(title), EscapeXml(title));
}

std::string Text(double x, double y, std::string_view anchor, std::string_view text)
{
    return fmt::format("<text class=\"soft\" x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"{}\">{}</text>\n", x, y,
                       anchor, EscapeXml(text));
}

std::string Line(std::string_view style, double x1, double y1, double x2, double y2,
                 std::string_view title = {})
{
    return fmt::format(
        "<line class=\"{}\" x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" y2=\"{:.1f}\">{}</line>\n", style, x1,
        y1, x2, y2, title.empty() ? "" : fmt::format("<title>{}</title>", EscapeXml(title)));
}

// A step of 1, 2 or 5 times a power of ten that divides the range into at most ten parts.
double UsualStep(double range)
{
    const double power = std::pow(10, std::floor(std::log10(range / 10)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (range / (factor * power) <= 10) {
            return factor * power;
        }
    }
    return 10 * power;
}

// Marks below a plot whose horizontal axis shows 0 to `end`.
std::string HorizontalAxis(double end, double bottom, std::string_view unit)
{
    std::string svg = Line("axis", left, bottom, left + plotWidth, bottom);
    const double step = UsualStep(end);
    for (int mark = 0; mark * step <= end; ++mark) {
        const double x = left + mark * step / end * plotWidth;
        svg += Line("axis", x, bottom, x, bottom + 5);
        svg += Text(x, bottom + 20, "middle", fmt::format("{:g}{}", mark * step, mark == 0 ? "" : unit));
    }
    return svg;
}

bool IsPlottable(double value)
{
    return std::isfinite(value) && value > 0;
}

} // namespace

std::string DurationText(double microseconds)
{
    if (!std::isfinite(microseconds)) {
        return "–";
    }
    return microseconds < 1         ? fmt::format("{:.0f} ns", microseconds * 1e3)
           : microseconds < 100     ? fmt::format("{:.1f} µs", microseconds)
           : microseconds < 1000    ? fmt::format("{:.0f} µs", microseconds)
           : microseconds < 1000000 ? fmt::format("{:.2f} ms", microseconds / 1e3)
                                    : fmt::format("{:.2f} s", microseconds / 1e6);
}

std::string EnvelopePicture(const HeardSound &heard)
{
    if (heard.envelope.empty() || !IsPlottable(heard.seconds)) {
        return {};
    }
    const double bottom = top + waveHeight;
    const double middle = top + waveHeight / 2;
    std::string svg = Begin(bottom + 28, fmt::format("Peak level over {:.2f} s, with {} gaps", heard.seconds,
                                                     heard.gapsAtSeconds.size()));
    const double part = plotWidth / static_cast<double>(heard.envelope.size());
    svg += "<g class=\"sound\">\n";
    for (size_t i = 0; i < heard.envelope.size(); ++i) {
        const double value =
            std::isfinite(heard.envelope[i]) ? std::clamp<double>(heard.envelope[i], 0, 1) : 0;
        // Silence is a thin line.
        const double height = std::max(1.0, value * waveHeight);
        svg += fmt::format("<rect x=\"{:.2f}\" y=\"{:.2f}\" width=\"{:.2f}\" height=\"{:.2f}\"/>\n",
                           left + static_cast<double>(i) * part, middle - height / 2,
                           std::max(0.5, part * 0.8), height);
    }
    svg += "</g>\n" + Text(left - 8, top + 12, "end", "peak");
    for (const double gap : heard.gapsAtSeconds) {
        if (std::isfinite(gap)) {
            const double x = left + std::clamp(gap / heard.seconds, 0.0, 1.0) * plotWidth;
            svg += Line("gap", x, top, x, bottom, fmt::format("gap at {:.3f} s", gap));
        }
    }
    return svg + HorizontalAxis(heard.seconds, bottom, " s") + "</svg>\n";
}

std::string FrameOrderPicture(const HeardSound &heard)
{
    const std::vector<uint32_t> &frames = heard.framesInOrder;
    if (frames.empty()) {
        return {};
    }
    const double highest = std::max<double>(1, *std::max_element(frames.begin(), frames.end()));
    const double bottom = top + orderHeight;
    std::string svg =
        Begin(bottom + 28, fmt::format("{} frames in the order in which they were heard, {} out of order",
                                       frames.size(), heard.framesOutOfOrder));
    svg += Line("axis", left, top, left, bottom);
    svg +=
        Text(left - 8, top + 10, "end", fmt::format("{:.0f}", highest)) + Text(left - 8, bottom, "end", "0");
    uint32_t latest = 0;
    for (size_t i = 0; i < frames.size(); ++i) {
        const bool isLate = i > 0 && frames[i] <= latest;
        latest = std::max(latest, frames[i]);
        const double x =
            left + (static_cast<double>(i) + 0.5) / static_cast<double>(frames.size()) * plotWidth;
        const double y = bottom - frames[i] / highest * orderHeight;
        svg += fmt::format(
            "<circle class=\"{}\" cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"{}\"><title>frame {}{}</title>"
            "</circle>\n",
            isLate ? "wrong" : "frame", x, y, isLate ? 4 : 2, frames[i], isLate ? ", late or repeated" : "");
    }
    return svg + HorizontalAxis(static_cast<double>(frames.size()), bottom, "") + "</svg>\n";
}

std::string SlotTimesPicture(const std::vector<SlotTimes> &times)
{
    constexpr double names = 260;
    constexpr double values = 240;
    constexpr double barsWidth = width - names - values;
    constexpr double rowHeight = 34;
    double longest = 1000;
    for (const SlotTimes &each : times) {
        for (const std::optional<double> &value : {each.p50Us, each.p99Us, each.budgetUs}) {
            longest = std::max(longest, value && std::isfinite(*value) ? *value : 0);
        }
    }
    if (times.empty()) {
        return {};
    }
    const double decades = std::ceil(std::log10(longest)); // from 1 µs
    const auto xOf = [&](double us) { return names + std::log10(std::max(us, 1.0)) / decades * barsWidth; };
    const double bottom = top + rowHeight * static_cast<double>(times.size());
    std::string svg = Begin(bottom + 30, "Times of the calls: median, 99th percentile and budget");
    for (int decade = 0; decade <= static_cast<int>(decades); ++decade) {
        const double x = xOf(std::pow(10, decade));
        constexpr std::array<std::string_view, 10> marks{"1 µs",   "10 µs", "100 µs", "1 ms",  "10 ms",
                                                         "100 ms", "1 s",   "10 s",   "100 s", "1000 s"};
        svg += Line("axis", x, top, x, bottom + 6);
        svg += Text(x, bottom + 22, "middle",
                    marks[std::min<size_t>(static_cast<size_t>(decade), marks.size() - 1)]);
    }
    double y = top;
    for (const SlotTimes &each : times) {
        const auto bar = [&](const std::optional<double> &value, std::string_view style, double inset) {
            if (value && std::isfinite(*value)) {
                svg += fmt::format(
                    "<rect class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" height=\"{:.1f}\"/>\n",
                    style, names, y + inset, std::max(2.0, xOf(*value) - names), rowHeight - 2 * inset);
            }
        };
        const auto text = [](const std::optional<double> &value) {
            return value ? DurationText(*value) : "–";
        };
        const bool isOver = each.p99Us && each.budgetUs && *each.p99Us > *each.budgetUs;
        const std::string title = fmt::format("{}: p50 {}, p99 {}, budget {}", each.name, text(each.p50Us),
                                              text(each.p99Us), text(each.budgetUs));
        svg += fmt::format("<g><title>{}</title>\n", EscapeXml(title));
        svg += fmt::format("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"end\">{}</text>\n", names - 10,
                           y + rowHeight / 2 + 4, EscapeXml(each.name));
        bar(each.p99Us, isOver ? "over" : "tail", 7);
        bar(each.p50Us, "median", 11);
        if (each.budgetUs && std::isfinite(*each.budgetUs)) {
            svg += Line("budget", xOf(*each.budgetUs), y + 3, xOf(*each.budgetUs), y + rowHeight - 3);
        }
        svg += Text(width, y + rowHeight / 2 + 4, "end",
                    fmt::format("{} · {} · {}", text(each.p50Us), text(each.p99Us), text(each.budgetUs)));
        svg += "</g>\n";
        y += rowHeight;
    }
    return svg + "</svg>\n";
}

} // namespace velto::check
