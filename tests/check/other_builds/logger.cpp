// A host platform's logging library: lines go to the debugger, not to a file.
#include "logging/logger.h"

#include <windows.h>

#include <sstream>

Logger::Logger(std::string) {}
Logger::~Logger() = default;

void Logger::Log(LOG_MESSAGE_LEVEL, const std::wstringstream &line)
{
    OutputDebugStringW(line.str().c_str());
}

NrLogger &NrLogger::GetInstance()
{
    static NrLogger logger;
    return logger;
}

void NrLogger::Log(LOG_MESSAGE_LEVEL, std::wstringstream &line)
{
    OutputDebugStringW(line.str().c_str());
}
