// Fixture of the microphone's tests: one capture on fake endpoints. Its destructor checks that the capture
// has released everything except known leaks.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "capture_probe.h"
#include "log_lines.h"
#include "tests/fakes/fake_endpoint.h"
#include "tests/fakes/fake_ffmpeg.h"
#include "tests/fakes/fake_windows.h"
#include "tests/fakes/polling.h"

namespace velto_test {

using fakes::CapturedPacket;
using fakes::Eventually;
using fakes::Method;

constexpr char apartmentViolation[] = "a thread ended inside its apartment";

// A packet of interleaved 32-bit floats.
CapturedPacket FloatPacket(const std::vector<float> &samples, uint16_t channels = 2, DWORD flags = 0);
// A packet of zeros. Unless `flags` contains AUDCLNT_BUFFERFLAGS_SILENT, the capture loop converts it like
// any other sound.
CapturedPacket QuietPacket(UINT32 frames, DWORD flags = 0);

class CaptureTest : public ::testing::Test {
protected:
    CaptureTest();
    // Closes and destroys the capture, and checks that it has released everything.
    ~CaptureTest() override;

    // Opens the capture as the host's opening call does.
    void Open();
    // Waits until the capture thread runs its loop.
    bool AwaitLoop();
    // Closes the capture as the host's closing call does, without deleting it.
    void Close();
    void Destroy();
    // Reads until a packet arrives, and returns its size, or 0 after ten seconds without one.
    uint32_t ReadPacket();

    // Expects that `call`, which waits for the end of a long read, returns. After ten seconds without a
    // return, wakes the reads of `reading`, so that the test fails instead of waiting forever.
    static void ExpectReturns(std::future<void> &call, velto::AudioCaptureProbe &reading);

    // The names of the last released COM objects, in the order of release.
    std::vector<std::string> LastReleased(size_t count) const;

    fakes::Endpoint &Microphone() { return audio.Get(L"microphone"); }

    static bool AwaitLine(const std::wstring &text, const std::string &tag)
    {
        return Recorded().Await(errorLevel, text, tag);
    }

    fakes::AudioSystem &audio = fakes::AudioSystem::Instance();
    std::unique_ptr<velto::AudioCapture> capture;
    velto::AudioCaptureProbe probe;
    std::vector<uint8_t> buffer = std::vector<uint8_t>(8192);

    // Leftovers that the destructor expects. Tests of a known leak change them.
    int openApartmentsLeft = 0;
    int objectsLeft = 0;
    std::vector<std::string> violationsLeft;

private:
    static std::unique_ptr<velto::AudioCapture> MakeCapture();

    const int m_earlierHandles;
    const int m_earlierModuleReferences;
    const int m_earlierImplementationReferences;
};

} // namespace velto_test
