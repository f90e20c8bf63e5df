#include "tests/fakes/log_recorder.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "logger_count.h"
#include "polling.h"

namespace fakes {
namespace {

// Never destroyed: the module's static objects log while the process ends.
struct State {
    std::mutex mutex;
    std::vector<std::string> channels;
    std::vector<LogEntry> entries;
    std::map<std::string, int> constructed;
    std::map<std::thread::id, LogEntry> channelOnly; // lines without their singleton line so far
};

State &TheState()
{
    static auto *state = new State;
    return *state;
}

// Splits "text(tag)". Text and tag may both contain parentheses, so the text is taken from the line to the
// channel. Without one, the tag starts at the last opening parenthesis.
LogEntry SplitTag(int level, const std::wstring &line, const LogEntry *channelLine)
{
    size_t open = line.rfind(L'(');
    if (channelLine != nullptr && line.starts_with(channelLine->text + L"(")) {
        open = channelLine->text.size();
    }
    if (open == std::wstring::npos || line.back() != L')') {
        return {level, line, "?", false};
    }
    LogEntry entry{level, line.substr(0, open), "", false};
    for (const wchar_t c : line.substr(open + 1, line.size() - open - 2)) {
        entry.tag.push_back(static_cast<char>(c));
    }
    return entry;
}

std::string Narrow(const std::wstring &text)
{
    std::string narrow;
    for (const wchar_t c : text) {
        narrow.push_back(c < 0x80 ? static_cast<char>(c) : '?');
    }
    return narrow;
}

void ToChannel(const std::string &channel, int level, const std::wstring &text)
{
    LogEntry line{level, text, "?", true}; // may throw, so it comes before any change of the state
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.channels.push_back(channel);
    LogEntry &previous = state.channelOnly[std::this_thread::get_id()];
    if (!previous.tag.empty()) {
        state.entries.push_back(previous);
    }
    previous = std::move(line);
}

void ToSingleton(int level, const std::wstring &text)
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    const auto channelLine = state.channelOnly.find(std::this_thread::get_id());
    const bool hasChannelLine = channelLine != state.channelOnly.end();
    LogEntry entry = SplitTag(level, text, hasChannelLine ? &channelLine->second : nullptr);
    if (hasChannelLine) {
        if (channelLine->second.level == level && channelLine->second.text == entry.text) {
            entry.inChannel = true;
        } else {
            state.entries.push_back(channelLine->second);
        }
        state.channelOnly.erase(channelLine);
    }
    state.entries.push_back(std::move(entry));
}

} // namespace

void PrintTo(const LogEntry &entry, std::ostream *out)
{
    *out << "{" << entry.level << ", \"" << Narrow(entry.text) << "\", \"" << entry.tag << "\""
         << (entry.inChannel ? "" : ", singleton only") << "}";
}

LogRecorder &LogRecorder::Instance()
{
    static LogRecorder recorder;
    return recorder;
}

void LogRecorder::Clear()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.channels.clear();
    state.entries.clear();
    state.channelOnly.clear();
}

std::vector<LogEntry> LogRecorder::Entries() const
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    std::vector<LogEntry> entries = state.entries;
    for (const auto &[thread, line] : state.channelOnly) {
        entries.push_back(line);
    }
    return entries;
}

std::vector<LogEntry> LogRecorder::EntriesOf(const std::string &tag) const
{
    std::vector<LogEntry> entries = Entries();
    std::erase_if(entries, [&](const LogEntry &entry) { return entry.tag != tag; });
    return entries;
}

int LogRecorder::Count(int level, const std::wstring &text, const std::string &tag) const
{
    const std::vector<LogEntry> entries = Entries();
    return static_cast<int>(std::count(entries.begin(), entries.end(), LogEntry{level, text, tag, true}));
}

std::vector<std::string> LogRecorder::Channels() const
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.channels;
}

int ConstructedLoggers(const std::string &channel)
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    const auto found = state.constructed.find(channel);
    return found == state.constructed.end() ? 0 : found->second;
}

bool LogRecorder::Await(int level, const std::wstring &text, const std::string &tag) const
{
    return Eventually([&] { return Count(level, text, tag) > 0; });
}

} // namespace fakes

// --- The interface of the platform's library ---------------------------------------------------

// Sleeps, so that other threads of a test need the logger before it is constructed.
Logger::Logger(std::string channel)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    {
        const std::lock_guard lock(fakes::TheState().mutex);
        ++fakes::TheState().constructed[channel];
    }
    channel.copy(m_channel, sizeof(m_channel) - 1);
}

Logger::~Logger() = default;

void Logger::Log(LOG_MESSAGE_LEVEL level, const std::wstringstream &message)
{
    fakes::ToChannel(m_channel, level, message.str());
}

NrLogger &NrLogger::GetInstance()
{
    static NrLogger logger;
    return logger;
}

void NrLogger::Log(LOG_MESSAGE_LEVEL level, std::wstringstream &message)
{
    fakes::ToSingleton(level, message.str());
}
