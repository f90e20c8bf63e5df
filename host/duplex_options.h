// What "velto-host duplex" was asked to do.
#pragma once

#include "host/play_options.h"
#include "host/record_options.h"

namespace velto::host {

struct DuplexOptions {
    DuplexOptions()
    {
        play.device = VELTO_ID_MODEM_SPEAKER;
        record.device = VELTO_ID_MODEM_MIC;
    }

    PlayOptions play;
    RecordOptions record;
    double usageEvery = 0; // seconds between reports of what the process holds; 0: none
};

} // namespace velto::host
