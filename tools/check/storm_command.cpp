#include "check/storm_command.h"

namespace velto::check {

using host::EXIT_FAILED;
using host::EXIT_INTERRUPTED;
using host::EXIT_OK;
using host::ExitCode;
using host::Json;
using host::Module;
using host::SecondsSince;
using host::StreamTimer;

namespace {

constexpr double pollSeconds = 0.01;
constexpr size_t unitsOfStorm = 60; // different ones

// {slot: {result: calls}}
Json CallsAsJson(const StormFigures &figures)
{
    Json calls;
    for (const auto &[slot, results] : figures.CallsOfSlots()) {
        for (const auto &[result, times] : results) {
            calls[std::string(slot)][std::to_string(result)] = times;
        }
    }
    return calls;
}

} // namespace

StormCommand::StormCommand(const StormOptions &options, const host::Output &output,
                           const host::Interruption &interruption)
    : m_options(options),
      m_output(output),
      m_timer(interruption),
      m_end(options.end, output, m_timer),
      m_units(SpeechLikeUnits(unitsOfStorm))
{
}

ExitCode StormCommand::Run(const std::string &modulePath)
{
    m_output.Say("storm with seed {}", m_options.seed);
    m_usage.Append(host::MeasureProcess());
    while (m_loads < m_options.loads && !m_interrupted) {
        Module module(modulePath);
        RunOnce(module, m_options.seed + 100 * m_loads++);
        if (m_loads > 1 && m_loads == m_options.loads) {
            m_usage.Append(host::MeasureProcess());
            m_unload = m_end.Unload(module);
        }
    }
    m_usage.Append(host::MeasureProcess());
    const ExitCode exitCode = m_interrupted                ? EXIT_INTERRUPTED
                              : m_figures.Different() == 0 ? EXIT_OK
                                                           : EXIT_FAILED;
    m_output.Say("{}", CallsAsJson(m_figures).Text());
    m_output.Say("{} calls did not return the documented result", m_figures.Different());
    m_output.Result(Report(exitCode, m_figures));
    return exitCode;
}

void StormCommand::RunOnce(const Module &module, uint32_t seed)
{
    StormPlan plan;
    plan.seed = seed;
    CallStorm storm(module.Table(), m_units, plan);
    const auto reportSoFar = [&](int exitCode) {
        StormFigures figures = m_figures;
        figures.Add(storm.Figures());
        return Report(exitCode, figures);
    };
    const auto begin = StreamTimer::Clock::now();
    const auto isOver = [&] {
        const double time = SecondsSince(begin);
        return time >= m_options.seconds + m_options.packetWait ||
               (time >= m_options.seconds && (m_options.packetWait == 0 || storm.Figures().Packets() > 0));
    };
    while (!m_interrupted && !isOver()) {
        m_interrupted = !m_timer.WaitFor(pollSeconds);
        m_end.ExitIfDue(SecondsSince(m_begin), reportSoFar);
    }
    storm.Stop();
    m_figures.Add(storm.Figures());
}

Json StormCommand::Report(int exitCode, const StormFigures &figures) const
{
    Json report{{"seed", m_options.seed},
                {"loads", m_loads},
                {"calls", CallsAsJson(figures)},
                {"notAsDocumented", figures.Different()},
                {"packets", figures.Packets()},
                {"seconds", SecondsSince(m_begin)},
                {"usage", m_usage}};
    if (!m_unload.IsNull()) {
        report["unload"] = m_unload;
    }
    report["exitCode"] = exitCode;
    return report;
}

} // namespace velto::check
