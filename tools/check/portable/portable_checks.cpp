#include <algorithm>

#include "check/portable/check.h"

namespace velto::check {

std::vector<const Check *> PortableChecks()
{
    std::vector<const Check *> all;
    for (const std::span<const Check> group :
         {EntryChecks(), CapabilityChecks(), ArgumentChecks(), ParameterChecks(), ListenerChecks(),
          OwnershipChecks(), HygieneChecks(), SpeakerChecks(), MicrophoneChecks(), StormChecks()}) {
        std::ranges::transform(group, std::back_inserter(all), [](const Check &check) { return &check; });
    }
    // Groups are in the order of their first levels; a group may have checks of several.
    std::ranges::stable_sort(all, {}, &Check::level);
    return all;
}

} // namespace velto::check
