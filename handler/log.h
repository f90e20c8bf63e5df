// The one way this module reports: a log site.
//
// Each site writes its message to the channel logger "OceloMirror" and then, followed by
// "(" tag ")", to the platform's process-wide NrLogger. The tag is the reporting function's
// qualified name. Sites may run on any thread: each owns its stream, and both loggers accept
// concurrent calls.
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

template <typename... Values>
void Compose(std::wstringstream &stream, const Values &...values)
{
    (Stream(stream, values), ...);
}

void WriteToBoth(LOG_MESSAGE_LEVEL level, const char *tag, std::wstringstream &stream);
void WriteToChannel(LOG_MESSAGE_LEVEL level, const std::wstringstream &stream);
void WriteToSingleton(LOG_MESSAGE_LEVEL level, const char *tag, std::wstringstream &stream);

} // namespace logdetail

template <typename... Values>
void Log(LOG_MESSAGE_LEVEL level, const char *tag, const Values &...values)
{
    std::wstringstream stream;
    logdetail::Compose(stream, values...);
    logdetail::WriteToBoth(level, tag, stream);
}

// Level 3: lifecycle events and periodic counters.
template <typename... Values>
void LogInfo(const char *tag, const Values &...values)
{
    Log(LOG_LEVEL_INFO, tag, values...);
}

// Level 4: every null argument, invalid id and failed call.
template <typename... Values>
void LogError(const char *tag, const Values &...values)
{
    Log(LOG_LEVEL_ERROR, tag, values...);
}

// For what may be reported with every packet, which the singleton is spared.
template <typename... Values>
void LogErrorToChannel(const Values &...values)
{
    std::wstringstream stream;
    logdetail::Compose(stream, values...);
    logdetail::WriteToChannel(LOG_LEVEL_ERROR, stream);
}

// For the periodic frame counter, which the channel is spared.
template <typename... Values>
void LogInfoToSingleton(const char *tag, const Values &...values)
{
    std::wstringstream stream;
    logdetail::Compose(stream, values...);
    logdetail::WriteToSingleton(LOG_LEVEL_INFO, tag, stream);
}

} // namespace velto
