// The slots that take a device id, each with otherwise ordinary arguments.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "check/portable/context.h"

namespace velto::check {

struct IdSlot {
    std::string_view name;     // "WriteStreamBuffer"
    std::string_view deviceId; // a device of the slot
    bool isMicrophone;         // takes any id for the one microphone
    // Calls the slot. A recording that OpenAudioRecord has opened is closed again.
    int32_t (*call)(const AudioHandlerTable &table, const char *id, uint32_t idLength);
};

// In the order of the table.
std::span<const IdSlot> IdSlots();

// Registers a listener that ignores events: a host usually has one. Its record lives until the process ends.
void RegisterUsualListener(const AudioHandlerTable &table);

// Registers the usual listener and calls the slot once as a correct host does: a crash or a hang breaks THR-3
// rather than a clause about special arguments, which come later. Returns the result.
int32_t CallAsUsual(Context &context, const IdSlot &slot);
// The same for all slots with an id.
void CallAllAsUsual(Context &context);

// Writes one silent unit.
int32_t WriteSilence(const AudioHandlerTable &table, std::string_view id);

// A parameter list that every module accepts, written again by each call: a module that changes it fails only
// the check of this rule. One for each thread.
const AudioProfileList &UsualParameters();

} // namespace velto::check
