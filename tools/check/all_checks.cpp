#include "check/all_checks.h"

#include <algorithm>
#include <span>

#include "check/device_checks.h"
#include "check/entry_process_checks.h"
#include "check/fuzz_checks.h"
#include "check/idle_checks.h"
#include "check/lifecycle_checks.h"
#include "check/listen_checks.h"
#include "check/load_cycle_checks.h"
#include "check/log_checks.h"
#include "check/speak_checks.h"

namespace velto::check {

std::vector<const Check *> AllChecks()
{
    std::vector<const Check *> all = PortableChecks();
    for (const std::span<const Check> group :
         {EntryProcessChecks(), LogChecks(), LifecycleChecks(), ListenChecks(), SpeakChecks(),
          LoadCycleChecks(), IdleChecks(), DeviceChecks(), FuzzChecks()}) {
        for (const Check &check : group) {
            all.push_back(&check);
        }
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const Check *left, const Check *right) { return left->level < right->level; });
    return all;
}

} // namespace velto::check
