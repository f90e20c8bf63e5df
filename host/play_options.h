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
    std::vector<std::string> files; // each is a stream; they play one after the other
    double gap = 0;                 // between two streams
    std::string device = VELTO_ID_SPEAKER;
    int32_t streamType = 3; // media, in the sender's numbering
    bool loop = false;
    double seconds = -1; // of each stream, then end as if it were over
    bool showProgress = false;

    // Diagnostics.
    std::string modemFile; // sent to ModemSpeaker1 at the same time as the only file
    double paceRateHz = 0; // send as if the stream had this rate
    Framing framing = Framing::AUTO;
    bool sendDamaged = false; // hand over units that this program's own decoder refuses
    // Passed to SetAudioParameter at the start of each stream; empty: the call is left out, and with it
    // the stream's cushion.
    std::vector<Parameter> parameters{{VELTO_KEY_SAMPLE_RATE, VELTO_SAMPLE_RATE_HZ},
                                      {VELTO_KEY_CHANNEL, VELTO_CHANNEL_STEREO},
                                      {VELTO_KEY_FORMAT, VELTO_FORMAT_S16}};
    bool endsWithSilence = true; // send VELTO_CUSHION_UNITS silent units behind each stream
    bool showEvents = false;
    double pauseAfter = -1; // of the first stream
    double pause = 0;
    EndOptions end;
};

} // namespace velto::host
