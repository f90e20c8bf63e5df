// The system calls that the module makes, each with the results that it can return. The fault walk injects
// them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace velto_test {

enum class FaultKind {
    Failure, // a documented error code
    Null,    // success, but a null pointer instead of an object
    Size,    // success, but an unusual size (such as 0 or 4294967295), format or device state
    Success, // a success code other than S_OK
    Hang,    // returns late; Fault::result is the delay in milliseconds
};

struct Fault {
    std::string name;
    FaultKind kind;
    int64_t result;      // passed to FaultScript::Fail
    bool mayLast = true; // the walk also injects it into all later uses
};

// One system call, scripted through its fake.
struct FaultyCall {
    std::string name;
    std::function<int()> count;                                        // uses so far
    std::function<void(int64_t result, int nth, int times)> fail;      // `nth` counts from now
    std::function<void(std::function<void()> action, int nth)> before; // `nth` counts from now
    std::vector<Fault> faults;
};

const std::vector<FaultyCall> &FaultyCalls();
const FaultyCall &FaultyCallNamed(const std::string &name);

// Removes all scripted faults.
void ClearAllFaults();

} // namespace velto_test
