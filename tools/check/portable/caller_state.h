// The state of a process and of its threads that no call of a module may change.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace velto::check {

// One value of the state, as text for comparison and for people.
struct StateValue {
    std::string_view name;   // "COM apartment of the calling thread"
    std::string_view clause; // the clause that protects it, for example "HYG-1"
    std::string value;
};

// What Windows and the C runtime say about the calling thread and the process. The native build has a shorter
// list.
class CallerState {
public:
    virtual ~CallerState() = default;

    // Sets what a careless module would change to unusual values: for example a last error, a rounding mode
    // and a current folder. Undone by Restore. Same thread.
    virtual void MakeUnusual() = 0;
    virtual void Restore() = 0;
    // Of the calling thread and the process, now. Always the same names, in the same order.
    virtual std::vector<StateValue> Read() const = 0;
    // Read() starts with the last error, which other calls change: it must come directly after the call.
};

} // namespace velto::check
