// The troubleshooting table: lines of the module's log and their meaning. The guide docs/integration.md shows
// the same rows; a test compares them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace velto::host {

// In the order of the table.
enum class RowId : uint8_t {
    NO_LOG_FILE,
    UNITS_ARRIVE,
    WRONG_ID,
    CUSHION,
    NO_CUSHION,
    NOT_AAC,
    DAMAGED_UNIT,
    HE_AAC,
    SPEAKER_NOT_OPENED,
    NO_SPEAKER,
    SPEAKER_LOST,
    STEP_FAILED,
    NOTHING_PLAYED_YET,
    UNDERRUN,
    BUFFER_FULL,
    SPEAKER_STUCK,
    SPEAKER_CHANGED,
    SPEAKER_REOPENED,
    SPEAKER_REMOVED,
    IDLE_RELEASE,
    NO_DECODER,
    CALL_FAILED,
    BLOCK_LOST,
    MISSES_CHANGES,
    NO_AUDIO_SERVICE,
    NO_MICROPHONE,
    MICROPHONE_DENIED,
    MICROPHONE_IN_USE,
    NOTHING_RECORDED_YET,
    MICROPHONE_REMOVED,
    MICROPHONE_MUTED,
    CAPTURE_STOPPED,
    MICROPHONE_CHANGED,
    FORMAT_NOT_EXTENSIBLE,
    FORMAT_REFUSED,
    COUNT,
};

inline constexpr size_t rowCount = static_cast<size_t>(RowId::COUNT);

enum class RowKind : uint8_t {
    PROBLEM,
    NORMAL, // logged as an error, but harmless: the meaning begins with "*normal*"
    NOTE,   // what the module does
};

// In JSON and in the classes of a page.
std::string_view NameOf(RowKind kind);

struct Row {
    RowId id;
    RowKind kind;
    const char *name;    // in JSON
    const char *title;   // for a time line
    const char *line;    // Markdown, as in the guide
    const char *meaning; // Markdown, as in the guide
};

std::span<const Row> TroubleshootingRows();
const Row &RowOf(RowId id);

// The row of a message without its tag. The messages of some rows are equal, and only the lines before them
// show which row it is: an underrun is then UNDERRUN, a decode error is DAMAGED_UNIT.
std::optional<RowId> RowOfMessage(std::string_view message);

// What Markdown shows: without the marks of code, emphasis and links.
std::string PlainText(std::string_view markdown);

// The step of opening the loudspeaker that has this number in its line; empty if there is none.
std::string_view StepName(int number);

// A result of Windows as text: "0x88890004 (AUDCLNT_E_DEVICE_INVALIDATED)", or without a name.
std::string ResultText(uint32_t result);

} // namespace velto::host
