// The times of calls, and what is reported about them.
#include "check/portable/call_times.h"

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace velto::check {
namespace {

using namespace std::chrono_literals;

// Time passes only in calls.
class SimulatedClock final : public Environment {
public:
    std::unique_ptr<GuardedMemory> Guarded(size_t) override { return nullptr; }
    std::unique_ptr<CallerState> MakeCallerState() override { return nullptr; }
    void Sleep(std::chrono::milliseconds time) override { Pass(time); }
    std::chrono::steady_clock::time_point Now() const override { return m_now; }
    bool HasLoudspeaker() const override { return false; }
    MicrophoneState Microphone() const override { return MicrophoneState::MISSING; }

    void Pass(std::chrono::microseconds time) { m_now += time; }

private:
    std::chrono::steady_clock::time_point m_now{};
};

class Reported final : public EventSink {
public:
    void OnStep(std::string_view, const std::vector<std::string_view> &) override {}
    void OnFailure(std::string_view, std::string_view) override { FAIL() << "times break no clause"; }
    void OnWarning(std::string_view text) override { warnings.emplace_back(text); }
    void OnSkipped(std::string_view) override {}
    void OnMeasured(std::string_view name, double value, std::string_view unit) override
    {
        values[std::string(name)] = fmt::format("{} {}", value, unit);
    }

    std::vector<std::string> warnings;
    std::map<std::string, std::string> values;
};

class CallTimesTest : public testing::Test {
protected:
    // Calls of 1 µs, 2 µs, ... up to `calls` µs.
    void Call(std::string_view slot, int calls)
    {
        for (int time = 1; time <= calls; ++time) {
            m_times.Of(slot, [&] { m_clock.Pass(std::chrono::microseconds(time)); });
        }
    }

    Reported Report()
    {
        Reported reported;
        const AudioHandlerTable table{};
        Context context(nullptr, table, m_clock, reported, Random(1, "call-times"));
        m_times.Report(context);
        return reported;
    }

    SimulatedClock m_clock;
    CallTimes m_times{m_clock};
};

TEST_F(CallTimesTest, ReturnsResultOfCall)
{
    EXPECT_EQ(m_times.Of("Release", [] { return 7; }), 7);
    EXPECT_TRUE(m_times.Percentile("Release", 50).has_value());
    EXPECT_FALSE(m_times.Percentile("ReadStreamBuffer", 50).has_value());
}

TEST_F(CallTimesTest, ReportsPercentilesWithBudget)
{
    Call("WriteStreamBuffer", 200);
    const Reported reported = Report();
    EXPECT_EQ(reported.values.at("WriteStreamBuffer p50"), "100 µs");
    EXPECT_EQ(reported.values.at("WriteStreamBuffer p99"), "198 µs");
    EXPECT_EQ(reported.values.at("WriteStreamBuffer maximum"), "200 µs");
    EXPECT_EQ(reported.values.at("WriteStreamBuffer budget"), "21 ms");
    EXPECT_TRUE(reported.warnings.empty());
}

TEST_F(CallTimesTest, WarnsIfOneCallInHundredExceedsBudget)
{
    Call("Release", 98);
    m_times.Of("Release", [&] { m_clock.Pass(50ms); });
    EXPECT_EQ(Report().warnings,
              std::vector<std::string>{"Release took 50.0 ms (p99 of 99 calls); its budget is 10 ms"});
    Call("Release", 98); // one of 197 is the exception that p99 allows
    EXPECT_TRUE(Report().warnings.empty());
}

} // namespace
} // namespace velto::check
