#include "check/portable/process_check_list.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace velto::check {
namespace {

using namespace std::chrono_literals;

const std::vector<Check> &List()
{
    static const std::vector<Check> list{
        {"entry.exports", 1, {"ENT-1"}, 10s, nullptr},
        {"lifecycle.starts-nothing-before-use", 1, {"ENT-5", "LIF-6"}, 20s, nullptr},
        {"entry.keeps-earlier-event", 1, {"ENT-6"}, 10s, nullptr},
        {"log.lines", 4, {"LOG-1", "LOG-2", "LOG-3", "LOG-7"}, 30s, nullptr},
        {"hygiene.files", 4, {"HYG-2"}, 30s, nullptr},
        {"lifecycle.first-write-starts-speakers", 5, {"SPK-1", "RES-2"}, 20s, nullptr},
        {"lifecycle.stream-type", 5, {"SPK-9", "SPK-10"}, 20s, nullptr},
        {"lifecycle.recording-threads", 6, {"RES-2", "MIC-7"}, 30s, nullptr},
        {"lifecycle.path-with-spaces-and-letters", 7, {"LIF-3", "LIF-5"}, 30s, nullptr},
        {"lifecycle.unload-while-playing", 7, {"LIF-1", "LIF-3"}, 30s, nullptr},
        {"lifecycle.load-again-while-mapped", 7, {"LIF-1", "LIF-3", "LIF-7"}, 30s, nullptr},
        {"lifecycle.unload-while-recording", 7, {"LIF-1", "LIF-3"}, 30s, nullptr},
        {"lifecycle.process-exit-while-playing", 7, {"LIF-3"}, 60s, nullptr},
        {"lifecycle.process-exit-while-recording", 7, {"LIF-3"}, 60s, nullptr},
        {"lifecycle.process-exit-in-listener", 7, {"LIF-3"}, 60s, nullptr},
        {"lifecycle.process-exit-while-busy", 7, {"LIF-3"}, 60s, nullptr},
        {"listen.watermark", 7, {"SPK-3", "SPK-16", "SPK-17", "SPK-18", "SPK-19", "SPK-20"}, 90s, nullptr},
        {"listen.both-speakers", 7, {"SPK-21"}, 60s, nullptr},
        {"listen.four-units-are-not-heard", 7, {"SPK-4", "PAR-6"}, 60s, nullptr},
        {"listen.full-queue-drops-oldest", 7, {"SPK-5"}, 60s, nullptr},
        {"listen.rate-of-zero-mutes", 7, {"PAR-4", "PAR-5"}, 60s, nullptr},
        {"listen.missing-rate-is-default", 7, {"PAR-2"}, 60s, nullptr},
        {"listen.other-ids-are-not-heard", 7, {"IDS-2", "SPK-22"}, 60s, nullptr},
        {"speak.watermark", 7, {"MIC-16", "MIC-17"}, 90s, nullptr},
        {"lifecycle.calls-lose-nothing", 8, {"RES-1", "REL-4"}, 180s, nullptr},
        {"lifecycle.load-cycles", 8, {"LIF-6", "LIF-7", "RES-1"}, 90s, nullptr},
        {"storm.load-cycles", 8, {"LIF-1", "LIF-7", "RES-2", "THR-1"}, 180s, nullptr},
        {"idle.release", 9, {"SPK-1", "SPK-11"}, 330s, nullptr},
        {"lifecycle.unmaps-after-idle-release", 9, {"LIF-2"}, 330s, nullptr},
        {"device.default-loudspeaker-changes", 9, {"SPK-7", "SPK-8"}, 120s, nullptr},
        {"device.default-microphone-changes", 9, {"MIC-3", "MIC-9"}, 120s, nullptr},
        {"fuzz.calls",
         10,
         {"ENT-4", "IDS-1", "IDS-3", "IDS-4", "CAP-1", "CAP-2", "CAP-3", "PAR-1", "PAR-8", "LSN-1", "LSN-6",
          "SPK-15", "MIC-2", "MIC-6", "MIC-13", "THR-3"},
         60s,
         nullptr},
        {"fuzz.units", 10, {"SPK-6", "THR-3"}, 60s, nullptr},
        {"fuzz.concurrent-calls", 10, {"THR-1"}, 60s, nullptr},
    };
    return list;
}

} // namespace

std::span<const Check> ProcessCheckList()
{
    return List();
}

Check ProcessCheck(std::string_view name, void (*run)(Context &))
{
    const auto found = std::ranges::find(List(), name, &Check::name);
    if (found == List().end()) {
        throw std::logic_error("no process check is named " + std::string(name));
    }
    Check check = *found;
    check.run = run;
    return check;
}

} // namespace velto::check
