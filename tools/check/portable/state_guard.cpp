#include "check/portable/state_guard.h"

#include <algorithm>

namespace velto::check {

void ExpectStateKept(Context &context, CallerState &state, std::string_view what,
                     const std::function<void()> &call)
{
    state.MakeUnusual();
    const std::vector<StateValue> before = state.Read();
    call();
    const std::vector<StateValue> after = state.Read();
    state.Restore();
    ExpectSameState(context, what, before, after);
}

std::vector<std::string_view> StateClauses()
{
    return {"HYG-1", "HYG-3",  "HYG-4",  "HYG-5",  "HYG-6",  "HYG-7",  "HYG-8",
            "HYG-9", "HYG-10", "HYG-11", "HYG-12", "HYG-13", "HYG-14", "HYG-15"};
}

void ExpectSameState(Context &context, std::string_view what, const std::vector<StateValue> &before,
                     const std::vector<StateValue> &after, size_t first)
{
    for (size_t index = first; index < std::min(before.size(), after.size()); ++index) {
        context.ExpectEqual(after[index].value, before[index].value, after[index].clause, "{} after {}",
                            after[index].name, what);
    }
}

} // namespace velto::check
