// One microphone of the module on its way into a file: a packet a call, counted and measured.
//
// What the microphone does not send (while it is muted, or the device changes) is not in the file:
// the next packet follows the last one. One thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/aac_writer.h"
#include "host/level_meter.h"
#include "host/microphone.h"
#include "host/output.h"
#include "host/progress_line.h"

namespace velto::host {

class TrackRecorder {
public:
    using Clock = std::chrono::steady_clock;

    // Begins the file; throws AacFileError. `output` outlives this object.
    TrackRecorder(const std::string &file, const std::string &device, const Output &output);

    // False when the module refuses. `table` stays valid until Close, or until the last Read.
    bool Open(const AudioHandlerTable &table);
    // Fetches what there is. False when there was nothing: to be tried again a little later, as the
    // module need not have waited. Throws AacFileError when the file cannot take it.
    bool Read();
    void Close();
    // Completes the file. Throws AacFileError.
    void Finish() { m_writer.Finish(); }

    // The time until the next packet is no gap: reading was paused on purpose.
    void NotePause() { m_lastPacket.reset(); }

    const std::string &Device() const { return m_device; }
    uint64_t Packets() const { return m_writer.Units(); }
    // Of sound in the file.
    double Seconds() const { return m_writer.Seconds(); }
    // Since the last packet, or since Open.
    double SilentSeconds() const;
    uint64_t NonzeroResults() const { return m_nonzeroResults; }
    StreamProgress Progress() const;
    // When each packet came, in seconds since 1970.
    const std::vector<double> &PacketTimes() const { return m_packetTimes; }
    Json Report() const;
    void Summarise() const;

private:
    void Take(Clock::time_point now);
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
    uint64_t m_emptyReads = 0;   // the microphone had nothing
    uint64_t m_stoppedReads = 0; // the module was not capturing
    uint64_t m_undecodable = 0;
    uint64_t m_nonzeroResults = 0;
    int32_t m_firstNonzeroResult = VELTO_OK;
};

} // namespace velto::host
