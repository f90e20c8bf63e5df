// Walks a road of the module, open to close, again and again, with one fault on the way each time.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fault_table.h"

namespace velto_test {

// What brings the sound back, from nothing at all to everything anew.
enum class Remedy { None, PropertyChange, DefaultChange, Reopening };

struct Line {
    std::string tag;
    std::wstring text;
};

// What must be seen of a fault.
struct Expectation {
    std::vector<Line> lines;      // one of them is logged, once; none: no line is promised
    std::vector<Remedy> remedies; // one of these is needed
    bool deaf = false;            // hears of no other device until it is opened anew
    bool usual = false;           // the line also comes without the fault
};

// A fault at one use of a call.
struct FaultCase {
    const FaultyCall &call;
    const Fault &fault;
    int nth;
    bool lasting; // all later uses fail, too, until it is healed
    bool polled;  // made over and over for as long as the road lingers
};

// One direction, on healthy fake endpoints. Made anew for each case; gives everything back in Finish.
class Road {
public:
    virtual ~Road() = default;

    virtual bool Meets(const FaultyCall &) const { return true; }
    // Of the uses of a call that were counted, those that every run makes.
    virtual int SureUses(const FaultyCall &, int counted) const { return counted; }
    // Calls that are made over and over for as long as the road lingers; how often is chance.
    virtual bool Polls(const FaultyCall &) const { return false; }
    virtual int Steps() const = 0;
    virtual std::string StepName(int step) const = 0;
    virtual void Take(int step) = 0;
    // True where the road can stay until it has met a fault.
    virtual bool LingersIn(int step) const = 0;
    virtual void Linger(const std::function<bool()> &until) = 0;
    // Goes on while a fault lasts.
    virtual void Bear() = 0;
    // Of the `use`th use of the call within the step.
    virtual Expectation Expected(const FaultCase &faulty, int step, int use) const = 0;
    virtual bool SoundFlows() = 0;
    virtual void Apply(Remedy remedy) = 0;
    // True when the sound is where it belongs after another change of the default device.
    virtual bool FollowsTheDefault() = 0;
    virtual void Finish() = 0;
};

using MakeRoad = std::unique_ptr<Road> (*)();

// What a walk came to.
struct WalkTally {
    int calls = 0;
    std::map<FaultKind, int> faults; // of these calls
    int cases = 0;
    int lasting = 0;  // of the cases
    int findings = 0; // cases that did not go as expected
};

// All faults of all calls that the road makes, and a hang of each: once at the first, the tenth and the
// last use of the call; what may last also from the first on. Reports what is not as expected.
WalkTally WalkEveryFault(MakeRoad makeRoad);

} // namespace velto_test
