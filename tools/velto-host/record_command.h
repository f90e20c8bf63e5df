// velto-host record: reads packets from a microphone of the module and writes them to a file.
//
// The calling thread makes every call to the module. It never enters COM, because a host need not.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "velto-host/module.h"
#include "velto-host/options.h"
#include "velto-host/output.h"
#include "velto-host/portable/aac_reader.h"
#include "velto-host/portable/aac_writer.h"
#include "velto-host/portable/microphone.h"
#include "velto-host/progress_line.h"
#include "velto-host/stream_control.h"

namespace velto::host {

// Writes the packets of one microphone of the module to a file, counts them and measures their level.
//
// When no packets come (the microphone is muted, or the device changes), the file has no silence in their
// place: the next packet directly follows the last one. One thread.
class TrackRecorder {
public:
    using Clock = std::chrono::steady_clock;

    // Creates the file; throws AacFileError. `output` outlives this object.
    TrackRecorder(const std::string &file, const std::string &device, const Output &output);

    // False if the module returns an error. `table` must stay valid until Close or the last Read.
    bool Open(const AudioHandlerTable &table);
    // Reads a packet. False if there was none; the caller then waits before the next Read, because the call
    // may have returned at once. Throws AacFileError if the packet cannot be written.
    bool Read();
    void Close();
    // Completes the file. Throws AacFileError.
    void Finish() { m_writer.Finish(); }

    // For a deliberate pause in reading: the time until the next packet does not count as a gap.
    void NotePause() { m_lastPacket.reset(); }

    const std::string &Device() const { return m_device; }
    uint64_t Packets() const { return m_writer.Units(); }
    // Duration of the sound in the file.
    double Seconds() const { return m_writer.Seconds(); }
    // Since the last packet, or since Open.
    double SilentSeconds() const;
    uint64_t NonzeroResults() const { return m_nonzeroResults; }
    StreamProgress Progress() const;
    // When each packet arrived, in seconds since 1970.
    const std::vector<double> &PacketTimes() const { return m_packetTimes; }
    Json Report() const;
    // Prints a summary for people.
    void Summarise() const;

private:
    void WritePacket(Clock::time_point now);
    void NoteResult(int32_t result);
    double BitRate() const;

    const std::string m_file;
    const std::string m_device;
    const Output &m_output;
    AacWriter m_writer;
    LevelMeter m_meter;
    std::optional<Microphone> m_microphone; // while open
    std::vector<uint8_t> m_unit;
    std::vector<double> m_packetTimes;

    Clock::time_point m_opened{};
    std::optional<Clock::time_point> m_lastPacket;
    std::optional<Clock::duration> m_firstPacketDelay;
    Clock::duration m_longestGap{0}; // between two packets
    Clock::duration m_longestRead{0};
    double m_peakDb = silenceDb; // of the last packet
    double m_loudestDb = silenceDb;
    uint64_t m_bytes = 0;
    uint64_t m_largestPacket = 0;
    uint64_t m_emptyReads = 0;   // no packet was ready
    uint64_t m_stoppedReads = 0; // the module was not capturing
    uint64_t m_undecodable = 0;
    uint64_t m_nonzeroResults = 0;
    int32_t m_firstNonzeroResult = VELTO_OK;
};

class RecordCommand {
public:
    // Creates the file; throws AacFileError. All references outlive the command.
    RecordCommand(const RecordOptions &options, const Output &output, const Interruption &interruption);

    // Records to the end and prints the report.
    ExitCode Run(Module &module);

    // Run() in two steps, for DuplexCommand, which prints one combined report. Record() returns after
    // --seconds, when `isOver` returns true, after Ctrl-C, or when --unload-after has unloaded the module.
    ExitCode Record(Module &module, const std::function<bool()> &isOver);
    // Prints the summary for people and returns the report.
    Json Summarise(ExitCode exitCode) const;

private:
    enum class Ending { OVER, UNLOAD };

    Ending ReadAll(const std::function<bool()> &isOver);
    bool IsTimeOver() const;
    void PauseIfDue();
    void HintIfSilent();
    Json Report(int exitCode) const;

    const RecordOptions &m_options;
    const Output &m_output;
    const Interruption &m_interruption;
    StreamTimer m_timer;
    StreamEnd m_end;
    ProgressLine m_progress;
    TrackRecorder m_track;
    bool m_paused = false; // the pause of --pause-reading-at is over or running
    bool m_hinted = false;
    StreamTimer::Clock::time_point m_begin;
    std::optional<double> m_wallSeconds; // set when recording has ended
    Json m_unload;                       // null unless the module was unloaded
};

} // namespace velto::host
