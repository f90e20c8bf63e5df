// The platform's logging library, as this module calls it: a named channel logger and a
// process-wide singleton. Both may be called from any thread, at load, at unload and at process
// exit; a log that cannot be opened never fails the caller.
//
// Lines carry a time stamp with milliseconds, the thread id, the level, the channel and the
// message as UTF-8. They go to a rotating file under the user's local application data
// (VELTO_LOG_FILE names another one; VELTO_LOG_LEVEL filters) and to the debugger.
#pragma once

#include <sstream>
#include <string>

enum LOG_MESSAGE_LEVEL {
    LOG_LEVEL_TRACE = 1,
    LOG_LEVEL_DEBUG = 2,
    LOG_LEVEL_INFO = 3,
    LOG_LEVEL_ERROR = 4,
};

// A named channel.
class Logger {
public:
    explicit Logger(std::string channel);
    ~Logger();
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    // Writes the stream's text; the stream is only read.
    void Log(LOG_MESSAGE_LEVEL level, const std::wstringstream &message);

private:
    std::string m_channel;
};

// The process-wide logger.
class NrLogger {
public:
    static NrLogger &GetInstance();

    // Writes the stream's text. The stream is modifiable by this library's contract.
    void Log(LOG_MESSAGE_LEVEL level, std::wstringstream &message);

private:
    NrLogger() = default;
};
