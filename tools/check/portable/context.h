// What a check gets while it runs: the module's table, the environment, random numbers, and the functions
// that report results.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "check/portable/environment.h"
#include "check/portable/events.h"
#include "check/portable/random.h"
#include "velto/audio_handler.h"

namespace velto::check {

// Thrown to leave a check that cannot continue, after the reason was reported.
struct CheckEnded {};

// The listed functions may be called from any thread; the random numbers belong to the check's thread.
class Context {
public:
    // All references outlive this object.
    Context(VeltoGetAudioHandlerFunction entry, const AudioHandlerTable &table, Environment &environment,
            EventSink &events, Random random)
        : entry(entry), table(table), environment(environment), random(random), m_events(events)
    {
    }
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;

    // Call before calls that might crash or hang: names the clauses that a crash or a hang would break.
    void Step(std::string_view text, const std::vector<std::string_view> &clauses);

    // Reports a broken clause unless `isTrue`; returns `isTrue`. The check continues.
    bool Expect(bool isTrue, std::string_view clause, std::string_view text);
    template <typename Value, typename... Arguments>
    bool ExpectEqual(const Value &actual, const Value &expected, std::string_view clause,
                     fmt::format_string<Arguments...> text, Arguments &&...arguments)
    {
        return actual == expected ||
               Expect(false, clause,
                      fmt::format("{}: {} instead of {}",
                                  fmt::format(text, std::forward<Arguments>(arguments)...), actual,
                                  expected));
    }
    // Expect, and ends the check if it is false.
    void Require(bool isTrue, std::string_view clause, std::string_view text);
    void Warn(std::string_view text);
    void Measured(std::string_view name, double value, std::string_view unit);
    // Ends the check as skipped.
    [[noreturn]] void Skip(std::string_view reason);

    const VeltoGetAudioHandlerFunction entry;
    const AudioHandlerTable &table; // filled by the entry
    Environment &environment;
    Random random;

private:
    EventSink &m_events;
    std::mutex m_mutex; // one event at a time
};

} // namespace velto::check
