#include "tests/tools/call_storm.h"

#include <string>
#include <utility>

namespace velto_test {
namespace {

void Join(std::vector<std::thread> &threads)
{
    for (std::thread &thread : threads) {
        thread.join();
    }
    threads.clear();
}

} // namespace

CallStorm::CallStorm(const AudioHandlerTable &table, const AacUnits &units, const StormPlan &plan)
    : m_table(table), m_units(units), m_plan(plan), m_seed(plan.seed)
{
    for (const std::string id :
         {VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER, VELTO_ID_SPEAKER, VELTO_ID_MODEM_SPEAKER}) {
        Start(3, 300, [id](StormCaller &caller) { caller.Write(id); });
    }
    Start(34, 200, &StormCaller::SetParameters);
    Start(34, 200, &StormCaller::CloseTrack);
    Start(34, 50, &StormCaller::QueryCapabilities);
    Start(34, 100, &StormCaller::ChangeListener);
    Start(1, 200, &StormCaller::Record);
    for (int reader = 0; reader < 2; ++reader) {
        Start(std::nullopt, 5, &StormCaller::Read);
    }
}

CallStorm::~CallStorm()
{
    Stop();
}

void CallStorm::Disturb(uint32_t stepsPerRound, uint32_t longestPauseMs,
                        std::function<void(RandomChoices &)> step)
{
    Start(stepsPerRound, longestPauseMs,
          [step = std::move(step)](StormCaller &caller) { step(caller.random); });
}

// Starts a thread that repeats a step, without a number of steps until the storm stops.
void CallStorm::Start(std::optional<uint32_t> stepsPerRound, uint32_t longestPauseMs, Step step)
{
    StormCaller &caller = m_callers.emplace_back(m_table, m_units, m_plan.pace, m_stopped, ++m_seed);
    const bool isEndless = !stepsPerRound || !m_plan.rounds;
    const uint32_t steps = isEndless ? 0 : *stepsPerRound * *m_plan.rounds;
    (isEndless ? m_endlessThreads : m_threads)
        .emplace_back([this, &caller, isEndless, steps, longestPauseMs, step = std::move(step)] {
            for (uint32_t made = 0; !m_stopped && (isEndless || made < steps); ++made) {
                step(caller);
                caller.Pause(longestPauseMs);
            }
        });
}

void CallStorm::Finish()
{
    Join(m_threads);
    Stop();
}

void CallStorm::Stop()
{
    if (m_endlessThreads.empty()) {
        return;
    }
    m_stopped = true;
    Join(m_threads);
    Join(m_endlessThreads);
    m_callers.front().CloseAll();
}

StormFigures CallStorm::Figures() const
{
    StormFigures all;
    for (const StormCaller &caller : m_callers) {
        all.Add(caller.Figures());
    }
    return all;
}

} // namespace velto_test
