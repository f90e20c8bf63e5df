#include "velto-host/portable/log_line.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <utility>

#include <fmt/format.h>

namespace velto::host {
namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr int64_t dayMs = int64_t{24} * 3600 * 1000;

// Reads a number of exactly `digits` digits, then `separator`, and removes both from `text`. A separator of 0
// is none. -1 if the text differs.
int TakeNumber(std::string_view &text, size_t digits, char separator)
{
    const size_t length = digits + (separator != 0 ? 1 : 0);
    int number = 0;
    if (text.size() < length || (separator != 0 && text[digits] != separator) || text[0] == '-') {
        return -1;
    }
    const auto read = std::from_chars(text.data(), text.data() + digits, number);
    if (read.ec != std::errc() || read.ptr != text.data() + digits) {
        return -1;
    }
    text.remove_prefix(length);
    return number;
}

std::optional<int64_t> TakeTime(std::string_view &text)
{
    const int year = TakeNumber(text, 4, '-');
    const int month = year < 0 ? -1 : TakeNumber(text, 2, '-');
    const int day = month < 0 ? -1 : TakeNumber(text, 2, ' ');
    const int hour = day < 0 ? -1 : TakeNumber(text, 2, ':');
    const int minute = hour < 0 ? -1 : TakeNumber(text, 2, ':');
    const int second = minute < 0 ? -1 : TakeNumber(text, 2, '.');
    const int millisecond = second < 0 ? -1 : TakeNumber(text, 3, ' ');
    const std::chrono::year_month_day date{std::chrono::year(year),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (millisecond < 0 || !date.ok() || hour > 23 || minute > 59 || second > 60) {
        return std::nullopt;
    }
    const std::chrono::milliseconds midnight = std::chrono::sys_days(date).time_since_epoch();
    return midnight.count() + ((int64_t{hour} * 60 + minute) * 60 + second) * 1000 + millisecond;
}

// Takes "[text] " from the front.
std::optional<std::string_view> TakeBracketed(std::string_view &text)
{
    const size_t end = text.find("] ");
    if (text.empty() || text[0] != '[' || end == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view inside = text.substr(1, end - 1);
    text.remove_prefix(end + 2);
    return inside;
}

// Where the tag's parenthesis opens; npos if there is no tag. The tag of the idle watchdog has an empty pair
// of parentheses itself.
size_t TagBegin(std::string_view message)
{
    size_t open = message.ends_with(')') ? message.rfind('(') : std::string_view::npos;
    while (open != std::string_view::npos && open + 1 < message.size() && message[open + 1] == ')') {
        open = open == 0 ? std::string_view::npos : message.rfind('(', open - 1);
    }
    return open;
}

} // namespace

std::optional<ModuleLogLine> ParseModuleLogLine(std::string_view text)
{
    ModuleLogLine line;
    const auto time = TakeTime(text);
    const auto thread = time ? TakeBracketed(text) : std::nullopt;
    const auto level = thread ? TakeBracketed(text) : std::nullopt;
    const auto channel = level ? TakeBracketed(text) : std::nullopt;
    if (!channel) {
        return std::nullopt;
    }
    const char *end = thread->data() + thread->size();
    const auto read = std::from_chars(thread->data(), end, line.thread);
    constexpr std::string_view levels[] = {"trace", "debug", "info", "error"};
    if (read.ec != std::errc() || read.ptr != end ||
        std::find(std::begin(levels), std::end(levels), *level) == std::end(levels)) {
        return std::nullopt;
    }
    line.timeMs = *time;
    line.isError = *level == "error";
    line.channel = *channel;
    line.message = text;
    if (const size_t tag = TagBegin(text); *channel == processWideChannel && tag != std::string_view::npos) {
        line.message = text.substr(0, tag);
        line.tag = text.substr(tag + 1, text.size() - tag - 2);
    }
    return line;
}

std::string DateAndTimeText(int64_t timeMs)
{
    const std::chrono::sys_days days{
        std::chrono::floor<std::chrono::days>(std::chrono::milliseconds(timeMs))};
    const std::chrono::year_month_day date(days);
    return fmt::format("{:04}-{:02}-{:02} {}", int{date.year()}, unsigned{date.month()}, unsigned{date.day()},
                       TimeText(timeMs));
}

std::string TimeText(int64_t timeMs)
{
    const int64_t inDay = ((timeMs % dayMs) + dayMs) % dayMs;
    return fmt::format("{:02}:{:02}:{:02}.{:03}", inDay / 3600000, inDay / 60000 % 60, inDay / 1000 % 60,
                       inDay % 1000);
}

LineSplitter::LineSplitter(Sink sink) : m_sink(std::move(sink)) {}

void LineSplitter::Add(std::string_view block)
{
    while (!block.empty()) {
        const size_t end = block.find('\n');
        Append(block.substr(0, end));
        if (end == std::string_view::npos) {
            return;
        }
        m_started = true;
        EndLine();
        block.remove_prefix(end + 1);
    }
}

void LineSplitter::Finish()
{
    if (m_started) {
        EndLine();
    }
}

void LineSplitter::Append(std::string_view part)
{
    m_started = m_started || !part.empty();
    m_line += part.substr(0, longestLine - m_line.size());
}

void LineSplitter::EndLine()
{
    std::string_view line = m_line;
    if (std::exchange(m_first, false) && line.starts_with(byteOrderMark)) {
        line.remove_prefix(byteOrderMark.size());
    }
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    m_sink(line);
    m_line.clear();
    m_started = false;
}

} // namespace velto::host
