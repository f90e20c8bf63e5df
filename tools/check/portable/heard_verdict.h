// Which clauses a recording of the watermark breaks.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
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
    // Why other clauses, which the sound broke, say nothing about the module: this PC caused it. Empty
    // without such clauses. See CompareWithControl.
    std::string excuse;
};

// Of a whole watermark, sent at its pace to started speakers: SPK-3, SPK-16 to SPK-20. A sound that was not
// heard breaks one clause alone, because nothing is known about the others.
HeardVerdict VerdictOn(const HeardWatermark &heard, const HeardConditions &conditions);

// The call speaker's watermark and the media speaker's tone, heard at the same time.
struct HeardPair {
    HeardWatermark watermark;
    uint32_t framesWithTone = 0; // of watermark.sound.framesSent
};

// SPK-21.
HeardVerdict VerdictOn(const HeardPair &heard);

// The control is the same sound, as long, played and recorded on the same PC without the module. Effects of a
// driver or of Windows change both alike, for example audio enhancements, spatial sound or mono audio.
// Clauses that the control breaks in the same way and to a similar extent are excused, because they say
// nothing about the module; a worse fault of the module remains. Single lost frames are not excused: a busy
// PC loses others each time. A warning then says that the control was damaged, too.
HeardVerdict CompareWithControl(const HeardWatermark &heard, const HeardConditions &conditions,
                                const HeardWatermark &control, const HeardConditions &ofControl);
HeardVerdict CompareWithControl(const HeardPair &heard, const HeardPair &control);

// Whether all samples are below the level at which a recording is called silent.
bool IsSilent(std::span<const float> samples);

// "3 of 220 frames are missing, ..., at 2.13 s, ...": what is wrong with the sequence of frames. Empty if
// nothing is.
std::string FaultsOfSequence(const HeardSound &sound);

// The loudest sample of the recording, 0 to 1.
float PeakOf(const HeardSound &sound);

} // namespace velto::check
