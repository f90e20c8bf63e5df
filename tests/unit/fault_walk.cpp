#include "fault_walk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/fakes/fake_windows.h"
#include "tests/fakes/log_recorder.h"

namespace velto_test {
namespace {

constexpr int errorLevel = 4;
constexpr int forGood = 1000000;

// Uses of each call in a run without faults.
std::vector<int> UsesWhenHealthy(MakeRoad makeRoad)
{
    const auto road = makeRoad();
    for (int step = 0; step < road->Steps(); ++step) {
        SCOPED_TRACE(road->StepName(step));
        road->Take(step);
    }
    std::vector<int> uses;
    for (const FaultyCall &call : FaultyCalls()) {
        uses.push_back(call.count());
    }
    EXPECT_TRUE(road->FollowsTheDefault());
    road->Finish();
    return uses;
}

std::vector<FaultCase> CasesOf(const FaultyCall &call, int uses)
{
    std::vector<FaultCase> cases;
    std::set<int> positions{1, uses};
    if (uses >= 10) {
        positions.insert(10);
    }
    for (const Fault &fault : call.faults) {
        for (const int nth : positions) {
            cases.push_back({call, fault, nth, false});
        }
        cases.push_back({call, fault, 1, true});
    }
    return cases;
}

std::string NameOf(const FaultCase &faulty)
{
    return faulty.call.name + " gives " + faulty.fault.name + " at use " + std::to_string(faulty.nth) +
           (faulty.lasting ? " and from then on" : "");
}

// Walks up to the end of the step that meets the fault. That step, and which of its uses it was.
std::pair<int, int> MeetFault(Road &road, const FaultCase &faulty)
{
    faulty.call.fail(faulty.fault.result, faulty.nth, faulty.lasting ? forGood : 1);
    for (int step = 0; step < road.Steps(); ++step) {
        const int before = faulty.call.count();
        fakes::LogRecorder::Instance().Clear();
        road.Take(step);
        if (faulty.call.count() >= faulty.nth) {
            return {step, faulty.nth - before};
        }
    }
    ADD_FAILURE() << "the fault was not met";
    return {0, 0};
}

void ExpectLine(const FaultCase &faulty, const Expectation &expected)
{
    if (expected.tag.empty()) {
        return;
    }
    const auto &log = fakes::LogRecorder::Instance();
    const fakes::LogEntry line{errorLevel, expected.text, expected.tag};
    const int found = log.Count(line.level, line.text, line.tag);
    EXPECT_TRUE(faulty.lasting ? found >= 1 : found == 1)
        << found << " times " << ::testing::PrintToString(line) << " among "
        << ::testing::PrintToString(log.EntriesOf(expected.tag));
}

// Tries one remedy after the other, the smallest first.
Remedy WhatHelps(Road &road)
{
    for (const Remedy remedy : {Remedy::None, Remedy::PropertyChange, Remedy::DefaultChange}) {
        road.Apply(remedy);
        if (road.SoundFlows()) {
            return remedy;
        }
    }
    road.Apply(Remedy::Reopening);
    EXPECT_TRUE(road.SoundFlows()) << "nothing brings the sound back";
    return Remedy::Reopening;
}

// Had the waiting taken its time, no more than a few calls were made in a millisecond.
void ExpectNoSpin(int callsWhenHealthy)
{
    const auto allowed = static_cast<uint64_t>(callsWhenHealthy) + 10 * fakewin::WaitedMs();
    EXPECT_LE(static_cast<uint64_t>(TotalFakedCalls()), allowed);
}

void Walk(const FaultCase &faulty, MakeRoad makeRoad, int callsWhenHealthy)
{
    SCOPED_TRACE(NameOf(faulty));
    const auto road = makeRoad();
    const auto [step, use] = MeetFault(*road, faulty);
    SCOPED_TRACE(road->StepName(step) + ", its use " + std::to_string(use));
    if (faulty.lasting) {
        road->Bear();
    }
    HealAll();
    const Expectation expected = road->Expected(faulty, step, use);
    ExpectLine(faulty, expected);
    ExpectNoSpin(callsWhenHealthy);
    const Remedy needed = WhatHelps(*road);
    EXPECT_TRUE(std::find(expected.remedies.begin(), expected.remedies.end(), needed) !=
                expected.remedies.end())
        << "needed remedy " << static_cast<int>(needed);
    EXPECT_TRUE(road->FollowsTheDefault());
    road->Finish();
}

} // namespace

WalkTally WalkEveryFault(MakeRoad makeRoad)
{
    const std::vector<int> uses = UsesWhenHealthy(makeRoad);
    const int callsWhenHealthy = TotalFakedCalls();
    WalkTally tally;
    for (size_t i = 0; i < uses.size() && !::testing::Test::HasFatalFailure(); ++i) {
        const FaultyCall &call = FaultyCalls()[i];
        if (uses[i] == 0) {
            continue;
        }
        ++tally.calls;
        tally.faults += static_cast<int>(call.faults.size());
        for (const FaultCase &faulty : CasesOf(call, uses[i])) {
            Walk(faulty, makeRoad, callsWhenHealthy);
            ++tally.cases;
            tally.lasting += faulty.lasting ? 1 : 0;
        }
    }
    return tally;
}

} // namespace velto_test
