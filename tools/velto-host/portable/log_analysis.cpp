#include "velto-host/portable/log_analysis.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include <fmt/format.h>

namespace velto::host {
namespace {

constexpr int64_t pauseMs = 3000;     // between two units; the module counts units in a line each second
constexpr uint64_t unitsPerLine = 50; // of the module's count
constexpr size_t brokenLinesShown = 10;
constexpr size_t mostThreads = 4096; // whose last message is kept
constexpr size_t mostRememberedEvents = 4096;

// The number after `before`, in decimal or as 0x hexadecimal digits.
std::optional<int64_t> NumberAfter(std::string_view message, std::string_view before)
{
    const size_t found = message.find(before);
    if (found == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view digits = message.substr(found + before.size());
    const int base = digits.starts_with("0x") ? 16 : 10;
    digits.remove_prefix(base == 16 ? 2 : 0);
    int64_t number = 0;
    return std::from_chars(digits.data(), digits.data() + digits.size(), number, base).ec == std::errc()
               ? std::optional(number)
               : std::nullopt;
}

// What distinguishes two messages of one row.
std::string DetailOf(RowId row, std::string_view message)
{
    if (row == RowId::STEP_FAILED) {
        const auto line = NumberAfter(message, "Line:");
        const auto result = NumberAfter(message, "fail with ");
        const std::string_view step = line ? StepName(static_cast<int>(*line)) : "";
        return fmt::format("step {}{}{}{}", line.value_or(0), step.empty() ? "" : ", ", step,
                           result ? ": " + ResultText(static_cast<uint32_t>(*result)) : "");
    }
    if (row == RowId::DAMAGED_UNIT) {
        return fmt::format("error {}", NumberAfter(message, "error:").value_or(0));
    }
    if (row == RowId::NO_DECODER || row == RowId::CALL_FAILED || row == RowId::MISSES_CHANGES) {
        return std::string(message);
    }
    return {};
}

// The message with "#" for each number, so that messages that differ only in numbers are counted together.
std::string WithoutNumbers(std::string_view message)
{
    std::string text;
    for (const char c : message) {
        if (c < '0' || c > '9') {
            text += c;
        } else if (text.empty() || text.back() != '#') {
            text += '#';
        }
    }
    constexpr size_t longest = 200;
    if (text.size() <= longest) {
        return text;
    }
    size_t end = longest;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80) {
        --end; // not inside a UTF-8 character
    }
    return text.substr(0, end) + "...";
}

// Whether a row is left out of the time line: units arrive all the time, and the others are frequent in a
// good call.
bool IsOnlyCounted(RowId row)
{
    return row == RowId::UNITS_ARRIVE || row == RowId::NOTHING_PLAYED_YET || row == RowId::BUFFER_FULL ||
           row == RowId::NOTHING_RECORDED_YET;
}

void Extend(LogFinding &finding, int64_t timeMs, uint64_t number)
{
    finding.firstMs = finding.count == 0 ? timeMs : std::min(finding.firstMs, timeMs);
    finding.lastMs = finding.count == 0 ? timeMs : std::max(finding.lastMs, timeMs);
    finding.count += number;
}

int64_t FloorTo(int64_t value, int64_t step)
{
    return value - ((value % step) + step) % step;
}

} // namespace

LogCounts &LogCounts::operator+=(const LogCounts &other)
{
    for (const LogColumn &column : logColumns) {
        this->*column.count += other.*column.count;
    }
    return *this;
}

std::map<int64_t, LogCounts> LogResult::Per(int64_t length) const
{
    std::map<int64_t, LogCounts> periods;
    for (const auto &[second, counts] : seconds) {
        periods[FloorTo(second, length)] += counts;
    }
    return periods;
}

void LogAnalysis::Add(std::string_view text)
{
    ++m_result.lines;
    const auto line = ParseModuleLogLine(text);
    if (!line) {
        ++m_result.brokenLines;
        if (m_result.firstBrokenLines.size() < brokenLinesShown) {
            m_result.firstBrokenLines.push_back(m_result.lines);
        }
        return;
    }
    const bool isFirst = m_result.lines - m_result.brokenLines == 1;
    m_result.beginMs = isFirst ? line->timeMs : std::min(m_result.beginMs, line->timeMs);
    m_result.endMs = isFirst ? line->timeMs : std::max(m_result.endMs, line->timeMs);
    // After a rotation, this line may come between the two lines of a message.
    if (line->channel == "Logging" && line->message.starts_with("LibVeltoAudioHandler ")) {
        AddBuild(*line);
    } else if (!IsRepeated(*line)) {
        AddMessage(*line);
    }
}

LogResult LogAnalysis::Finish()
{
    EndProcess();
    for (LogRecording &recording : m_result.recordings) {
        recording.endMs = recording.hasEnd ? recording.endMs : m_result.endMs;
    }
    std::stable_sort(m_result.events.begin(), m_result.events.end(),
                     [](const LogEvent &a, const LogEvent &b) { return a.beginMs < b.beginMs; });
    return std::move(m_result);
}

// True for the second line of a message. Both lines come from one thread, with no other line of this thread
// between them.
bool LogAnalysis::IsRepeated(const ModuleLogLine &line)
{
    const auto last = m_channelMessages.find(line.thread);
    const bool isSecond =
        line.channel == processWideChannel && last != m_channelMessages.end() && last->second == line.message;
    if (last != m_channelMessages.end()) {
        m_channelMessages.erase(last);
    }
    if (line.channel != processWideChannel) {
        if (m_channelMessages.size() >= mostThreads) {
            m_channelMessages.clear();
        }
        m_channelMessages.emplace(line.thread, line.message);
    }
    return isSecond;
}

void LogAnalysis::AddMessage(const ModuleLogLine &line)
{
    ++m_result.messages;
    if (const auto row = RowOfMessage(line.message)) {
        AddRow(*row, line);
    } else if (line.message.find("Initialize end.") != std::string_view::npos) {
        m_speakerOpened = true;
        m_played.erase(line.thread);
    } else if (line.message.find("Need to change default audio device.") != std::string_view::npos) {
        m_played.erase(line.thread);
    } else if (line.message == "deviceEnumerator RegisterEndpointNotificationCallback") {
        BeginRecording(line.timeMs);
    } else if (line.message == "AudioDeviceNotify::UnInitialize()") {
        EndRecording(line.timeMs);
    } else if (line.isError) {
        AddOtherError(line);
    }
}

// A recording registers for changes of the default microphone when it starts, and again after each restart.
void LogAnalysis::BeginRecording(int64_t timeMs)
{
    auto &recordings = m_result.recordings;
    if (std::exchange(m_restartIsPending, false) && !recordings.empty()) {
        ++recordings.back().restarts;
        recordings.back().hasEnd = false;
    } else {
        recordings.push_back({timeMs, timeMs, 0, false});
    }
}

void LogAnalysis::EndRecording(int64_t timeMs)
{
    if (!m_result.recordings.empty()) {
        m_result.recordings.back().endMs = timeMs;
        m_result.recordings.back().hasEnd = true;
    }
}

void LogAnalysis::AddRow(RowId row, const ModuleLogLine &line)
{
    switch (row) {
    case RowId::UNITS_ARRIVE:
        AddUnits(line);
        return;
    case RowId::CUSHION:
        AddCushion(line);
        return;
    case RowId::UNDERRUN:
        AddUnderrun(line);
        return;
    default:
        break;
    }
    if (row == RowId::SPEAKER_CHANGED && line.message.ends_with("same deviceId")) {
        return; // the line before it was counted
    }
    CountRow(row, line);
    Find(row, line.timeMs);
    AddEvent(row, DetailOf(row, line.message), line.timeMs);
}

void LogAnalysis::CountRow(RowId row, const ModuleLogLine &line)
{
    switch (row) {
    case RowId::DAMAGED_UNIT:
        Count(&LogCounts::decodeErrors, line);
        if (m_streamIsOpen) {
            ++m_result.streams.back().decodeErrors;
        }
        break;
    case RowId::BUFFER_FULL:
    case RowId::SPEAKER_STUCK:
        Count(&LogCounts::fullBuffers, line);
        break;
    case RowId::NO_SPEAKER:
    case RowId::SPEAKER_LOST:
        Count(&LogCounts::lostUnits, line);
        break;
    case RowId::SPEAKER_REOPENED:
        m_played.erase(line.thread);
        [[fallthrough]];
    case RowId::SPEAKER_CHANGED:
        Count(&LogCounts::deviceChanges, line);
        break;
    case RowId::MICROPHONE_CHANGED:
        m_restartIsPending = true;
        Count(&LogCounts::deviceChanges, line);
        Count(&LogCounts::restarts, line);
        break;
    default:
        break;
    }
}

// The module counts the calls since it was loaded, in the first line with 1, then with 51, 101 and so on.
void LogAnalysis::AddUnits(const ModuleLogLine &line)
{
    const auto counter = static_cast<uint64_t>(std::max<int64_t>(
        NumberAfter(line.message, "received").value_or(static_cast<int64_t>(unitsPerLine)), 1));
    const bool isNewProcess = counter == 1 || (m_counter && counter < *m_counter);
    if (isNewProcess) {
        EndProcess();
        BeginProcess();
        m_processMs = line.timeMs;
        m_processIsKnown = counter == 1;
    }
    // A gap in the count is a gap in the log; the units in it belong to an unknown time.
    const uint64_t passed =
        m_counter && !isNewProcess ? counter - *m_counter : std::min(counter, unitsPerLine);
    const uint64_t units = std::min(passed, unitsPerLine);
    if (!m_streamIsOpen || line.timeMs - m_lastUnitMs > pauseMs) {
        BeginStream(line.timeMs, isNewProcess || !m_result.streams.empty());
    }
    LogStream &stream = m_result.streams.back();
    stream.units += units;
    stream.endMs = line.timeMs;
    m_lastUnitMs = line.timeMs;
    m_counter = counter;
    m_processUnits += units;
    m_unitsSinceCushion = true;
    Count(&LogCounts::units, line, units);
    Find(RowId::UNITS_ARRIVE, line.timeMs);
}

// A second speaker's cushion follows the first one's at once; a later one begins another stream.
void LogAnalysis::AddCushion(const ModuleLogLine &line)
{
    const bool isPause = !m_streamIsOpen || line.timeMs - m_lastUnitMs > pauseMs;
    if (isPause || (m_result.streams.back().hasCushion && m_unitsSinceCushion)) {
        BeginStream(line.timeMs, true);
    }
    m_result.streams.back().hasCushion = true;
    m_result.streams.back().endMs = std::max(m_result.streams.back().endMs, line.timeMs);
    m_lastUnitMs = line.timeMs;
    m_unitsSinceCushion = false;
    Find(RowId::CUSHION, line.timeMs);
    AddEvent(RowId::CUSHION, "", line.timeMs);
}

// A play thread's first empty buffer in a stream, or on another device, is no underrun.
void LogAnalysis::AddUnderrun(const ModuleLogLine &line)
{
    if (m_played.insert(line.thread).second) {
        Find(RowId::NOTHING_PLAYED_YET, line.timeMs);
        return;
    }
    Count(&LogCounts::underruns, line);
    if (m_streamIsOpen) {
        ++m_result.streams.back().underruns;
    }
    Find(RowId::UNDERRUN, line.timeMs);
    AddEvent(RowId::UNDERRUN, "", line.timeMs);
}

void LogAnalysis::AddBuild(const ModuleLogLine &line)
{
    ++m_result.messages;
    auto &builds = m_result.builds;
    const bool isKnown = std::any_of(builds.begin(), builds.end(),
                                     [&](const LogBuild &each) { return each.text == line.message; });
    if (!isKnown && builds.size() < mostBuilds) {
        builds.push_back({std::string(line.message), line.timeMs});
    }
}

void LogAnalysis::AddOtherError(const ModuleLogLine &line)
{
    Count(&LogCounts::otherErrors, line);
    std::string text = WithoutNumbers(line.message);
    if (!m_result.otherErrors.contains(text) && m_result.otherErrors.size() >= mostOtherErrors - 1) {
        text = "(other messages)";
    }
    Extend(m_result.otherErrors[text], line.timeMs, 1);
}

void LogAnalysis::Count(uint64_t LogCounts::*what, const ModuleLogLine &line, uint64_t number)
{
    if (number > 0) {
        m_result.seconds[FloorTo(line.timeMs, 1000) / 1000].*what += number;
    }
}

void LogAnalysis::Find(RowId row, int64_t timeMs, uint64_t number)
{
    Extend(m_result.findings[row], timeMs, number);
}

void LogAnalysis::AddEvent(RowId row, std::string detail, int64_t timeMs, uint64_t number)
{
    if (IsOnlyCounted(row)) {
        return;
    }
    auto &events = m_result.events;
    const auto key = std::pair(row, detail);
    const auto last = m_lastEvents.find(key);
    if (last != m_lastEvents.end() && last->second >= m_streamEvents &&
        std::abs(timeMs - events[last->second].endMs) <= pauseMs) {
        LogEvent &event = events[last->second];
        event.endMs = std::max(event.endMs, timeMs);
        event.count += number;
        return;
    }
    if (events.size() >= mostEvents) {
        ++m_result.eventsOmitted;
        return;
    }
    if (m_lastEvents.size() >= mostRememberedEvents) {
        m_lastEvents.clear();
    }
    m_lastEvents[key] = events.size();
    events.push_back({row, std::move(detail), timeMs, timeMs, number});
}

void LogAnalysis::BeginStream(int64_t timeMs, bool beginsInLog)
{
    EndStream();
    m_streamIsOpen = true;
    m_unitsSinceCushion = false;
    m_played.clear();
    m_streamEvents = m_result.events.size(); // an event does not continue one of another stream
    const auto damaged = m_result.findings.find(RowId::DAMAGED_UNIT);
    m_damagedBefore = damaged == m_result.findings.end() ? std::nullopt : std::optional(damaged->second);
    LogStream &stream = m_result.streams.emplace_back();
    stream.beginMs = stream.endMs = timeMs;
    stream.beginsInLog = beginsInLog;
}

void LogAnalysis::EndStream()
{
    if (!std::exchange(m_streamIsOpen, false)) {
        return;
    }
    const LogStream &stream = m_result.streams.back();
    // A quarter allows for the units that are known to within one line of the module's count.
    const bool isNotAac = stream.units >= unitsPerLine && stream.decodeErrors * 4 >= stream.units * 3;
    if (isNotAac) {
        for (size_t i = m_streamEvents; i < m_result.events.size(); ++i) {
            if (m_result.events[i].row == RowId::DAMAGED_UNIT) {
                m_result.events[i].row = RowId::NOT_AAC;
            }
        }
        m_result.findings.erase(RowId::DAMAGED_UNIT);
        if (m_damagedBefore) {
            m_result.findings[RowId::DAMAGED_UNIT] = *m_damagedBefore;
        }
        Find(RowId::NOT_AAC, stream.beginMs, stream.decodeErrors);
        Find(RowId::NOT_AAC, stream.endMs, 0);
    }
    if (stream.beginsInLog && !stream.hasCushion && stream.units > unitsPerLine && !isNotAac) {
        Find(RowId::NO_CUSHION, stream.beginMs);
        AddEvent(RowId::NO_CUSHION, "", stream.beginMs);
    }
}

void LogAnalysis::BeginProcess()
{
    m_counter.reset();
    m_speakerOpened = false;
    m_processUnits = 0;
}

void LogAnalysis::EndProcess()
{
    EndStream();
    if (std::exchange(m_processIsKnown, false) && !m_speakerOpened && m_processUnits > unitsPerLine) {
        Find(RowId::SPEAKER_NOT_OPENED, m_processMs);
        AddEvent(RowId::SPEAKER_NOT_OPENED, "", m_processMs);
    }
}

} // namespace velto::host
