// velto-host duplex: plays and records at once, as in a call, and reports both.
//
// The calling thread records, a second one plays; neither enters COM.
#pragma once

#include "host/duplex_options.h"
#include "host/exit_code.h"
#include "host/interruption.h"
#include "host/module.h"
#include "host/output.h"
#include "host/play_command.h"
#include "host/record_command.h"

namespace velto::host {

class DuplexCommand {
public:
    // Opens both files; throws AacFileError. All references outlive the command.
    DuplexCommand(const DuplexOptions &options, const Output &output, Interruption &interruption);

    // Without a time of its own, recording ends with playing. Ends with the first of the two that
    // failed.
    ExitCode Run(Module &module);

private:
    const DuplexOptions &m_options;
    const Output &m_output;
    Interruption &m_interruption;
    PlayCommand m_play;
    RecordCommand m_record;
};

} // namespace velto::host
