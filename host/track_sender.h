// One file on its way to one device of the module: a frame a call, at the stream's own pace, with
// silent units behind the last one.
//
// A unit that is damaged in the file, or that this program's own decoder refuses, is counted and
// left out; its place in time stays empty. One thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/aac_reader.h"
#include "host/level_meter.h"
#include "host/module.h"
#include "host/output.h"
#include "host/pacer.h"
#include "host/play_options.h"
#include "host/progress_line.h"

namespace velto::host {

class TrackSender {
public:
    using Clock = Pacer::Clock;

    // Opens the file; throws AacFileError. Tells at once what will not sound as it should.
    TrackSender(const std::string &file, const std::string &device, const PlayOptions &options,
                const Output &output);

    // Starts the stream, or resumes it after a pause: the module gives its next units a cushion, and
    // the first of them is due at once.
    void Start(const Module &module);
    // True while there is a frame to send: of the file, or one of the silent ones behind it.
    bool HasFrame() const { return m_hasFrame; }
    // When the frame at hand is due.
    Clock::time_point Due(Clock::time_point now) { return m_pacer.Due(now); }
    // Hands the frame at hand to the module and fetches the next one.
    void Send(const Module &module);
    // Ends the track.
    void Close(const Module &module);

    const DeviceId &Device() const { return m_device; }
    const AacStream &Stream() const { return m_reader->Stream(); }
    double SentSeconds() const { return m_seconds; }
    StreamProgress Progress() const;
    uint64_t Sent() const { return m_sent; } // of the file
    uint64_t SilentUnits() const { return m_silent; }
    uint64_t Skipped() const { return m_damaged + m_missing + m_refused; }
    uint64_t NonzeroResults() const { return m_nonzeroResults; }
    // For people.
    void Summarise() const;
    // For programs.
    Json Report() const;

private:
    void Fetch();
    void FetchFromFile();
    void TakeSilentUnit();
    bool Judge();
    void Wrap(uint32_t channels);
    void WarnIfShort();
    void Leave(uint64_t &counter, const std::string &why);
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
    double m_frameSeconds;
    bool m_isAdts; // as it is sent
    std::vector<uint8_t> m_frame;
    bool m_hasFrame = false;
    bool m_isSilentUnit = false; // the frame at hand is none of the file's
    bool m_framesInThisPass = false;

    double m_seconds = 0; // of the stream, left-out units included
    double m_peakDb = silenceDb;
    uint64_t m_sent = 0; // of the file, silent units not included
    uint64_t m_silent = 0;
    uint64_t m_bytes = 0;
    uint64_t m_damaged = 0; // cannot be taken out of the file
    uint64_t m_missing = 0; // listed in the file, but not there
    uint64_t m_refused = 0; // not decodable
    uint64_t m_passes = 1;
    uint64_t m_nonzeroResults = 0;
    int32_t m_firstNonzeroResult = 0;
    Clock::duration m_longestCall{0};
    std::vector<std::string> m_warnings;
};

} // namespace velto::host
