#include "logging/logger.h"

#include <algorithm>

#include "logging/log_writer.h"

// NOLINTNEXTLINE(performance-unnecessary-value-param): the platform's interface takes it by value
Logger::Logger(std::string channel)
{
    channel.copy(m_channel, std::min(channel.size(), sizeof(m_channel) - 1));
}

// Releases nothing: all channels share the file, which is closed when the module unloads.
Logger::~Logger() = default;

void Logger::Log(LOG_MESSAGE_LEVEL level, const std::wstringstream &message)
{
    logging::WriteLine(level, m_channel, message.view());
}

NrLogger &NrLogger::GetInstance()
{
    static NrLogger instance;
    return instance;
}

void NrLogger::Log(LOG_MESSAGE_LEVEL level, std::wstringstream &message)
{
    logging::WriteLine(level, "NR", message.view());
}
