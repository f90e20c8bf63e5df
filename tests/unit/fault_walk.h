// Runs a scenario from open to close once per fault, injecting one failing system call each time.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fault_table.h"

namespace velto_test {

// The actions that can restore the sound after a fault, from the smallest to the largest.
enum class Recovery { None, PropertyChange, DefaultChange, Reopening };

struct Line {
    std::string tag;
    std::wstring text;
};

// The outcome that the module guarantees for a fault.
struct Expectation {
    std::optional<Line> line;            // logged once; none: no line is required
    Recovery recovery = Recovery::None;  // the smallest one that restores the sound
    bool missesDeviceChanges = false;    // keeps the old device until it is reopened
    bool alsoLoggedWithoutFault = false; // the line may appear more than once
};

// A row of the table of faults in docs/faults.md, as text.
struct FaultRow {
    std::string moment;
    std::string call;
    std::string result;
    std::string line;
    std::string remedy;
    bool used; // by a case of the walks in this process
};

// One fault, injected at one use of a call. A use is a single invocation of the call by the module.
struct FaultCase {
    const FaultyCall &call;
    const Fault &fault;
    int nth;      // the use that fails, counted from the start of the scenario
    bool lasting; // all later uses fail, too, until the walk clears the faults
    bool polled;  // a thread repeats the call for as long as the scenario stays in one step
};

// One direction, on working fake endpoints. Each case runs a new scenario.
class Scenario {
public:
    virtual ~Scenario() = default;

    // False for calls whose faults another scenario covers.
    virtual bool Covers(const FaultyCall &) const { return true; }
    // How many of the `counted` uses happen on every run; the rest depend on timing.
    virtual int GuaranteedUses(const FaultyCall &, int counted) const { return counted; }
    // True for calls that a thread repeats while the scenario stays in a step. Their number depends on
    // timing.
    virtual bool IsPolled(const FaultyCall &) const { return false; }
    virtual int Steps() const = 0;
    virtual std::string StepName(int step) const = 0;
    virtual void RunStep(int step) = 0;
    // True if the scenario can stay in the step until a polled call has failed.
    virtual bool CanKeepPolling(int step) const = 0;
    virtual void PollUntil(const std::function<bool()> &condition) = 0;
    // Continues for a short time while a lasting fault is active.
    virtual void KeepRunning() = 0;
    // Called on the failing thread just before the failing use, and before some later uses of a lasting
    // fault.
    virtual void OnFault() {}
    // `use`: the number of the failing use within the step, from 1.
    virtual Expectation Expected(const FaultCase &faulty, int step, int use) const = 0;
    // True if the content of the sound that arrives now is that of the source.
    virtual bool HasSound() = 0;
    virtual void Apply(Recovery recovery) = 0;
    // Changes the default device; true if the sound arrives there, with the content of the source.
    virtual bool FollowsDefaultDevice() = 0;
    // Closes everything and expects that nothing leaked.
    virtual void Finish() = 0;
};

using MakeScenario = std::unique_ptr<Scenario> (*)();

struct WalkTally {
    int calls = 0;
    std::map<FaultKind, int> faults; // number of different faults of each kind
    int cases = 0;
    int lasting = 0;  // cases with a lasting fault
    int findings = 0; // cases with an unexpected outcome
};

// The uses of each call that fail, one in each case. Positions count from 1; those beyond the last use are
// left out.
struct FailingUses {
    std::vector<int> positions;
    bool last = true; // the last use fails, too
};

// For every call that the scenario makes, injects each of its faults and a hang at the failing uses. A fault
// that may last is also injected into all uses in one run. Fails the test for each unexpected outcome. Runs
// only each WalkStride()th case.
WalkTally WalkEveryFault(MakeScenario makeScenario, const FailingUses &failing);

// 1, or the number in the environment variable VELTO_FAULT_WALK_STRIDE.
int WalkStride();

} // namespace velto_test
