#include "velto-host/portable/troubleshooting.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

namespace velto::host {
namespace {

using enum RowKind;

constexpr std::array<Row, rowCount> rows{{
    {RowId::NO_LOG_FILE, PROBLEM, "no-log-file", "no log file", "(there is no log file)",
     "the module is not loaded, or the folder cannot be written"},
    {RowId::UNITS_ARRIVE, NOTE, "units-arrive", "units arrive", "`VeltoWriteStream has received51 frame`",
     "units arrive; one line for every 50 calls"},
    {RowId::WRONG_ID, PROBLEM, "wrong-id", "a call with a wrong id or without data",
     "`speaker id or data is null or invalid`", "the length passed is not `strlen(id)`"},
    {RowId::CUSHION, NOTE, "cushion", "a stream has its cushion", "`needDelay. push all delay buffer queue`",
     "a stream has its cushion; once for each `SetAudioParameter`"},
    {RowId::NO_CUSHION, PROBLEM, "no-cushion", "a stream without a cushion",
     "`needDelay. push all delay buffer queue` missing at the start of a stream",
     "the host did not call `SetAudioParameter`, or fewer than 5 units came"},
    {RowId::NOT_AAC, PROBLEM, "not-aac", "no unit can be decoded",
     "`AUDIO decode error:-1094995529` for every unit", "the units are not AAC, or raw ones of another rate"},
    {RowId::DAMAGED_UNIT, PROBLEM, "damaged-unit", "damaged units",
     "`AUDIO decode error:-1094995529` now and then", "single damaged units; each makes a hole of 21 ms"},
    {RowId::HE_AAC, PROBLEM, "he-aac", "units of HE-AAC", "`parm is false, do not resample.`",
     "a unit of more than 1024 samples: HE-AAC"},
    {RowId::SPEAKER_NOT_OPENED, PROBLEM, "speaker-not-opened", "no loudspeaker could be opened",
     "`AudioPlayerWas Initialize end.` missing after the first unit",
     "no loudspeaker could be opened; the error lines before it name the call and its result"},
    {RowId::NO_SPEAKER, PROBLEM, "no-speaker", "there is no loudspeaker",
     "`CheckDeviceChanged failed audioBufferSize=0` for every unit",
     "there was no loudspeaker from the start: see [No sound](#no-sound)"},
    {RowId::SPEAKER_LOST, PROBLEM, "speaker-lost", "units are lost without a loudspeaker",
     "`CheckDeviceChanged failed audioBufferSize=14400`, or another number above 0",
     "the loudspeaker was removed or could not be opened again; the number is the size of its last buffer"},
    {RowId::STEP_FAILED, PROBLEM, "step-failed", "the loudspeaker cannot be opened",
     "`AudioPlayerWas function fail with` or `memory fail with` ... `Line:`",
     "a step of opening the loudspeaker failed; [contract.md](contract.md#log-log-lines) lists the numbers"},
    {RowId::NOTHING_PLAYED_YET, NORMAL, "nothing-played-yet", "nothing had been played yet",
     "`AudioPlayerWas padding = 0 ` once at the start of a stream", "*normal*: nothing had been played yet"},
    {RowId::UNDERRUN, PROBLEM, "underrun", "underruns", "`AudioPlayerWas padding = 0 ` again and again",
     "the loudspeaker ran empty: units come late or too slowly, the stream started without a cushion, or the "
     "sender's clock is slow"},
    {RowId::BUFFER_FULL, NORMAL, "buffer-full", "the endpoint's buffer was full for a moment",
     "`AudioPlayerWas audioRetryCount=0` now and then",
     "*normal*: the endpoint's buffer was full for a moment"},
    {RowId::SPEAKER_STUCK, PROBLEM, "speaker-stuck", "the endpoint does not play",
     "`AudioPlayerWas audioRetryCount=8` after 0 to 7, for every unit", "the endpoint does not play"},
    {RowId::SPEAKER_CHANGED, NORMAL, "speaker-changed", "the default loudspeaker changes",
     "`AudioPlayerWas OnAudioDeviceChanged`, `same deviceId`",
     "*normal*: the default loudspeaker was chosen again or is another one"},
    {RowId::SPEAKER_REOPENED, NORMAL, "speaker-reopened", "the loudspeaker is opened again",
     "`Need to deal with audio property value change`",
     "*normal*: the loudspeaker's format was changed, or it was removed; the module opens it again"},
    {RowId::SPEAKER_REMOVED, PROBLEM, "speaker-removed", "the loudspeaker is removed",
     "`Unable to get padding with -2004287484`", "the loudspeaker was removed (0x88890004)"},
    {RowId::IDLE_RELEASE, NORMAL, "idle-release", "the loudspeaker is released",
     "`No audio data for 4mins, release audio resource.`", "*normal*: 4 minutes without a unit"},
    {RowId::NO_DECODER, PROBLEM, "no-decoder", "a decoder cannot be set up",
     "`Init Audio Decode failed`, `Init modem Decodee failed`",
     "FFmpeg has no AAC decoder, or there was no memory: start the host's process again"},
    {RowId::CALL_FAILED, PROBLEM, "call-failed", "a call failed", "`call failed: `",
     "there was no memory or no thread, or the host's listener threw an exception; the call returned -2000"},
    {RowId::BLOCK_LOST, PROBLEM, "block-lost", "a unit is lost without memory",
     "`no memory to queue a block, dropped`", "one unit was lost"},
    {RowId::MISSES_CHANGES, PROBLEM, "misses-changes", "the recording does not follow the default microphone",
     "`Cannot hold the endpoints' DLL`, `Cannot hold this module` or `No memory for a listener`",
     "there was no memory; the recording does not follow the default microphone"},
    {RowId::NO_AUDIO_SERVICE, PROBLEM, "no-audio-service", "the audio service is not running",
     "`Create IMMDeviceEnumerator failed, err=0x80040154`",
     "the audio service is not running (seen under Wine; Windows may report another error)"},
    {RowId::NO_MICROPHONE, PROBLEM, "no-microphone", "there is no microphone",
     "`GetDefaultAudioEndpoint failed, err=0x80070490`", "there is no microphone"},
    {RowId::MICROPHONE_DENIED, PROBLEM, "microphone-denied", "the microphone is denied",
     "`Initialize audio client failed, err=0x80070005`", "Windows' privacy settings deny the microphone"},
    {RowId::MICROPHONE_IN_USE, PROBLEM, "microphone-in-use", "the microphone is in exclusive use",
     "`Initialize audio client failed, err=0x8889000A`", "another program uses the microphone exclusively"},
    {RowId::NOTHING_RECORDED_YET, NORMAL, "nothing-recorded-yet", "nothing new from the microphone",
     "`Capture audio frame failed! err=0x08890001`",
     "*normal*: nothing new had come when the microphone was polled"},
    {RowId::MICROPHONE_REMOVED, PROBLEM, "microphone-removed", "the microphone is removed",
     "`Capture audio frame failed! err=0x88890004`, a hundred times a second",
     "the microphone was removed, and no other one has become the default"},
    {RowId::MICROPHONE_MUTED, PROBLEM, "microphone-muted", "the microphone is muted",
     "`Audio device is disabled`", "the microphone is muted"},
    {RowId::CAPTURE_STOPPED, PROBLEM, "capture-stopped", "capture has stopped",
     "`m_bAtomStop is stop` for every read",
     "capture has stopped; the error lines before the first one have the reason"},
    {RowId::MICROPHONE_CHANGED, NORMAL, "microphone-changed",
     "the default microphone changes, capture restarts", "`OnAudioStateChanged`",
     "*normal*: another default microphone; capture restarts"},
    {RowId::FORMAT_NOT_EXTENSIBLE, PROBLEM, "format-not-extensible",
     "the microphone's format is not extensible", "`WAVEFORMATEX is not WAVEFORMATEXTENSIBLE?`",
     "the microphone's mix format is not extensible: choose another default format"},
    {RowId::FORMAT_REFUSED, PROBLEM, "format-refused", "the microphone's format has an unknown sample size",
     "`InitSwr failed! Err=-1`", "the microphone's format has samples of another size than 8, 16 or 32 bits"},
}};

// A message matches if it contains `text`, or is equal to it.
struct Pattern {
    std::string_view text;
    RowId row;
    bool isWhole = false;
};

// The first match counts.
constexpr Pattern patterns[] = {
    {"VeltoWriteStream has received", RowId::UNITS_ARRIVE},
    {"Capture audio frame failed! err=0x08890001", RowId::NOTHING_RECORDED_YET},
    {"Capture audio frame failed! err=0x88890004", RowId::MICROPHONE_REMOVED},
    {"audioRetryCount=8", RowId::SPEAKER_STUCK},
    {"audioRetryCount=", RowId::BUFFER_FULL},
    {"CheckDeviceChanged failed audioBufferSize=0", RowId::NO_SPEAKER, true},
    {"AudioPlayerWas CheckDeviceChanged failed audioBufferSize=0", RowId::NO_SPEAKER, true},
    {"CheckDeviceChanged failed audioBufferSize=", RowId::SPEAKER_LOST},
    {"Audio device is disabled", RowId::MICROPHONE_MUTED},
    {"m_bAtomStop is stop", RowId::CAPTURE_STOPPED},
    {"AudioPlayerWas padding = 0 ", RowId::UNDERRUN},
    {"AUDIO decode error:", RowId::DAMAGED_UNIT},
    {"AudioPlayerWas OnAudioDeviceChanged", RowId::SPEAKER_CHANGED, true},
    {"same deviceId", RowId::SPEAKER_CHANGED},
    {"Need to deal with audio property value change", RowId::SPEAKER_REOPENED},
    {"Unable to get padding with -2004287484", RowId::SPEAKER_REMOVED},
    {"function fail with", RowId::STEP_FAILED},
    {"memory fail with", RowId::STEP_FAILED},
    {"needDelay. push all delay buffer queue", RowId::CUSHION},
    {"speaker id or data is null or invalid", RowId::WRONG_ID},
    {"parm is false, do not resample.", RowId::HE_AAC},
    {"No audio data for 4mins, release audio resource.", RowId::IDLE_RELEASE},
    {"Init Audio Decode failed", RowId::NO_DECODER},
    {"Init modem Decodee failed", RowId::NO_DECODER},
    {"call failed: ", RowId::CALL_FAILED},
    {"no memory to queue a block, dropped", RowId::BLOCK_LOST},
    {"Cannot hold the endpoints' DLL", RowId::MISSES_CHANGES},
    {"Cannot hold this module", RowId::MISSES_CHANGES},
    {"No memory for a listener", RowId::MISSES_CHANGES},
    {"Create IMMDeviceEnumerator failed, err=0x80040154", RowId::NO_AUDIO_SERVICE},
    {"GetDefaultAudioEndpoint failed, err=0x80070490", RowId::NO_MICROPHONE},
    {"Initialize audio client failed, err=0x80070005", RowId::MICROPHONE_DENIED},
    {"Initialize audio client failed, err=0x8889000A", RowId::MICROPHONE_IN_USE},
    {"OnAudioStateChanged", RowId::MICROPHONE_CHANGED, true},
    {"WAVEFORMATEX is not WAVEFORMATEXTENSIBLE?", RowId::FORMAT_NOT_EXTENSIBLE},
    {"InitSwr failed! Err=-1", RowId::FORMAT_REFUSED},
};

struct Step {
    int number;
    std::string_view name;
};

constexpr Step steps[] = {
    {270, "entering COM"},
    {272, "creating the device enumerator"},
    {274, "allocating the notification client"},
    {275, "the enumerator is null"},
    {276, "registering for notifications"},
    {296, "finding the default endpoint"},
    {297, "asking for the endpoint's id"},
    {307, "activating the audio client"},
    {175, "activating the audio client"},
    {308, "asking for the mix format"},
    {177, "asking for the mix format"},
    {309, "the mix format is null"},
    {315, "initialising the client"},
    {186, "initialising the client"},
    {318, "allocating the converter"},
    {319, "setting up the converter"},
    {320, "setting the buffer event"},
    {188, "setting the buffer event"},
    {321, "asking for the buffer's size"},
    {189, "asking for the buffer's size"},
    {323, "asking for the render client"},
    {191, "asking for the render client"},
    {327, "creating the wait event"},
    {458, "getting a buffer to write"},
    {464, "releasing the written buffer"},
};

struct NamedResult {
    uint32_t result;
    std::string_view name;
};

constexpr NamedResult results[] = {
    {0x80004002, "E_NOINTERFACE"},
    {0x80004003, "E_POINTER"},
    {0x80004005, "E_FAIL"},
    {0x80040154, "REGDB_E_CLASSNOTREG"},
    {0x80070005, "E_ACCESSDENIED"},
    {0x8007000E, "E_OUTOFMEMORY"},
    {0x80070057, "E_INVALIDARG"},
    {0x80070490, "ERROR_NOT_FOUND"},
    {0x88890001, "AUDCLNT_E_NOT_INITIALIZED"},
    {0x88890004, "AUDCLNT_E_DEVICE_INVALIDATED"},
    {0x88890006, "AUDCLNT_E_BUFFER_TOO_LARGE"},
    {0x88890007, "AUDCLNT_E_OUT_OF_ORDER"},
    {0x88890008, "AUDCLNT_E_UNSUPPORTED_FORMAT"},
    {0x8889000A, "AUDCLNT_E_DEVICE_IN_USE"},
    {0x8889000F, "AUDCLNT_E_ENDPOINT_CREATE_FAILED"},
    {0x88890010, "AUDCLNT_E_SERVICE_NOT_RUNNING"},
    {0x88890017, "AUDCLNT_E_CPUUSAGE_EXCEEDED"},
    {0x88890018, "AUDCLNT_E_BUFFER_ERROR"},
    {0x88890026, "AUDCLNT_E_RESOURCES_INVALIDATED"},
};

} // namespace

std::span<const Row> TroubleshootingRows()
{
    return rows;
}

const Row &RowOf(RowId id)
{
    return rows.at(static_cast<size_t>(id));
}

std::string_view NameOf(RowKind kind)
{
    switch (kind) {
    case RowKind::PROBLEM:
        return "problem";
    case RowKind::NORMAL:
        return "normal";
    case RowKind::NOTE:
        break;
    }
    return "note";
}

std::optional<RowId> RowOfMessage(std::string_view message)
{
    const auto *const found =
        std::find_if(std::begin(patterns), std::end(patterns), [&](const Pattern &pattern) {
            return pattern.isWhole ? message == pattern.text
                                   : message.find(pattern.text) != std::string_view::npos;
        });
    return found == std::end(patterns) ? std::nullopt : std::optional(found->row);
}

std::string PlainText(std::string_view markdown)
{
    std::string text;
    for (size_t i = 0; i < markdown.size(); ++i) {
        const char c = markdown[i];
        if (c == ']' && i + 1 < markdown.size() && markdown[i + 1] == '(') {
            i = std::min(markdown.find(')', i), markdown.size() - 1); // the link's target
        } else if (c != '`' && c != '*' && c != '[' && c != ']') {
            text += c;
        }
    }
    return text;
}

std::string_view StepName(int number)
{
    const auto *const step = std::find_if(std::begin(steps), std::end(steps),
                                          [number](const Step &each) { return each.number == number; });
    return step == std::end(steps) ? std::string_view() : step->name;
}

std::string ResultText(uint32_t result)
{
    const auto *const named =
        std::find_if(std::begin(results), std::end(results),
                     [result](const NamedResult &each) { return each.result == result; });
    return named == std::end(results) ? fmt::format("0x{:08X}", result)
                                      : fmt::format("0x{:08X} ({})", result, named->name);
}

} // namespace velto::host
