// What "velto-host play" was asked to do. Times are in seconds; a negative one means "not asked for".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/end_options.h"
#include "velto/audio_handler.h"

namespace velto::host {

// How units go to the module. A raw unit does not tell its sampling rate, and the module takes it to
// be 48000 Hz; what was coded at another rate can then not be decoded.
enum class Framing {
    AUTO, // raw at 48000 Hz, ADTS at any other rate
    RAW,
    ADTS,
};

struct Parameter {
    std::string key; // VELTO_KEY_...
    uint32_t value = 0;
};

struct PlayOptions {
    std::string file;
    std::string device = VELTO_ID_SPEAKER;
    int32_t streamType = 3; // media, in the sender's numbering
    bool loop = false;
    double seconds = -1; // of the stream, then end as if it were over
    bool showProgress = false;

    // Diagnostics.
    std::string modemFile; // sent to ModemSpeaker1 at the same time
    double paceRateHz = 0; // send as if the stream had this rate
    Framing framing = Framing::AUTO;
    bool sendDamaged = false;          // hand over units that this program's own decoder refuses
    std::vector<Parameter> parameters; // set before the first frame
    bool showEvents = false;
    double pauseAfter = -1;
    double pause = 0;
    EndOptions end;
};

} // namespace velto::host
