// The module's log functions.
//
// Log, LogInfo and LogError write their message to the channel logger "OceloMirror" and then, followed by
// "(" tag ")", to the platform's process-wide NrLogger. The tag is the reporting function's qualified name.
// All log functions may run on any thread: each call builds its own stream, and both loggers accept
// concurrent calls.
//
// Log functions never throw, because error handlers call them, also when memory has run out. A line that
// cannot be built completely is lost.
#pragma once

#include <sstream>
#include <string>

#include "logging/logger.h"

namespace velto {

// The channel logger. The first call constructs it; the logger exists until the module unloads.
Logger &ChannelLogger();

namespace logdetail {

template <typename Value>
void Stream(std::wostream &out, const Value &value)
{
    out << value;
}

// Wide streams widen narrow literals themselves, but not std::string.
inline void Stream(std::wostream &out, const std::string &value)
{
    out << value.c_str();
}

void WriteToBoth(LOG_MESSAGE_LEVEL level, const char *tag, std::wstringstream &stream);
void WriteToChannel(LOG_MESSAGE_LEVEL level, const std::wstringstream &stream);
void WriteToSingleton(LOG_MESSAGE_LEVEL level, const char *tag, std::wstringstream &stream);

// Builds the message and calls `write(stream)`. A stream that runs out of memory is no longer good(), and its
// incomplete message is not written.
template <typename Write, typename... Values>
void WriteMessage(Write write, const Values &...values) noexcept
{
    try {
        std::wstringstream stream;
        (Stream(stream, values), ...);
        if (stream.good()) {
            write(stream);
        }
    } catch (...) {
        // No memory for the line.
    }
}

} // namespace logdetail

template <typename... Values>
void Log(LOG_MESSAGE_LEVEL level, const char *tag, const Values &...values) noexcept
{
    logdetail::WriteMessage(
        [level, tag](std::wstringstream &stream) { logdetail::WriteToBoth(level, tag, stream); }, values...);
}

// Level 3: lifecycle events and periodic counters.
template <typename... Values>
void LogInfo(const char *tag, const Values &...values) noexcept
{
    Log(LOG_LEVEL_INFO, tag, values...);
}

// Level 4: null arguments, invalid ids and failed calls.
template <typename... Values>
void LogError(const char *tag, const Values &...values) noexcept
{
    Log(LOG_LEVEL_ERROR, tag, values...);
}

// Level 4, to the channel only: for a line that can repeat with every packet.
template <typename... Values>
void LogErrorToChannel(const Values &...values) noexcept
{
    logdetail::WriteMessage(
        [](const std::wstringstream &stream) { logdetail::WriteToChannel(LOG_LEVEL_ERROR, stream); },
        values...);
}

// Level 3, to the process-wide logger only: for the periodic counter of writes.
template <typename... Values>
void LogInfoToSingleton(const char *tag, const Values &...values) noexcept
{
    logdetail::WriteMessage(
        [tag](std::wstringstream &stream) { logdetail::WriteToSingleton(LOG_LEVEL_INFO, tag, stream); },
        values...);
}

} // namespace velto
