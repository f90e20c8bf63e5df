// Every call to the system that the module makes, and what each may come to. The walks of
// tests/unit/fault_walk_test.cpp go through it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace velto_test {

enum class FaultKind {
    Failure, // an error code that the call is documented to give
    Null,    // success, and no object
    Size,    // success, and a size that is zero or huge, or a state that is no use
    Success, // a success code other than S_OK
    Hang,    // for so many milliseconds; then what it is asked for
};

struct Fault {
    std::string name;
    FaultKind kind;
    int64_t result; // what the call's script takes
    bool mayLast = true;
};

// One function of the system, by the script of the fake that stands in for it.
struct FaultyCall {
    std::string name;
    std::function<int()> count;                                        // uses so far
    std::function<void(int64_t result, int nth, int times)> fail;      // from now on
    std::function<void(std::function<void()> action, int nth)> before; // the same
    std::vector<Fault> faults;
};

const std::vector<FaultyCall> &FaultyCalls();
const FaultyCall &FaultyCallNamed(const std::string &name);

// No call fails any more.
void HealAll();
// Calls of all fakes since they were reset.
int TotalFakedCalls();

} // namespace velto_test
