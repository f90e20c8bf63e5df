// Sends one file to one speaker of the module: one unit with each call, at the pace of the stream, then
// silent units.
//
// A unit that is damaged in the file, or that this program's decoder rejects, is counted and skipped; nothing
// is sent in its time. One thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "velto-host/module.h"
#include "velto-host/options.h"
#include "velto-host/output.h"
#include "velto-host/portable/aac_reader.h"
#include "velto-host/portable/microphone.h"
#include "velto-host/portable/pacer.h"
#include "velto-host/progress_line.h"

namespace velto::host {

class TrackSender {
public:
    using Clock = Pacer::Clock;

    // Opens the file; throws AacFileError. Prints a warning if the module will not play it correctly.
    TrackSender(const std::string &file, const std::string &device, const PlayOptions &options,
                const Output &output);

    // Starts the stream, or resumes it after a pause: the module buffers its next units as a cushion, and the
    // first of them is due at once.
    void Start(const Module &module);
    // True while there is a unit to send, from the file or a silent one after it.
    bool HasUnit() const { return m_hasUnit; }
    // When the current unit is due.
    Clock::time_point Due(Clock::time_point now) { return m_pacer.Due(now); }
    // Sends the current unit and fetches the next one.
    void Send(const Module &module);
    // Ends the track.
    void Close(const Module &module);

    const DeviceId &Device() const { return m_device; }
    const AacStream &Stream() const { return m_reader->Stream(); }
    double SentSeconds() const { return m_seconds; }
    StreamProgress Progress() const;
    uint64_t Sent() const { return m_sent; } // units of the file
    uint64_t SilentUnits() const { return m_silent; }
    uint64_t Skipped() const { return m_damaged + m_missing + m_rejected; }
    uint64_t NonzeroResults() const { return m_nonzeroResults; }
    // Prints a summary for people.
    void Summarise() const;
    Json Report() const;

private:
    void Fetch();
    void FetchFromFile();
    void PrepareSilentUnit();
    bool CheckUnit();
    void AddAdtsHeader(uint32_t channels);
    void WarnIfShort();
    void Skip(uint64_t &counter, const std::string &why);
    void NoteResult(int32_t result);
    void Warn(const std::string &warning);
    void WarnAbout(const AacStream &stream);

    const std::string m_file;
    const DeviceId m_device;
    const PlayOptions &m_options;
    const Output &m_output;

    std::unique_ptr<AacReader> m_reader;
    std::unique_ptr<LevelMeter> m_meter;
    Pacer m_pacer;
    double m_unitSeconds;
    bool m_isAdts; // whether units are sent with ADTS headers
    std::vector<uint8_t> m_unit;
    bool m_hasUnit = false;
    bool m_isSilentUnit = false; // the current unit is one of the silent ones at the end
    bool m_unitsInThisPass = false;

    double m_seconds = 0; // of the stream, skipped units included
    double m_peakDb = silenceDb;
    uint64_t m_sent = 0; // without silent units
    uint64_t m_silent = 0;
    uint64_t m_bytes = 0;
    uint64_t m_damaged = 0;  // in the file
    uint64_t m_missing = 0;  // listed in the file, but absent
    uint64_t m_rejected = 0; // by the decoder
    uint64_t m_passes = 1;
    uint64_t m_nonzeroResults = 0;
    int32_t m_firstNonzeroResult = 0;
    Clock::duration m_longestCall{0};
    std::vector<std::string> m_warnings;
};

} // namespace velto::host
