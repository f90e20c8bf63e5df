// Compares a recording from elsewhere with the watermark of "listen.watermark": of a system test's sound
// server, or of a cable from the loudspeaker.
#pragma once

#include "check/check_options.h"

namespace velto::check {

// Prints one JSON object: "heard" with the same members as in the report, and "broken", a list of clauses
// with texts. Returns the exit code: 0 if no clause is broken, 1 if one is, 2
// if the file cannot be read, with the reason on the error output. The level is expected to be that of the
// watermark; the delay is not examined, because the recording does not show when the sound was written.
int CompareRecording(const HeardOptions &options);

} // namespace velto::check
