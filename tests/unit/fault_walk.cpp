#include "fault_walk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <set>
#include <thread>

#include "capture_fixture.h"

namespace velto_test {
namespace {

constexpr int allLaterUses = 1000000;
constexpr int maxPolls = 500; // limits how long a case waits for the last use of a polled call

struct Uses {
    int count = 0;
    bool polled = false;
};

// Counts the uses of each call in a run without faults. The count of a polled call ends with the first step
// that can wait for more uses.
std::vector<Uses> CountUsesWithoutFaults(MakeScenario makeScenario)
{
    std::vector<Uses> uses(FaultyCalls().size());
    const auto scenario = makeScenario();
    for (int step = 0; step < scenario->Steps(); ++step) {
        SCOPED_TRACE(scenario->StepName(step));
        scenario->RunStep(step);
        for (size_t i = 0; i < uses.size(); ++i) {
            const FaultyCall &call = FaultyCalls()[i];
            if (!uses[i].polled && scenario->Covers(call)) {
                const bool polled = scenario->CanKeepPolling(step) && scenario->IsPolled(call);
                const int counted = polled ? std::min(call.count(), maxPolls) : call.count();
                uses[i] = {scenario->GuaranteedUses(call, counted), polled};
            }
        }
    }
    EXPECT_TRUE(scenario->FollowsDefaultDevice());
    scenario->Finish();
    return uses;
}

std::vector<FaultCase> CasesOf(const FaultyCall &call, const Uses &uses, const FailingUses &failing)
{
    std::vector<FaultCase> cases;
    std::set<int> positions;
    for (const int position : failing.positions) {
        if (position <= uses.count) {
            positions.insert(position);
        }
    }
    if (failing.last) {
        positions.insert(uses.count);
    }
    const auto add = [&](const Fault &fault) {
        for (const int nth : positions) {
            cases.push_back({call, fault, nth, false, uses.polled});
        }
        if (fault.mayLast) {
            cases.push_back({call, fault, 1, true, uses.polled});
        }
    };
    static const Fault hang{"only after 20 ms", FaultKind::Hang, 20, false};
    add(hang);
    std::for_each(call.faults.begin(), call.faults.end(), add);
    return cases;
}

std::string NameOf(const FaultCase &faulty)
{
    return faulty.call.name + " returns " + faulty.fault.name + " at use " + std::to_string(faulty.nth) +
           (faulty.lasting ? " and all later uses" : "");
}

// Runs the scenario up to the end of the step in which the fault occurs. Returns this step and the number of
// the failing use within it.
std::pair<int, int> RunUntilFault(Scenario &scenario, const FaultCase &faulty)
{
    const bool hangs = faulty.fault.kind == FaultKind::Hang;
    const std::chrono::milliseconds time(hangs ? faulty.fault.result : 0);
    constexpr int noticedUses = 8; // of a lasting fault: those of one opening
    for (int use = faulty.nth; use < faulty.nth + (faulty.lasting ? noticedUses : 1); ++use) {
        faulty.call.before(
            [&scenario, time] {
                scenario.OnFault();
                std::this_thread::sleep_for(time);
            },
            use);
    }
    if (!hangs) {
        faulty.call.fail(faulty.fault.result, faulty.nth, faulty.lasting ? allLaterUses : 1);
    }
    for (int step = 0; step < scenario.Steps(); ++step) {
        const int before = faulty.call.count();
        const auto hasFailed = [&] { return faulty.call.count() >= faulty.nth; };
        scenario.RunStep(step);
        if (!hasFailed() && faulty.polled && scenario.CanKeepPolling(step)) {
            scenario.PollUntil(hasFailed);
        }
        if (hasFailed()) {
            return {step, faulty.nth - before};
        }
    }
    ADD_FAILURE() << "the scenario did not reach the fault";
    return {0, 0};
}

// Waits for the line: the failing call may be on another thread.
void ExpectLoggedLine(const FaultCase &faulty, const Expectation &expected)
{
    if (!expected.line) {
        return;
    }
    const auto &log = fakes::LogRecorder::Instance();
    const auto found = [&] { return log.Count(errorLevel, expected.line->text, expected.line->tag); };
    Eventually([&] { return found() > 0; });
    const bool mayRepeat = faulty.lasting || expected.alsoLoggedWithoutFault;
    EXPECT_TRUE(mayRepeat ? found() >= 1 : found() == 1)
        << found() << " times " << ::testing::PrintToString(expected.line->text) << " among "
        << ::testing::PrintToString(log.Entries());
}

// Applies one recovery after the other, the smallest first, and returns the one that restores the sound.
Recovery FindRecovery(Scenario &scenario)
{
    for (const Recovery recovery : {Recovery::None, Recovery::PropertyChange, Recovery::DefaultChange}) {
        scenario.Apply(recovery);
        if (scenario.HasSound()) {
            return recovery;
        }
    }
    scenario.Apply(Recovery::Reopening);
    EXPECT_TRUE(scenario.HasSound()) << "no recovery restores the sound";
    return Recovery::Reopening;
}

uint64_t MostCallsOfAnyThread()
{
    uint64_t most = 0;
    for (const fakewin::ThreadTally &tally : fakewin::ThreadTallies()) {
        most = std::max(most, tally.calls);
    }
    return most;
}

// Detects a thread that waits busily: allows each at most ten calls per simulated millisecond that it waits,
// in addition to the calls that the busiest thread makes without a fault.
void ExpectNoBusyWaiting(uint64_t callsWithoutFaults)
{
    for (const fakewin::ThreadTally &tally : fakewin::ThreadTallies()) {
        EXPECT_LE(tally.calls, callsWithoutFaults + 10 * tally.waitedMs) << "of one thread";
    }
}

void Walk(const FaultCase &faulty, MakeScenario makeScenario, uint64_t callsWithoutFaults)
{
    SCOPED_TRACE(NameOf(faulty));
    const auto scenario = makeScenario();
    const auto [step, use] = RunUntilFault(*scenario, faulty);
    SCOPED_TRACE(scenario->StepName(step) + ", use " + std::to_string(use) + " in this step");
    if (faulty.lasting) {
        scenario->KeepRunning();
    }
    ClearAllFaults();
    const Expectation expected = scenario->Expected(faulty, step, use);
    ExpectLoggedLine(faulty, expected);
    ExpectNoBusyWaiting(callsWithoutFaults);
    const Recovery needed = FindRecovery(*scenario);
    EXPECT_EQ(static_cast<int>(needed), static_cast<int>(expected.recovery)) << "the recovery";
    if (expected.missesDeviceChanges) {
        scenario->Apply(Recovery::Reopening);
    }
    EXPECT_TRUE(scenario->FollowsDefaultDevice());
    scenario->Finish();
}

int FailuresSoFar()
{
    return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

} // namespace

int WalkStride()
{
    const char *value = std::getenv("VELTO_FAULT_WALK_STRIDE");
    const int stride = value == nullptr ? 1 : std::atoi(value);
    return std::max(stride, 1);
}

WalkTally WalkEveryFault(MakeScenario makeScenario, const FailingUses &failing)
{
    const int stride = WalkStride();
    int number = 0;
    const std::vector<Uses> uses = CountUsesWithoutFaults(makeScenario);
    const uint64_t callsWithoutFaults = MostCallsOfAnyThread();
    WalkTally tally;
    for (size_t i = 0; i < uses.size(); ++i) {
        const FaultyCall &call = FaultyCalls()[i];
        if (uses[i].count == 0) {
            continue;
        }
        ++tally.calls;
        ++tally.faults[FaultKind::Hang];
        for (const Fault &fault : call.faults) {
            ++tally.faults[fault.kind];
        }
        for (const FaultCase &faulty : CasesOf(call, uses[i], failing)) {
            if (number++ % stride != 0) {
                continue;
            }
            const int failures = FailuresSoFar();
            Walk(faulty, makeScenario, callsWithoutFaults);
            ++tally.cases;
            tally.lasting += faulty.lasting ? 1 : 0;
            tally.findings += FailuresSoFar() > failures ? 1 : 0;
        }
    }
    return tally;
}

} // namespace velto_test
