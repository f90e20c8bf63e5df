// The platform's logging library, as this module calls it: a named channel logger and a process-wide
// singleton. Both can be called from any thread, at load, at unload and at process exit, even after the
// static objects of the module have been destroyed. A log that cannot be opened is no error for the caller,
// and no call throws or changes the thread's last error.
//
// A line has the time in milliseconds, the thread id, the level, the channel and the message, as UTF-8.
// Lines go to a rotating file in the user's local application data and to the debugger. The environment
// variable VELTO_LOG_FILE selects another file, VELTO_LOG_LEVEL the lowest level that is written.
#pragma once

#include <sstream>
#include <string>

enum LOG_MESSAGE_LEVEL {
    LOG_LEVEL_TRACE = 1,
    LOG_LEVEL_DEBUG = 2,
    LOG_LEVEL_INFO = 3,
    LOG_LEVEL_ERROR = 4,
};

// A named channel. Names are truncated to 63 bytes.
class Logger {
public:
    explicit Logger(std::string channel);
    ~Logger(); // NOLINT(performance-trivially-destructible): callers link to it
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    // Writes the stream's text; the stream is only read.
    void Log(LOG_MESSAGE_LEVEL level, const std::wstringstream &message);

private:
    // An array and not a std::string: static objects that are destroyed later at unload may log through this
    // object after its destruction, and still need the name.
    char m_channel[64] = {};
};

// The process-wide logger.
class NrLogger {
public:
    static NrLogger &GetInstance();

    // Writes the stream's text, which is only read. The platform's interface takes a non-const reference.
    void Log(LOG_MESSAGE_LEVEL level, std::wstringstream &message);

private:
    NrLogger() = default;
};
