// The one way this module reports: a log site.
//
// Each site writes its message to the channel logger "OceloMirror" and then, followed by
// "(" tag ")", to the platform's process-wide NrLogger. The tag is the reporting function's
// qualified name. Sites may run on any thread: each owns its stream, and both loggers accept
// concurrent calls.
//
// A site never throws: error handlers log, and they may be out of memory themselves. A line that
// cannot be built completely is lost.
#pragma once

#include <sstream>
#include <string>

#include "logging/logger.h"

namespace velto {

// The channel logger, constructed by the first caller and kept until the module unloads.
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

// Builds the message and calls `write(stream)`. A stream that runs out of memory turns bad and keeps
// the beginning of the message, which is not written.
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

// Level 4: every null argument, invalid id and failed call.
template <typename... Values>
void LogError(const char *tag, const Values &...values) noexcept
{
    Log(LOG_LEVEL_ERROR, tag, values...);
}

// For what may be reported with every packet, which the singleton is spared.
template <typename... Values>
void LogErrorToChannel(const Values &...values) noexcept
{
    logdetail::WriteMessage(
        [](const std::wstringstream &stream) { logdetail::WriteToChannel(LOG_LEVEL_ERROR, stream); },
        values...);
}

// For the periodic frame counter, which the channel is spared.
template <typename... Values>
void LogInfoToSingleton(const char *tag, const Values &...values) noexcept
{
    logdetail::WriteMessage(
        [tag](std::wstringstream &stream) { logdetail::WriteToSingleton(LOG_LEVEL_INFO, tag, stream); },
        values...);
}

} // namespace velto
