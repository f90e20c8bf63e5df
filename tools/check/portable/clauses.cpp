#include "check/portable/clause.h"

#include <array>

namespace velto::check {
namespace {

constexpr std::array groups{
    ClauseGroupInfo{ClauseGroup::ENT, "ENT", "entry and table"},
    ClauseGroupInfo{ClauseGroup::IDS, "IDS", "device ids"},
    ClauseGroupInfo{ClauseGroup::CAP, "CAP", "capabilities"},
    ClauseGroupInfo{ClauseGroup::REL, "REL", "release of capabilities"},
    ClauseGroupInfo{ClauseGroup::OWN, "OWN", "ownership of memory"},
    ClauseGroupInfo{ClauseGroup::PAR, "PAR", "parameters"},
    ClauseGroupInfo{ClauseGroup::LSN, "LSN", "listener"},
    ClauseGroupInfo{ClauseGroup::SPK, "SPK", "speaker"},
    ClauseGroupInfo{ClauseGroup::MIC, "MIC", "microphone"},
    ClauseGroupInfo{ClauseGroup::THR, "THR", "threads"},
    ClauseGroupInfo{ClauseGroup::LIF, "LIF", "loading, unloading, end of the process"},
    ClauseGroupInfo{ClauseGroup::HYG, "HYG", "state of the caller's thread and process"},
    ClauseGroupInfo{ClauseGroup::RES, "RES", "resources"},
    ClauseGroupInfo{ClauseGroup::LOG, "LOG", "log lines"},
};

consteval ClauseGroup GroupOf(std::string_view id)
{
    const std::string_view prefix = id.substr(0, id.find('-'));
    for (const ClauseGroupInfo &group : groups) {
        if (group.name == prefix) {
            return group.group;
        }
    }
    throw "a clause of an unknown group"; // fails the compilation
}

consteval Clause Checked(std::string_view id, std::string_view text)
{
    return {id, GroupOf(id), Party::MODULE, Coverage::CHECK, text, {}};
}

consteval Clause Tested(std::string_view id, std::string_view text, std::string_view tests)
{
    return {id, GroupOf(id), Party::MODULE, Coverage::TESTS, text, tests};
}

consteval Clause OfHost(std::string_view id, std::string_view text)
{
    return {id, GroupOf(id), Party::HOST, Coverage::HOST, text, {}};
}

// An id never changes its meaning. A dropped clause leaves its number unused; a new one gets the next free
// number.
constexpr std::array clauses{
    Checked("ENT-1", "The DLL MUST export `VELTOGetAudioHandler` and nothing else."),
    Checked("ENT-2", "The entry MUST return -2000 for a null table, without a log line or another effect."),
    Checked("ENT-3", "The entry MUST overwrite all 88 bytes of the table and return 0."),
    Checked("ENT-4", "Slots 1 and 10 MUST hold the same function, which reads nothing and returns 0."),
    Checked("ENT-5", "The entry MUST open no device and start no thread."),
    Checked("ENT-6",
            "Each call of the entry replaces the idle event without closing the earlier one: one handle is "
            "lost, and a watchdog that waits on the earlier event releases the speakers once."),
    OfHost("ENT-7", "The host SHOULD call the entry once, before any other call."),
    Checked("ENT-8", "The entry MUST write nothing but the 88 bytes of the table."),
    Checked("ENT-9", "Slots 0 to 10 MUST hold the functions in the order of the header."),
    Checked("ENT-10",
            "Each copy of a filled table MUST work, and each filled table MUST still work after a later "
            "call of the entry."),

    Checked("IDS-1",
            "An id MUST be refused with -2000 when it is null or its length is not the length passed."),
    Checked("IDS-2", "Ids MUST be compared byte for byte over their whole length."),
    Checked("IDS-3",
            "An id that passes IDS-1 and names no device of the slot MUST be accepted with 0, whatever its "
            "length and bytes."),
    Checked("IDS-4", "Any id that passes IDS-1 MUST open, read and close the one microphone."),
    Checked("IDS-5", "An id MUST be read up to its terminator, and nothing behind it."),

    Checked("CAP-1",
            "The list MUST contain speaker1 (type 0), ModemSpeaker1 (2), ModemMic1 (3), mic1 (1), in this "
            "order, each with the profile 48000 Hz, channel code 3, format code 1, and with codec 0."),
    Checked("CAP-2", "The count MUST be 4, also when memory is missing."),
    Checked("CAP-3", "A null argument MUST be answered with -2000."),
    OfHost("CAP-4", "The host MUST ignore the list unless the result is 0."),
    Checked("CAP-5", "A call with a null argument MUST write nothing."),
    Tested("CAP-6", "Missing memory MUST be answered with -3.",
           "HostRecords.CapabilitiesFailWithNullListAndCountFourWithoutMemory, "
           "HostRecords.CapabilitiesFailWithCountFourWithoutMemoryForItem"),
    Checked("CAP-7",
            "Each name MUST be a buffer of 64 bytes: the id and then zeros, with the id's length in "
            "`nameLength`. Counts of profiles and codecs MUST be 1; padding and reserved bytes MUST be 0."),
    Checked("CAP-8",
            "Each call MUST hand out a new list, with the same content whatever endpoints the PC has."),
    OfHost("CAP-9", "The host SHOULD end a name at `nameLength`, not at a terminator."),

    OfHost("REL-1", "The host MUST release each list once, with type 1 and the count that it received."),
    Checked("REL-2", "A release of another type, or of a null block, MUST free nothing."),
    Tested("REL-3", "A release of type 1 with count 0 MUST free the block alone.",
           "HostRecords.ReleaseWithCountZeroFreesOnlyBlock"),
    Checked("REL-4",
            "A release of type 1 with count 4 MUST free the list with its names, profiles and codecs; "
            "members that are null are skipped."),

    Checked("OWN-1",
            "Records and buffers that the host passes MUST be read during the call only; no pointer to "
            "them is kept."),
    Checked("OWN-2", "A write MUST NOT change the frame, its header or its buffer."),
    Checked("OWN-3",
            "A read MUST write `header.size` and at most that many bytes of the buffer, and nothing else."),
    OfHost("OWN-4", "A buffer for reading MUST hold 1536 bytes, whatever size is asked for."),
    Checked("OWN-5", "Reserved and padding fields of the host's records MUST be ignored."),
    Checked("OWN-6",
            "A write MUST read `header.size` bytes of the buffer at most: no padding is needed behind a "
            "unit."),
    Checked("OWN-7",
            "Of a parameter list, the module MUST read `count` entries at most, and each key up to its "
            "terminator; the key's length is not read."),
    Checked("OWN-8", "The arguments that the header calls unused MUST be ignored."),
    Checked("OWN-9", "A refused call MUST NOT change the host's records and buffers."),
    Checked("OWN-10", "Parameter lists, their entries and keys, and listener records MUST NOT be changed."),

    Checked("PAR-1", "An empty list MUST be refused with -2000; a wrong id first."),
    Checked("PAR-2",
            "A key that an accepted list lacks MUST return to its default: 48000 Hz, 2 channels, 16 bits."),
    Tested(
        "PAR-3",
        "Unknown keys, and unknown codes of \"channel\" and \"format\", MUST change nothing; a later entry "
        "of a key overrides an earlier one.",
        "HostRecords.LaterEntriesOverrideEarlierAndUnknownKeysAreIgnored, "
        "HostRecords.ChannelCodesMapToCountsAndUnknownCodesChangeNothing, "
        "HostRecords.FormatCodesMapToBitsAndUnknownCodesChangeNothing"),
    Checked("PAR-4", "Parameters MUST apply to both speakers, from the next start of the speakers on."),
    Checked(
        "PAR-5",
        "The values are only tested for being at least 1 as signed 32-bit numbers: with a sample rate of 0 "
        "or above 2147483647, both speakers stay silent until a start with another one. They do not "
        "change what is decoded or played."),
    Checked("PAR-6", "An accepted call MUST re-arm the cushion of the speaker that the id names (SPK-4)."),
    Checked("PAR-7", "An accepted call MUST send event 4, for any id."),
    Checked("PAR-8",
            "A list of one entry or more MUST be accepted with 0, whatever its keys and values are."),
    OfHost("PAR-9",
           "Each key MUST be a string with a terminator; the module treats a null key as an unknown one."),

    Checked("LSN-1", "Registering MUST copy both fields; null is refused with -2000 and keeps the registered "
                     "listener."),
    Checked(
        "LSN-2",
        "The callback MUST run on the thread of the call that raises it, before the call returns, with no "
        "lock of the module held: it may call the table."),
    Checked("LSN-3", "The second field MUST NOT be called."),
    OfHost("LSN-4", "The host MUST register a record of null fields before the callback's code is unloaded."),
    OfHost("LSN-5", "The host MUST register before streaming, or while no call runs that sends an event."),
    Checked(
        "LSN-6",
        "The callback MUST be called once by each accepted `SetAudioParameter` and `CloseAudioTrack`, and "
        "by no other call."),
    Checked("LSN-7",
            "The callback MUST receive the bytes of the id, its length as passed, and the event's code."),
    Checked("LSN-8",
            "A later registration MUST replace the earlier one. After a record of null fields, nothing is "
            "called and all calls work."),

    Checked("SPK-1",
            "The first write after load or release MUST start decoders and play threads of both speakers, "
            "before its arguments are checked."),
    Tested(
        "SPK-2",
        "A write that begins while another thread starts the speakers, or checks whether they are started, "
        "MUST return 0 at once and drop its unit: no writer waits for a start.",
        "SpeakerTrack.DropsUnitSilentlyDuringInitialisation, "
        "SpeakerTrack.AcceptsConcurrentWritesOnBothSpeakers"),
    Checked("SPK-3",
            "A unit MUST be decoded on the calling thread, as 48000 Hz stereo; it need not have an ADTS "
            "header."),
    Checked(
        "SPK-4",
        "The first 5 blocks after load, and after each re-arming (PAR-6), MUST be collected and then queued "
        "together, in order. A stream of 4 units or fewer is therefore not heard until more units come."),
    Checked("SPK-5", "At most 20 blocks wait in the queue; one more MUST drop the oldest."),
    Checked(
        "SPK-6",
        "A unit that does not decode MUST be dropped with a log line and the result 0. The next good unit "
        "is decoded."),
    Checked("SPK-7", "A missing, lost or refusing loudspeaker MUST NOT change a result."),
    Checked("SPK-8",
            "Playing MUST begin on the default endpoint of the console role and follow the default of the "
            "multimedia role."),
    Checked(
        "SPK-9",
        "The stream type of each frame MUST be stored in the registry value \"StreamType\" when it differs "
        "from the stored one, for any id that passes IDS-1."),
    Checked("SPK-10",
            "`CloseAudioTrack` MUST send event 3 and store -1 as the stream type, and stop nothing."),
    Checked(
        "SPK-11",
        "After 240 s without a write (a refused write counts as one), both speakers MUST be released; the "
        "next write starts them again."),
    Tested(
        "SPK-12",
        "After a decoder that could not be set up, the module MUST NOT try another start until it is loaded "
        "into a new process.",
        "SpeakerTrack.StaysInitialisingWhenDecoderSetupFails, "
        "SpeakerTrack.LogsDifferentLineWhenSecondDecoderSetupFails"),
    OfHost(
        "SPK-13",
        "The host SHOULD write one unit every 1024 / 48000 s, and call `SetAudioParameter` before the first "
        "unit of a stream."),
    OfHost("SPK-14",
           "The host SHOULD end a stream with 5 silent units: they play what is still collected and clear "
           "the decoder."),
    Checked("SPK-15", "A null frame or header MUST be answered with -2000."),
    Checked("SPK-16",
            "Units at the pace of SPK-13 MUST be heard completely: each once, in order and without gaps."),
    Checked("SPK-17", "Sound MUST be heard at the speed of the units."),
    Checked("SPK-18", "The channels MUST NOT be swapped or mixed."),
    Checked("SPK-19", "Sound MUST be heard at the level of the units; the module has no volume."),
    Checked(
        "SPK-20",
        "Sound MUST be heard at most 727 ms after its unit was written (20 blocks and an endpoint's buffer "
        "of 300 ms), plus the sound system's delay. In a stream at the pace of SPK-13 it SHOULD be "
        "heard within 300 ms."),
    Checked(
        "SPK-21",
        "Both speakers MUST play at the same time, each with a decoder, a cushion and a queue of its own."),
    Checked("SPK-22", "Units for an id that names no speaker MUST NOT be decoded or heard."),
    Tested("SPK-23", "`CloseAudioTrack` MUST send event 3 before it stores -1.",
           "SpeakerTrack.CloseSendsEventBeforeResettingStreamType"),
    Tested("SPK-24", "Blocks that wait when the speakers are released MUST be played after the next start.",
           "PlayThread.KeepsQueuedBlocksAndRendererForNextStart, "
           "SpeakerTrackSound.KeepsUnitWrittenDuringReleaseForNextStart"),
    Tested("SPK-25",
           "An endpoint with 8, 16 or 32 bits and 1, 2, 4, 6 or 8 channels MUST be served in its mix format, "
           "at any sample rate; further channels than the front pair stay silent.",
           "RenderResampler.YieldsWholeFramesForEachMixFormat, "
           "RenderResampler.KeepsToneOfEachChannelAtOtherRates, "
           "RenderResampler.WritesStereoToFirstTwoOfSeveralChannels"),
    Tested("SPK-26",
           "Playing MUST continue when the endpoint's format changes and when another endpoint replaces a "
           "removed one. A switch that failed is not retried until the system reports another change.",
           "RenderDeviceChange.ReplacesInvalidatedClientInNewFormat, "
           "RenderDeviceChange.DoesNotRetryFailedSwitch, "
           "test_playback_resumes_on_next_default_after_endpoint_is_removed"),

    Checked(
        "MIC-1",
        "Opening MUST accept any list that is not null, and return 0 also without a microphone, or without "
        "memory for the capture object. Other missing memory follows THR-2."),
    Checked("MIC-2", "Units MUST be raw AAC-LC, 48000 Hz, stereo, at most 1536 bytes, in order."),
    Checked(
        "MIC-3",
        "A read MUST deliver at most one whole unit. Size after the call: the unit's bytes; 0 without one "
        "in time or without a recording; unchanged when capture has stopped."),
    Checked("MIC-4",
            "A read MUST wait at most the playing time of the size asked for, at 3840 bytes for 20 ms, plus "
            "2 ms; 0 counts as 3840."),
    Checked("MIC-5",
            "Units that are not read MUST be kept for 10 s (469 units, rounded up); then capture waits and "
            "loses sound."),
    Checked("MIC-6", "A null frame, header or data MUST be answered with -3."),
    Checked("MIC-7", "Closing MUST end a waiting read and return when the recording's threads have ended."),
    Checked("MIC-8",
            "A second opening MUST replace the recording without closing it; the first captures until the "
            "process ends."),
    Checked("MIC-9", "Capture MUST restart on the new default microphone of the console role."),
    Tested("MIC-10",
           "A microphone that fails after the opening call has registered for default changes ends this "
           "registration: units come again after closing and opening.",
           "CaptureLoop.ErrorIsLoggedAndStopsCaptureAndNotifierBeforeItReturns"),
    Tested("MIC-11", "A muted microphone MUST deliver no units.",
           "CaptureLoop.DropsAndLogsEachPacketOfMutedMicrophone"),
    OfHost("MIC-12", "The host MUST NOT open and close at the same time on two threads."),
    Checked("MIC-13", "A null list MUST be refused with -2000; nothing is opened."),
    Checked("MIC-14", "Closing MUST return 0 when no recording is open, and also when it is repeated."),
    Checked("MIC-15",
            "A closed microphone MUST open again. A recording delivers no units of an earlier one."),
    Checked("MIC-16", "46.875 units MUST arrive in a second of recording, without gaps while they are read."),
    Checked(
        "MIC-17",
        "The units MUST decode to the microphone's sound, at its speed; the sound of a mono microphone is "
        "in both channels."),
    Checked("MIC-18",
            "Calls for the speakers MUST NOT disturb a recording, and a recording MUST NOT disturb the "
            "speakers."),

    Checked("THR-1",
            "All slots except those of LSN-5 and MIC-12 MUST allow overlapping calls from any thread."),
    Tested("THR-2",
           "No exception MUST cross the table. Without memory or a thread for a call the result is -2000, "
           "unless another clause gives one, and a log line if there is memory for it.",
           "HandlerTable.TurnsAnyExceptionIntoStatusAndLogLine, "
           "HandlerTable.ReturnsStatusWhenErrorLineRunsOutOfMemory, "
           "FaultWalk.SpeakerTableRecoversFromEveryFault, FaultWalk.MicrophoneRecoversFromEveryFault"),
    Checked(
        "THR-3",
        "Each call that obeys this page MUST return, whatever the bytes of its units and the values of its "
        "parameters are."),
    Checked(
        "THR-4",
        "`SetAudioParameter`, `CloseAudioTrack`, `GetAudioCapability`, `Release`, `RegisterListener` and the "
        "empty slots SHOULD return within 10 ms, and a write within 21 ms, except the one that starts the "
        "speakers: no call waits for the loudspeaker."),
    Tested(
        "THR-5", "Each call MUST work on a thread without COM and on a thread in any COM apartment.",
        "HostThread.SpeakerSlotsPlayAndKeepThreadState, HostThread.MicrophoneSlotsRecordAndKeepThreadState, "
        "HostThread.OtherSlotsKeepThreadState"),

    Checked(
        "LIF-1",
        "`FreeLibrary` MUST return without waiting for the module's threads. The module stays mapped while "
        "one of its threads runs or a recording is registered for device changes. If Windows refuses to "
        "end a registration for device changes, the module stays mapped until the process ends."),
    Checked(
        "LIF-2",
        "The module MUST unmap itself after the idle release when it was freed before and no recording is "
        "open. After a decoder, a play thread or the watchdog could not be started there is no idle "
        "release."),
    Checked("LIF-3",
            "A process MUST be able to end at any time with its own exit code; nothing is waited for."),
    OfHost("LIF-4",
           "The host MUST NOT call the table after `FreeLibrary`, and SHOULD close a recording before it."),
    Checked("LIF-5",
            "The DLL MUST load from any folder that also holds its FFmpeg DLLs, also one with spaces and "
            "letters of any script in its path; neither the current folder nor `PATH` is needed."),
    Checked("LIF-6",
            "Loading MUST open no device and start no thread. A module that started none MUST be unmapped by "
            "`FreeLibrary`."),
    Checked("LIF-7", "The module MUST work again after each cycle of loading and freeing."),

    Checked("HYG-1",
            "A call MUST leave the calling thread's COM apartment and last error (`GetLastError`) as they "
            "were."),
    Checked(
        "HYG-2",
        "The module MUST write one registry value (SPK-9), its log files and debugger output, and nothing "
        "else."),
    Checked("HYG-3",
            "A call MUST leave the calling thread's priority and the process's priority class as they were."),
    Checked(
        "HYG-4",
        "A call MUST leave the calling thread's floating-point control as it was: the x87 control word and "
        "the control bits of MXCSR."),
    Checked("HYG-5", "The module MUST NOT change the C runtime's locale."),
    Checked("HYG-6", "The module MUST NOT change the current folder."),
    Checked("HYG-7", "The module MUST NOT change the error mode of the process or of the calling thread."),
    Checked("HYG-8", "The module MUST NOT replace the filter for unhandled exceptions."),
    Checked("HYG-9", "The module MUST NOT change Windows' timer period."),
    Checked("HYG-10",
            "The module MUST NOT change FFmpeg's log callback and log level, which it shares with the host."),
    Checked("HYG-11", "The module MUST NOT replace the C runtime's signal handlers."),
    Checked("HYG-12", "The module MUST NOT change environment variables."),
    Checked("HYG-13", "The module MUST NOT change the folder of `SetDllDirectory`."),
    Checked("HYG-14", "The module MUST NOT replace or close the standard handles."),
    Checked("HYG-15",
            "A call MUST leave the processor affinity of the calling thread and of the process as it was."),

    Checked("RES-1",
            "The module MUST NOT lose memory or handles over time, except those that known-leaks.md lists."),
    Checked(
        "RES-2",
        "The module MUST run at most three threads for the speakers (two that play, one that waits for the "
        "idle release) and two for each recording, besides one for each restart on another microphone."),
    Tested("RES-3", "The module MUST NOT wait busily, also when an endpoint or the audio service is lost.",
           "test_playback_neither_crashes_nor_busy_waits_when_audio_service_dies"),

    Checked(
        "LOG-1",
        "Each line MUST go to the channel \"OceloMirror\", and with its tag in parentheses to the platform's "
        "process-wide logger."),
    Checked("LOG-2", "Each line MUST have level 3 (information) or 4 (error)."),
    Checked(
        "LOG-3",
        "Texts, tags and numbers of the lines in the guide's table MUST NOT change, misspellings included: "
        "support tools search for them."),
    Tested("LOG-4",
           "The numbers after \"Line:\" name the failing step (below); they are not source line numbers.",
           "RenderOpen.LogsSecondResultWhenComCannotBeEntered"),
    Tested("LOG-5",
           "The result in a \"function fail\" line MUST be the result of a second call with the same "
           "arguments; an "
           "object that the second call obtains is released.",
           "RenderOpen.LogsSecondResultWhenComCannotBeEntered, "
           "RenderDeviceChange.LogsSecondResultWhenIdCannotBeRead, "
           "RenderDeviceChange.FreesIdReturnedBySecondCall"),
    Tested("LOG-6",
           "\"VeltoWriteStream has received\" MUST go to the process-wide logger alone, \"Audio device is "
           "disabled\" to the channel alone.",
           "SpeakerTrack.LogsEveryFiftiethWriteToSingletonOnly, "
           "CaptureLoop.DropsAndLogsEachPacketOfMutedMicrophone"),
    Checked(
        "LOG-7",
        "With its own logging library, the module MUST begin each log file, and the lines of each process in "
        "it, with one line of the channel \"Logging\" and level 3 that names its version, commit and build "
        "id, FFmpeg's version and the system's."),
};

} // namespace

std::span<const ClauseGroupInfo> AllClauseGroups()
{
    return groups;
}

std::span<const Clause> AllClauses()
{
    return clauses;
}

const Clause *FindClause(std::string_view id)
{
    for (const Clause &clause : clauses) {
        if (clause.id == id) {
            return &clause;
        }
    }
    return nullptr;
}

} // namespace velto::check
