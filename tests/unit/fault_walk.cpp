#include "fault_walk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <thread>

#include "capture_fixture.h"

namespace velto_test {
namespace {

constexpr int forGood = 1000000;
constexpr int mostPolls = 500; // are worth waiting for, however many chance has made of them

struct Uses {
    int count = 0;
    bool polled = false;
};

// Of each call in a run without faults; of polled ones up to where the road can linger.
std::vector<Uses> UsesWhenHealthy(MakeRoad makeRoad)
{
    std::vector<Uses> uses(FaultyCalls().size());
    const auto road = makeRoad();
    for (int step = 0; step < road->Steps(); ++step) {
        SCOPED_TRACE(road->StepName(step));
        road->Take(step);
        for (size_t i = 0; i < uses.size(); ++i) {
            const FaultyCall &call = FaultyCalls()[i];
            if (!uses[i].polled && road->Meets(call)) {
                const bool polled = road->LingersIn(step) && road->Polls(call);
                uses[i] = {road->SureUses(call, polled ? std::min(call.count(), mostPolls) : call.count()),
                           polled};
            }
        }
    }
    EXPECT_TRUE(road->FollowsTheDefault());
    road->Finish();
    return uses;
}

std::vector<FaultCase> CasesOf(const FaultyCall &call, const Uses &uses)
{
    std::vector<FaultCase> cases;
    std::set<int> positions{1, uses.count};
    if (uses.count >= 10) {
        positions.insert(10);
    }
    const auto add = [&](const Fault &fault) {
        for (const int nth : positions) {
            cases.push_back({call, fault, nth, false, uses.polled});
        }
        if (fault.mayLast) {
            cases.push_back({call, fault, 1, true, uses.polled});
        }
    };
    static const Fault hang{"nothing for 20 ms", FaultKind::Hang, 20, false};
    add(hang);
    std::for_each(call.faults.begin(), call.faults.end(), add);
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
    if (faulty.fault.kind == FaultKind::Hang) {
        const std::chrono::milliseconds time(faulty.fault.result);
        faulty.call.before([time] { std::this_thread::sleep_for(time); }, faulty.nth);
    } else {
        faulty.call.fail(faulty.fault.result, faulty.nth, faulty.lasting ? forGood : 1);
    }
    for (int step = 0; step < road.Steps(); ++step) {
        const int before = faulty.call.count();
        const auto met = [&] { return faulty.call.count() >= faulty.nth; };
        road.Take(step);
        if (!met() && faulty.polled && road.LingersIn(step)) {
            road.Linger(met);
        }
        if (met()) {
            return {step, faulty.nth - before};
        }
    }
    ADD_FAILURE() << "the fault was not met";
    return {0, 0};
}

// Another thread may be on its way from the fault to the line.
void ExpectLine(const FaultCase &faulty, const Expectation &expected)
{
    if (expected.lines.empty()) {
        return;
    }
    const auto &log = fakes::LogRecorder::Instance();
    const auto found = [&] {
        int lines = 0;
        for (const Line &line : expected.lines) {
            lines += log.Count(errorLevel, line.text, line.tag);
        }
        return lines;
    };
    Eventually([&] { return found() > 0; });
    const bool several = faulty.lasting || expected.usual;
    EXPECT_TRUE(several ? found() >= 1 : found() == 1)
        << found() << " times " << ::testing::PrintToString(expected.lines[0].text) << " among "
        << ::testing::PrintToString(log.Entries());
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
    if (expected.deaf) {
        road->Apply(Remedy::Reopening);
    }
    EXPECT_TRUE(road->FollowsTheDefault());
    road->Finish();
}

int FailuresSoFar()
{
    return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

} // namespace

WalkTally WalkEveryFault(MakeRoad makeRoad)
{
    const std::vector<Uses> uses = UsesWhenHealthy(makeRoad);
    const int callsWhenHealthy = TotalFakedCalls();
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
        for (const FaultCase &faulty : CasesOf(call, uses[i])) {
            const int failures = FailuresSoFar();
            Walk(faulty, makeRoad, callsWhenHealthy);
            ++tally.cases;
            tally.lasting += faulty.lasting ? 1 : 0;
            tally.findings += FailuresSoFar() > failures ? 1 : 0;
        }
    }
    return tally;
}

} // namespace velto_test
