// The platform's logging library, as this module calls it: a named channel logger and a
// process-wide singleton. Both may be called from any thread, at load, at unload and at process
// exit, even after the static objects of the module have been destroyed; a log that cannot be
// opened never fails the caller, and no call throws or changes the thread's last error.
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

// A named channel. A name longer than 63 bytes is cut.
class Logger {
public:
    explicit Logger(std::string channel);
    ~Logger(); // NOLINT(performance-trivially-destructible): callers link to it
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    // Writes the stream's text; the stream is only read.
    void Log(LOG_MESSAGE_LEVEL level, const std::wstringstream &message);

private:
    // A plain array: a destructor that runs late at unload may still log through this object
    // after its own destruction, and then has to find the name as it was.
    char m_channel[64] = {};
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
