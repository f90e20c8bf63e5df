// The options of the commands. Times are in seconds; a negative time means that the option was not given.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "velto/audio_handler.h"

namespace velto::host {

// How units are sent. A raw unit does not state its sampling rate: the module assumes 48000 Hz and cannot
// decode other rates.
enum class Framing {
    AUTO, // raw at 48000 Hz, ADTS at other rates
    RAW,
    ADTS,
};

// Diagnostics: ways to end without closing the stream.
struct EndOptions {
    double unloadAfter = -1; // when to free the DLL ...
    double unloadWait = 300; // ... and how long to wait until it is unloaded
    double exitAfter = -1;   // when to end the process ...
    uint32_t exitCode = 0;   // ... and its exit code
};

// Diagnostics: what to do when this process crashes.
struct CrashOptions {
    std::string dumpFile;         // none: Windows' own handling
    bool crashInListener = false; // crash in the first call of the listener
};

struct Parameter {
    std::string key; // VELTO_KEY_...
    uint32_t value = 0;
};

struct PlayOptions {
    std::vector<std::string> files; // each is played as a separate stream
    double gap = 0;                 // pause between two streams
    std::string device = VELTO_ID_SPEAKER;
    int32_t streamType = 3; // media, in the sender's numbering
    bool loop = false;
    double seconds = -1; // length of each stream
    bool showProgress = false;

    // Diagnostics.
    std::string modemFile; // sent to ModemSpeaker1 at the same time as the only file of `files`
    double paceRateHz = 0; // if not 0, the sending rate
    Framing framing = Framing::AUTO;
    bool sendDamaged = false; // send also units that this program's decoder rejects
    // For SetAudioParameter at the start of each stream. If empty, the call is not made, and streams after
    // the first one have no cushion.
    std::vector<Parameter> parameters{{VELTO_KEY_SAMPLE_RATE, VELTO_SAMPLE_RATE_HZ},
                                      {VELTO_KEY_CHANNEL, VELTO_CHANNEL_STEREO},
                                      {VELTO_KEY_FORMAT, VELTO_FORMAT_S16}};
    bool endsWithSilence = true; // send VELTO_CUSHION_UNITS silent units after each stream
    bool showEvents = false;
    double pauseAfter = -1; // time in the first stream at which sending pauses
    double pause = 0;
    EndOptions end;
};

struct RecordOptions {
    std::string file;
    std::string device = VELTO_ID_MIC;
    double seconds = -1; // length of the recorded sound
    bool showProgress = false;

    // Diagnostics.
    double pauseReadingAt = -1; // time in the recorded sound at which reading pauses
    double pauseReadingFor = 0;
    bool packetTimes = false; // report when each packet arrived
    EndOptions end;
};

struct DuplexOptions {
    DuplexOptions()
    {
        play.device = VELTO_ID_MODEM_SPEAKER;
        record.device = VELTO_ID_MODEM_MIC;
    }

    PlayOptions play;
    RecordOptions record;
    double usageEvery = 0; // period of reports of the process's resource use; 0: none
};

struct LogOptions {
    std::vector<std::string> files; // none: the module's log
    std::string htmlFile;           // none: no page
    size_t mostEntries = 200;       // of the time line in the text
    bool showAll = false;           // the whole time line
    bool showProgress = false;
};

struct ReportOptions {
    std::string file;
    bool withNames = false; // of the endpoints
};

} // namespace velto::host
