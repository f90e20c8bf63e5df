// The options of `velto-host check`, and of the hidden commands for its children and for tests.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "velto-host/options.h"

namespace velto::check {

inline constexpr int defaultLevel = 5;
inline constexpr int highestLevel = 10;

struct CheckOptions {
    std::optional<int> level; // none: defaultLevel for a run, all levels for --list
    uint64_t seed = 1;
    std::string only;
    bool listen = false;
    bool speak = false;
    std::string jsonFile; // reports; empty: none
    std::string junitFile;
    std::string htmlFile;
    int jobs = 2; // at the same time, of levels 1 to 4
    bool list = false;
    double minutes = 1;       // of each check of level 10
    std::string dumpsFolder;  // empty: no minidumps
    std::string verifyReport; // a report to compare with the module's files; empty: run checks
    bool withNames = false;   // of the endpoints, in the reports
};

// One check, in a process of its own.
struct CheckProcessOptions {
    std::string name; // of the check
    uint64_t seed = 1;
    std::string modulePath; // UTF-8, full
    std::string journal;
    std::string workFolder;
    double minutes = 1;
    std::string dumpFile; // empty: none
    std::string ending;   // name of the event to set when the verdict is written; empty: none
};

// A process that ends while it uses the module: a check of the lifecycle starts it.
struct EndProcessOptions {
    std::string modulePath; // UTF-8, full
    std::string journal;
    std::string how; // of endSituations
    int exitCode = 0;
};

// A recording from elsewhere, which is compared with what the check "listen.watermark" plays.
struct HeardOptions {
    std::string file; // UTF-8: interleaved 32-bit float samples, little-endian, without a header
    uint32_t rateHz = 48000;
    uint32_t channels = 2;
    uint32_t frames = 0; // that were played
};

// Random calls from many threads.
struct StormOptions {
    double seconds = 10;   // of each storm
    double packetWait = 0; // seconds: if no packet was read, a storm continues for at most this long
    uint32_t loads = 1;    // number of load/storm/unload cycles; above 1, the last one waits for the unload
    uint32_t seed = 1;
    host::EndOptions end; // unloadAfter is not used
};

// A sequence of the microphone's calls.
struct MicrophoneOptions {
    std::string sequence; // one of the names in microphone_command.h
    uint32_t count = 200; // of cycles
    double hold = 0;      // seconds to wait at the end, so that a test can inspect the process
};

} // namespace velto::check
