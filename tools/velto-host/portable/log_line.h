// Splits the module's log into lines, and a line into its parts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace velto::host {

// Views into the line's text.
struct ModuleLogLine {
    int64_t timeMs = 0; // local time, as milliseconds since 1970-01-01 00:00 local time
    uint32_t thread = 0;
    bool isError = false;
    std::string_view channel; // "NR" is the process-wide logger
    std::string_view message; // without the tag
    std::string_view tag;     // the reporting function; only the process-wide logger has it
};

inline constexpr std::string_view processWideChannel = "NR";

// Null if the line is broken. `text` is the line without its ending.
std::optional<ModuleLogLine> ParseModuleLogLine(std::string_view text);

// "2026-03-07 04:05:06.007".
std::string DateAndTimeText(int64_t timeMs);
// "04:05:06.007".
std::string TimeText(int64_t timeMs);

// Joins blocks of a file into lines. Accepts both line endings, and leaves out a byte order mark.
class LineSplitter {
public:
    // The rest of a longer line is dropped. The module's lines are shorter.
    static constexpr size_t longestLine = 65536;

    using Sink = std::function<void(std::string_view line)>;

    explicit LineSplitter(Sink sink);
    void Add(std::string_view block);
    // Passes on a last line without an ending.
    void Finish();

private:
    void Append(std::string_view part);
    void EndLine();

    Sink m_sink;
    std::string m_line;
    bool m_first = true;
    bool m_started = false; // the current line has a byte, or is a line because its ending came
};

} // namespace velto::host
