// velto-host duplex: plays and records at once, as in a call.
//
// The calling thread records, a second thread plays; neither enters COM.
#pragma once

#include "velto-host/module.h"
#include "velto-host/options.h"
#include "velto-host/output.h"
#include "velto-host/play_command.h"
#include "velto-host/record_command.h"
#include "velto-host/stream_control.h"

namespace velto::host {

class DuplexCommand {
public:
    // Opens both files; throws AacFileError. All references outlive the command.
    DuplexCommand(const DuplexOptions &options, const Output &output, Interruption &interruption);

    // Without --seconds, recording ends when playing ends. Returns the exit code of playing if playing
    // failed, else that of recording.
    ExitCode Run(Module &module);

private:
    const DuplexOptions &m_options;
    const Output &m_output;
    Interruption &m_interruption;
    PlayCommand m_play;
    RecordCommand m_record;
};

} // namespace velto::host
