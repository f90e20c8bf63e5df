// How checks of this folder use a module: as an ordinary host does. Not the listening checks, which need
// exact pace.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "check/module_file.h"
#include "check/portable/built_in_sound.h"
#include "check/portable/context.h"
#include "check/portable/speaker_calls.h"
#include "velto-host/portable/microphone.h"
#include "velto/audio_handler.h"

namespace velto::check {

using Seconds = std::chrono::duration<double>;

// Loads the module of this process and has its table filled. If the module refuses, reports the clause that
// it breaks and ends the check. After an earlier load, `clause` names that clause instead.
std::unique_ptr<ModuleFile> LoadModule(Context &context, std::string_view clause = {});

// Writes units at their pace on the calling thread.
class SpeakerUse {
public:
    // The table outlives this object. `id` is a literal.
    explicit SpeakerUse(const AudioHandlerTable &table, std::string_view id = VELTO_ID_SPEAKER);

    // Starts a stream and writes units for this time. The sound repeats after some seconds.
    void Play(Seconds time);
    // Writes the next unit if it is due. For loops that also do other things, at least every 10 ms.
    void WriteIfDue();

    uint32_t Calls() const { return m_calls; }
    // Of all calls, those that did not return VELTO_OK.
    uint32_t Refused() const { return m_refused; }

private:
    void Note(int32_t result);

    const AudioHandlerTable &m_table;
    const std::string_view m_id;
    const AacUnits m_units;
    size_t m_next = 0;
    std::chrono::steady_clock::time_point m_due; // of the next unit; the epoch before the first one
    uint32_t m_calls = 0;
    uint32_t m_refused = 0;
};

// Reads until a packet arrives or the time has passed. Returns whether one has arrived.
bool ReadPacketWithin(host::Microphone &microphone, Seconds time);

} // namespace velto::check
