// Reads the lines of a module log and explains them: streams, a time line, counts for each second, and the
// rows of the troubleshooting table that apply.
//
// The module writes each message twice, once for each of its loggers; both lines count as one message. A log
// with the lines of one logger alone gives the same counts.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "velto-host/portable/log_line.h"
#include "velto-host/portable/troubleshooting.h"

namespace velto::host {

// What is counted for each second.
struct LogCounts {
    uint64_t units = 0;
    uint64_t underruns = 0;
    uint64_t fullBuffers = 0; // passes that found the endpoint's buffer full
    uint64_t decodeErrors = 0;
    uint64_t lostUnits = 0; // for which there was no loudspeaker
    uint64_t deviceChanges = 0;
    uint64_t restarts = 0; // of the microphone
    uint64_t otherErrors = 0;

    LogCounts &operator+=(const LogCounts &other);
};

struct LogColumn {
    const char *name; // in JSON
    const char *title;
    uint64_t LogCounts::*count;
};

// The members of LogCounts.
inline constexpr std::array<LogColumn, 8> logColumns{{
    {"units", "units", &LogCounts::units},
    {"underruns", "underruns", &LogCounts::underruns},
    {"fullBuffers", "full buffers", &LogCounts::fullBuffers},
    {"decodeErrors", "decode errors", &LogCounts::decodeErrors},
    {"lostUnits", "lost units", &LogCounts::lostUnits},
    {"deviceChanges", "device changes", &LogCounts::deviceChanges},
    {"restarts", "restarts", &LogCounts::restarts},
    {"otherErrors", "other errors", &LogCounts::otherErrors},
}};

// The units from one start of sending to the next pause of more than 3 s. `units` is known to within 50.
struct LogStream {
    int64_t beginMs = 0;
    int64_t endMs = 0;
    uint64_t units = 0;
    uint64_t underruns = 0;
    uint64_t decodeErrors = 0;
    bool hasCushion = false;
    bool beginsInLog = false; // false if the log may begin in the middle of it
};

// A recording of the microphone.
struct LogRecording {
    int64_t beginMs = 0;
    int64_t endMs = 0; // the log's end if the recording was not closed
    uint64_t restarts = 0;
    bool hasEnd = false;
};

// Equal messages that follow one another within 3 s.
struct LogEvent {
    RowId row{};
    std::string detail;
    int64_t beginMs = 0;
    int64_t endMs = 0;
    uint64_t count = 0;
};

// A row that applies.
struct LogFinding {
    uint64_t count = 0;
    int64_t firstMs = 0;
    int64_t lastMs = 0;
};

// A build of the module, as its lines of the channel "Logging" name it.
struct LogBuild {
    std::string text;
    int64_t firstMs = 0;
};

struct LogResult {
    uint64_t lines = 0;
    uint64_t brokenLines = 0;               // that are no lines of the module
    std::vector<uint64_t> firstBrokenLines; // their numbers, the first 10
    uint64_t messages = 0;
    int64_t beginMs = 0; // the earliest and the latest line
    int64_t endMs = 0;
    std::vector<LogBuild> builds; // different ones
    std::vector<LogStream> streams;
    std::vector<LogRecording> recordings;
    std::vector<LogEvent> events; // by their begin
    uint64_t eventsOmitted = 0;   // beyond mostEvents
    std::map<RowId, LogFinding> findings;
    std::map<std::string, LogFinding> otherErrors; // by message, with "#" for each number
    std::map<int64_t, LogCounts> seconds;          // by second since 1970

    // Counts for each period of `length` seconds that has any. Periods begin at multiples of their length.
    std::map<int64_t, LogCounts> Per(int64_t length) const;
};

class LogAnalysis {
public:
    static constexpr size_t mostEvents = 100000;
    static constexpr size_t mostBuilds = 100;
    static constexpr size_t mostOtherErrors = 200; // kinds; the last one collects the others

    // A line without its ending.
    void Add(std::string_view text);
    // The result so far, after the last line. To be called once.
    LogResult Finish();

private:
    void AddMessage(const ModuleLogLine &line);
    bool IsRepeated(const ModuleLogLine &line);
    void AddRow(RowId row, const ModuleLogLine &line);
    void CountRow(RowId row, const ModuleLogLine &line);
    void AddUnits(const ModuleLogLine &line);
    void AddCushion(const ModuleLogLine &line);
    void AddUnderrun(const ModuleLogLine &line);
    void AddBuild(const ModuleLogLine &line);
    void AddOtherError(const ModuleLogLine &line);
    void Count(uint64_t LogCounts::*what, const ModuleLogLine &line, uint64_t number = 1);
    void Find(RowId row, int64_t timeMs, uint64_t number = 1);
    void AddEvent(RowId row, std::string detail, int64_t timeMs, uint64_t number = 1);
    void BeginRecording(int64_t timeMs);
    void EndRecording(int64_t timeMs);
    void BeginStream(int64_t timeMs, bool beginsInLog);
    void EndStream();
    void BeginProcess();
    void EndProcess();

    LogResult m_result;
    std::map<uint32_t, std::string> m_channelMessages; // by thread: the last one without its second line
    std::map<std::pair<RowId, std::string>, size_t> m_lastEvents; // indices in m_result.events
    bool m_streamIsOpen = false;
    bool m_unitsSinceCushion = false;
    bool m_restartIsPending = false; // of the microphone
    int64_t m_lastUnitMs = 0;
    std::optional<uint64_t> m_counter; // the module's count of calls
    std::set<uint32_t> m_played; // play threads that found an empty buffer in this stream, or on this device
    size_t m_streamEvents = 0;   // the first event of the current stream
    std::optional<LogFinding> m_damagedBefore; // the row DAMAGED_UNIT when the current stream began
    // The current process, if the log has its beginning.
    bool m_processIsKnown = false;
    bool m_speakerOpened = false;
    int64_t m_processMs = 0;
    uint64_t m_processUnits = 0;
};

} // namespace velto::host
