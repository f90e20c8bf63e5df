// The state of a process and of its threads that no call of a module may change.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace velto::check {

// One value of the state, as text for comparison and for people.
struct StateValue {
    std::string_view name;   // "COM apartment"
    std::string_view clause; // the clause that protects it, for example "HYG-1"
    std::string value;
};

// What Windows and the C runtime say about the calling thread and the process. The native build has a shorter
// list.
class CallerState {
public:
    virtual ~CallerState() = default;

    // Sets part of the state to unusual values, so that a module that sets usual ones is detected: for
    // example the last error, the rounding mode and the current folder. All functions are called on one
    // thread.
    virtual void MakeUnusual() = 0;
    // Undoes MakeUnusual, except for the last error. Without MakeUnusual, it does nothing.
    virtual void Restore() = 0;
    // The state now: always the same names, in the same order. To be called directly after the module's call,
    // because other calls change the last error. Keeps the last error.
    virtual std::vector<StateValue> Read() const = 0;
};

} // namespace velto::check
