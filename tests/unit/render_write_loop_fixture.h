// Fixture of the write loop's tests.
#pragma once

#include "render_fixture.h"

namespace velto_test {

using fakewin::WaitRecord;

inline constexpr char writeTag[] = "AudioPlayerWas::AudioWriteToWasClient";
inline constexpr wchar_t underrun[] = L"AudioPlayerWas padding = 0 ";
inline constexpr UINT32 bufferFrames = 14400;
inline constexpr HRESULT firstError = E_ACCESSDENIED;
inline constexpr HRESULT secondError = E_UNEXPECTED;

inline std::wstring RetryLine(int retry)
{
    return L"AudioPlayerWas audioRetryCount=" + std::to_wstring(retry);
}

inline std::wstring PaddingFailure(int64_t result, uint64_t padding)
{
    return L"AudioPlayerWas Unable to get padding with " + std::to_wstring(result) + L" padding=" +
           std::to_wstring(padding);
}

inline std::wstring RenderFailure(int64_t result, int line)
{
    return L"AudioPlayerWas Rend fail with " + std::to_wstring(result) + L". Just return. Line:" +
           std::to_wstring(line);
}

inline std::vector<uint8_t> FirstBytes(const std::vector<uint8_t> &bytes, size_t count)
{
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

class RenderWriteLoop : public RenderTest {
protected:
    void SetUp() override
    {
        OpenWith({2, 16, 48000});
        callsOfOpening = audio.TotalCalls();
    }

    // All waits and sleeps so far; SetUp makes none.
    std::vector<WaitRecord> Waits() const { return fakewin::Waits(); }
    WaitRecord BufferWait() const { return {fakewin::Call::WaitForSingleObject, probe.BufferEvent(), 10}; }
    static WaitRecord OneMillisecond() { return {fakewin::Call::Sleep, nullptr, 1}; }
    static std::vector<LogEntry> Lines(const std::wstring &text) { return {{errorLevel, text, writeTag}}; }

    const std::vector<uint8_t> block = MakeBlock();
    int callsOfOpening = 0; // endpoint calls that opening made
};

} // namespace velto_test
