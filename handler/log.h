// The module's log functions.
//
// Each call writes its message to the channel logger "OceloMirror" and then, followed by "(" tag ")", to the
// platform's process-wide NrLogger. The tag is the reporting function's qualified name. Calls may run on any
// thread: each has its own stream, and both loggers accept concurrent calls.
//
// Log calls never throw: error handlers log, and they may be out of memory. A line that cannot be built
// completely is lost.
#pragma once

#include <sstream>
#include <string>

#include "logging/logger.h"

namespace velto {

// The channel logger. The first call constructs it; it exists until the module unloads.
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

// Builds the message and calls `write(stream)`. A stream that runs out of memory turns bad; its incomplete
// message is not written.
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
        return; // no memory for the line
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

// Level 4, for a line that can repeat with every packet: keeps it out of the process-wide logger.
template <typename... Values>
void LogErrorToChannel(const Values &...values) noexcept
{
    logdetail::WriteMessage(
        [](const std::wstringstream &stream) { logdetail::WriteToChannel(LOG_LEVEL_ERROR, stream); },
        values...);
}

// Level 3, for the periodic frame counter: keeps it out of the channel.
template <typename... Values>
void LogInfoToSingleton(const char *tag, const Values &...values) noexcept
{
    logdetail::WriteMessage(
        [tag](std::wstringstream &stream) { logdetail::WriteToSingleton(LOG_LEVEL_INFO, tag, stream); },
        values...);
}

} // namespace velto
