#include "check/portable/call_storm.h"

#include <string>
#include <utility>

namespace velto::check {

CallStorm::CallStorm(const AudioHandlerTable &table, const AacUnits &units, const StormPlan &plan)
    : m_table(table), m_units(units), m_plan(plan), m_seed(plan.seed)
{
    for (const std::string id :
         {VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER, VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER}) {
        Start(ForRounds(3), 300, [id](StormCaller &caller) { caller.Write(id); });
    }
    Start(ForRounds(34), 200, &StormCaller::SetParameters);
    Start(ForRounds(34), 200, &StormCaller::CloseTrack);
    Start(ForRounds(34), 50, &StormCaller::QueryCapabilities);
    Start(ForRounds(34), 100, &StormCaller::ChangeListener);
    Start(ForRounds(1), 200, [this, recordings = 0U](StormCaller &caller) mutable {
        caller.Record();
        m_recordingsOver = ++recordings == m_plan.rounds;
    });
    for (int reader = 0; reader < 2; ++reader) {
        Start([this](uint32_t) { return !m_recordingsOver; }, 5, &StormCaller::Read);
    }
}

CallStorm::~CallStorm()
{
    Stop();
}

void CallStorm::Disturb(uint32_t stepsPerRound, uint32_t longestPauseMs, std::function<void(Random &)> step)
{
    Start(ForRounds(stepsPerRound), longestPauseMs,
          [step = std::move(step)](StormCaller &caller) { step(caller.random); });
}

CallStorm::Condition CallStorm::ForRounds(uint32_t stepsPerRound) const
{
    return [this, stepsPerRound](uint32_t stepsMade) {
        return !m_plan.rounds || stepsMade < *m_plan.rounds * stepsPerRound;
    };
}

// Starts a thread that repeats a step while the condition is true.
void CallStorm::Start(Condition condition, uint32_t longestPauseMs, Step step)
{
    StormCaller &caller =
        m_callers.emplace_back(m_table, m_units, m_plan.pace, m_plan.time, m_stopped, ++m_seed);
    m_threads.emplace_back(
        [this, &caller, condition = std::move(condition), longestPauseMs, step = std::move(step)] {
            for (uint32_t made = 0; !m_stopped && condition(made); ++made) {
                step(caller);
                caller.Pause(longestPauseMs);
            }
        });
}

void CallStorm::Finish()
{
    if (m_threads.empty()) {
        return;
    }
    for (std::thread &thread : m_threads) {
        thread.join();
    }
    m_threads.clear();
    m_callers.front().CloseAll();
}

void CallStorm::Stop()
{
    m_stopped = true;
    Finish();
}

StormFigures CallStorm::Figures() const
{
    StormFigures all;
    for (const StormCaller &caller : m_callers) {
        all.Add(caller.Figures());
    }
    return all;
}

} // namespace velto::check
