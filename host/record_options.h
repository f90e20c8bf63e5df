// What "velto-host record" was asked to do. Times are in seconds; a negative one means "not asked for".
#pragma once

#include <string>

#include "host/end_options.h"
#include "velto/audio_handler.h"

namespace velto::host {

struct RecordOptions {
    std::string file;
    std::string device = VELTO_ID_MIC;
    double seconds = -1; // of sound, then end
    bool showProgress = false;

    // Diagnostics.
    double pauseReadingAt = -1; // of sound
    double pauseReadingFor = 0;
    bool packetTimes = false; // report when each packet came
    EndOptions end;
};

} // namespace velto::host
