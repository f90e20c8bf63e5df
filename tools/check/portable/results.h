// The results of a run of checks, as the reports show them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto::check {

enum class Outcome {
    PASSED,
    WARNED,  // passed, with something that a maintainer should look at
    SKIPPED, // cannot run here
    FAILED,  // at least one clause is broken
    CRASHED, // the module ended the check's process: the clauses of the last step are broken
    HUNG,    // the time limit was reached: likewise
    BROKEN,  // the checker itself failed: says nothing about the module
};
std::string_view NameOf(Outcome outcome); // "passed", ...

struct BrokenClause {
    std::string clause;
    std::string text; // what was observed
};

struct Measurement {
    std::string name;
    double value = 0;
    std::string unit;
};

// What a check with --listen heard.
struct HeardSound {
    std::string source; // "loopback of Speakers (USB)", "monitor recording"
    double seconds = 0;
    double delayMs = 0;
    double levelDb = 0; // relative to what was sent
    double speed = 0;   // 1: as sent
    uint32_t framesSent = 0;
    uint32_t framesHeard = 0;            // different ones
    uint32_t framesMissing = 0;          // framesSent - framesHeard
    uint32_t framesRepeated = 0;         // heard again after their first time
    uint32_t framesOutOfOrder = 0;       // fewest frames whose removal leaves the others in order
    bool channelsSwapped = false;        // left was heard on the right, and right on the left
    std::vector<double> gapsAtSeconds;   // beginnings of gaps
    std::vector<float> envelope;         // peak of each of a few hundred equal parts, 0 to 1
    std::vector<uint32_t> framesInOrder; // the frame numbers in the order in which they were heard
};

struct CheckResult {
    std::string name;
    int level = 0;
    std::vector<std::string> clauses; // that the check covers
    Outcome outcome = Outcome::BROKEN;
    std::vector<BrokenClause> broken;
    std::vector<std::string> warnings;
    std::string reason;   // why it was skipped, or how the checker failed
    std::string lastStep; // of a crash or a hang
    std::string fault;    // "LibVeltoAudioHandler.dll+0x1a2b: access violation", of a crash
    std::string dumpFile; // a minidump, if one was asked for and written
    std::string repeat;   // the command that repeats a failure
    // Measured, so they differ from run to run.
    double seconds = 0;
    std::vector<Measurement> measured;
    std::optional<HeardSound> heard;
};

struct FileIdentity {
    std::string name; // without the folder
    std::string version;
    uint64_t bytes = 0;
    std::string sha256;
};

struct EndpointInfo {
    std::string direction; // "render", "capture"
    std::string name;      // empty unless names were asked for
    std::string roles;     // "console, multimedia"
    std::string mixFormat; // "48000 Hz, 2 channels, 32-bit float"
};

// What a run checked, with what, where.
struct Run {
    std::vector<FileIdentity> files; // the module first, then the DLLs next to it that it needs
    std::string moduleCommit;        // what the log's first line names; empty if unknown
    int level = 0;                   // asked for
    uint64_t seed = 0;
    std::string only;           // of --only
    bool listen = false;        // of --listen
    std::string checkerVersion; // of velto-host
    std::string system;         // "Windows 11 23H2 (22631)", "Wine 8.0 on Linux 6.1"
    std::string processor;      // as the system names it, with the number of processors
    std::vector<EndpointInfo> endpoints;
    std::string beganAt; // UTC, ISO 8601
    double seconds = 0;
    std::vector<CheckResult> results; // in the order of the plan
};

// The reason of a check that Ctrl-C ended, or that was not begun because of it.
inline constexpr std::string_view interruptedReason = "interrupted";
bool IsInterrupted(const CheckResult &result);

// The verdict over all results: BROKEN, then FAILED (also for CRASHED and HUNG), then PASSED. Skipped checks
// and warnings do not change it.
Outcome Verdict(const Run &run);
// The highest level of which no check, and no check of a lower level, failed; 0 if none. A level whose checks
// were all skipped does not count as reached, nor does one above that of the run, of which `listen` adds some
// checks. With `only`, no level was examined as a whole, so none was reached.
int LevelReached(const Run &run);

} // namespace velto::check
