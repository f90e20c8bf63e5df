// Which clauses a recording of the watermark breaks.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "check/portable/heard_watermark.h"
#include "check/portable/results.h"

namespace velto::check {

// What the listener knows about the sound's way. Without a value, the clause is not examined.
struct HeardConditions {
    // When the unit of frame 0 was written, in ms from the begin of the recording.
    std::optional<double> firstWriteMs;
    // The levels at which the sound may arrive, in dB: the volumes of the program and of the endpoint, which
    // some recordings contain and others do not. Empty: not known.
    std::vector<double> levelsDb;
};

struct HeardVerdict {
    std::vector<BrokenClause> broken; // in the order of the clauses
    std::vector<std::string> warnings;
};

// Of a whole watermark, sent at its pace to started speakers: SPK-3, SPK-16 to SPK-20. A sound that was not
// heard breaks one clause alone, because nothing is known about the others.
HeardVerdict VerdictOn(const HeardWatermark &heard, const HeardConditions &conditions);

// "3 of 220 frames are missing, ..., at 2.13 s, ...": what is wrong with the sequence of frames. Empty if
// nothing is.
std::string FaultsOfSequence(const HeardSound &sound);

// The loudest sample of the recording, 0 to 1.
float PeakOf(const HeardSound &sound);

} // namespace velto::check
