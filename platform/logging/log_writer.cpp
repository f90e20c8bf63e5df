#include "logging/log_writer.h"

#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "logging/first_line.h"
#include "logging/last_error.h"
#include "logging/log_settings.h"
#include "logging/log_sinks.h"
#include "logging/process_end.h"
#include "logging/utf8.h"

namespace logging {
namespace {

// Longer messages are truncated, so that a line always fits into a log file of limited size.
constexpr std::size_t maxMessageBytes = 8192;

std::unique_ptr<LogSinks> OpenSinks(std::string firstLine)
{
    LogSettings settings = ReadLogSettings();
    settings.firstLine = std::move(firstLine);
    auto sinks = std::make_unique<LogSinks>(settings);
    if (settings.levelIsInvalid) {
        sinks->Write(
            LOG_LEVEL_ERROR, "Logging",
            "VELTO_LOG_LEVEL is none of 1 to 4, trace, debug, info, error, off; everything is logged");
    }
    return sinks;
}

// The sinks that all threads share, from the first line until the module unloads.
class LogWriter {
public:
    LogWriter();
    ~LogWriter();
    LogWriter(const LogWriter &) = delete;
    LogWriter &operator=(const LogWriter &) = delete;

    void Write(LOG_MESSAGE_LEVEL level, const char *channel, const std::string &text);

private:
    std::string m_firstLine; // made while the module loads: later it would need the loader's lock
    std::mutex m_mutex;
    std::unique_ptr<LogSinks> m_sinks; // guarded by m_mutex
};

// Null before the writer is constructed and after it is destroyed, when other static objects of the module
// can still log. Constant-initialised and never destroyed.
constinit std::atomic<LogWriter *> currentWriter = nullptr;

LogWriter::LogWriter()
{
    try {
        m_firstLine = FirstLine();
    } catch (const std::exception &) {
        // Without memory, the log has no such line.
    }
    currentWriter = this;
}

LogWriter::~LogWriter()
{
    currentWriter = nullptr;
    if (ProcessIsEnding()) {
        // A killed thread may have left the sinks inconsistent: leak them. The system closes the file.
        static_cast<void>(m_sinks.release());
    }
}

void LogWriter::Write(LOG_MESSAGE_LEVEL level, const char *channel, const std::string &text)
{
    std::unique_lock lock(m_mutex, std::defer_lock);
    if (!ProcessIsEnding()) {
        lock.lock();
    } else if (!lock.try_lock()) {
        return; // a killed thread owned the lock
    }
    if (m_sinks == nullptr) {
        m_sinks = OpenSinks(m_firstLine);
    }
    m_sinks->Write(level, channel, text);
}

LogWriter writer;

} // namespace

void WriteLine(LOG_MESSAGE_LEVEL level, const char *channel, std::wstring_view message) noexcept
{
    const KeepLastError keepLastError;
    try {
        const std::string text = ToLogText(message, maxMessageBytes);
        if (LogWriter *shared = currentWriter; shared != nullptr) {
            shared->Write(level, channel, text);
        } else {
            OpenSinks({})->Write(level, channel, text);
        }
    } catch (...) {
        // Out of memory, or the lock failed. There is nowhere to report it.
    }
}

} // namespace logging
