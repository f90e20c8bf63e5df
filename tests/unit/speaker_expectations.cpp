// What the renderer promises for each failing call.
#include "expectation_rows.h"
#include "render_fixture.h"
#include "speaker_road.h"

namespace velto_test {
namespace {

using enum SpeakerStep;
using enum FaultKind;
using enum Remedy;
using Rows = ExpectationRows<SpeakerStep>;

constexpr char openTag[] = "AudioPlayerWas::Open";
constexpr char initTag[] = "AudioPlayerWas::InitDefaultAudioDevice";
constexpr char activateTag[] = "AudioPlayerWas::ActivateWasClient";
constexpr char deviceTag[] = "AudioPlayerWas::OnAudioDeviceChanged";
constexpr char writeTag[] = "AudioPlayerWas::AudioWriteToWasClient";
constexpr char resampleTag[] = "AudioPlayerWas::Resample";
constexpr char resampleInitTag[] = "AudioPlayerWas::ResampleInit";

// In the texts: $1 the result of the failing use, $2 that of the use after it, $B the frames of the
// endpoint buffer.
std::wstring Fails(int line)
{
    return L"AudioPlayerWas function fail with $2. Release resource. Line:" + std::to_wstring(line);
}

std::wstring RenderFails(int line)
{
    return L"AudioPlayerWas Rend fail with $2. Just return. Line:" + std::to_wstring(line);
}

const wchar_t *const paddingFails = L"AudioPlayerWas Unable to get padding with $1 padding=$B";
const wchar_t *const noConversion = L"AudioPlayerWas Error while converting";
const wchar_t *const noConverter = L"AudioPlayerWas Failed to initialize the resampling context";
// True for a mix format that Initialize accepts although no engine takes it.
bool IsAccepted(const FaultCase &faulty)
{
    return faulty.fault.result >= fakes::AcceptedFormatResult(0);
}

const wchar_t *const noRoom = L"AudioPlayerWas CheckDeviceChanged failed audioBufferSize=0";

// Without an enumerator or a registration nothing tells of other devices; without a client the
// renderer waits for another default.
void AddOpening(Rows &rows)
{
    const std::string enumerator = "IMMDeviceEnumerator::";
    rows.During({Opening});
    rows.Add("CoInitializeEx", Failure, Fails(270), openTag, {Reopening});
    rows.Add("CoCreateInstance", Failure, Fails(272), openTag, {Reopening});
    rows.Add("CoCreateInstance", Null, MemoryFail(275), openTag, {Reopening});
    rows.Add(enumerator + "RegisterEndpointNotificationCallback", Failure, Fails(276), openTag, {Reopening});
    rows.Add(enumerator + "GetDefaultAudioEndpoint", Failure, Fails(296), initTag, {DefaultChange});
    rows.Add(enumerator + "GetDefaultAudioEndpoint", Null, MemoryFail(296), initTag, {DefaultChange});
    rows.Add("IMMDevice::GetId", Failure, Fails(297), initTag, {DefaultChange});
    rows.Add("IMMDevice::GetState", Size, L"AudioPlayerWas endpointDevice is not active", initTag,
             {DefaultChange});
    rows.Add("IMMDevice::Activate", Failure, Fails(307), initTag, {DefaultChange});
    rows.Add("IMMDevice::Activate", Null, MemoryFail(307), initTag, {DefaultChange});
    rows.Add("IAudioClient::GetMixFormat", Failure, Fails(308), initTag, {DefaultChange});
    rows.Add("IAudioClient::GetMixFormat", Null, MemoryFail(309), initTag, {DefaultChange});
    rows.Add("IAudioClient::Initialize", Failure, Fails(315), initTag, {DefaultChange});
    rows.Add("swr_alloc", Failure, MemoryFail(318), initTag, {DefaultChange});
    rows.Add("swr_init", Failure, Fails(319), initTag, {DefaultChange});
    rows.Add("IAudioClient::SetEventHandle", Failure, Fails(320), initTag, {DefaultChange});
    rows.Add("IAudioClient::GetBufferSize", Failure, Fails(321), initTag, {DefaultChange});
    rows.Add("IAudioClient::GetService", Failure, Fails(323), initTag, {DefaultChange});
    rows.Add("IAudioClient::GetService", Null, MemoryFail(323), initTag, {DefaultChange});
    // The first is the one that the client signals: it is made by an opening only.
    rows.Add("CreateEvent", Failure, FunctionFail(E_INVALIDARG, 320), initTag, {Reopening}, 1);
    rows.Add("CreateEvent", Failure, MemoryFail(327), initTag, {DefaultChange}, 2);
}

// The endpoint is known: a change of any of its properties has the client made again.
void AddReactivation(Rows &rows)
{
    rows.During({Switching, Rebuilding});
    rows.Add("IMMDevice::Activate", Failure, Fails(175), activateTag, {PropertyChange});
    rows.Add("IMMDevice::Activate", Null, MemoryFail(175), activateTag, {PropertyChange});
    rows.Add("IAudioClient::GetMixFormat", Failure, Fails(177), activateTag, {PropertyChange});
    rows.Add("IAudioClient::GetMixFormat", Null, L"", "", {DefaultChange}); // a client is kept, unused
    rows.Add("IAudioClient::Initialize", Failure, Fails(186), activateTag, {PropertyChange});
    rows.Add("swr_init", Failure, noConverter, resampleInitTag, {DefaultChange});
    rows.Add("IAudioClient::SetEventHandle", Failure, Fails(188), activateTag, {PropertyChange});
    rows.Add("IAudioClient::GetService", Failure, Fails(191), activateTag, {PropertyChange});
    rows.Add("IAudioClient::GetService", Null, MemoryFail(191), activateTag, {PropertyChange});

    rows.During({Switching});
    rows.Add("IAudioClient::GetBufferSize", Failure, Fails(189), activateTag, {PropertyChange});
    rows.Add("IMMDeviceEnumerator::GetDefaultAudioEndpoint", Failure,
             L"AudioPlayer GetDefaultAudioEndpoint fail with $1. Just return", deviceTag, {None});
    rows.Add("IMMDeviceEnumerator::GetDefaultAudioEndpoint", Null,
             L"AudioPlayer GetDefaultAudioEndpoint fail with 0. Just return", deviceTag, {None});
    rows.Add("IMMDevice::GetId", Failure, L"AudioPlayer function fail with $2. Just return", deviceTag,
             {None});

    rows.During({Rebuilding}); // whose first use asks the old client
    rows.Add("IAudioClient::GetBufferSize", Failure, Fails(189), activateTag, {PropertyChange}, 2);
}

// A client that was made and does not play cannot be told from a silent one.
void AddAnyActivation(Rows &rows)
{
    rows.During({Opening, Switching, Rebuilding});
    rows.Add("IAudioClient::Start", Failure, L"", "", {DefaultChange});
    // The input buffer is allocated once; the output buffer, too, by each block that finds none.
    rows.Add("av_samples_alloc_array_and_samples", Failure, L"", "", {DefaultChange}, 1);
    rows.Add("av_samples_alloc_array_and_samples", Failure, L"", "", {None}, 2);
}

// Costs a block at most.
void AddPlaying(Rows &rows)
{
    rows.During({Playing, Switching, Rebuilding, Probing});
    rows.Add("IAudioClient::GetCurrentPadding", Failure, paddingFails, writeTag, {None});
    rows.Add("IAudioRenderClient::GetBuffer", Failure, RenderFails(458), writeTag, {None});
    rows.Add("IAudioRenderClient::ReleaseBuffer", Failure, RenderFails(464), writeTag, {None});
    rows.Add("swr_convert", Failure, noConversion, resampleTag, {None});
    rows.Add("av_samples_get_buffer_size", Failure, L"AudioPlayerWas Could not get sample buffer size",
             resampleTag, {None});
}

Rows MakeRows()
{
    Rows rows;
    AddOpening(rows);
    AddReactivation(rows);
    AddAnyActivation(rows);
    AddPlaying(rows);
    return rows;
}

// Initialize refuses a format of zeros or of huge numbers. Where it does not, FFmpeg does: the zeros while
// the converter is set up, the huge numbers also by options that keep what they had.
Expectation ExpectedOfFormat(const FaultCase &faulty, SpeakerStep step)
{
    const bool isOpening = step == Opening;
    if (!IsAccepted(faulty)) {
        return isOpening ? Expectation{{{initTag, FunctionFail(E_INVALIDARG, 315)}}, {DefaultChange}}
                         : Expectation{{{activateTag, FunctionFail(E_INVALIDARG, 186)}}, {PropertyChange}};
    }
    if (isOpening) {
        return {{{initTag, FunctionFail(AVERROR(EINVAL), 319)}}, {DefaultChange}};
    }
    if (static_cast<uint32_t>(faulty.fault.result) == 0) {
        return {{{resampleInitTag, noConverter}}, {DefaultChange}};
    }
    return {{}, {DefaultChange}};
}

// What depends on the very size.
std::optional<Expectation> ExpectedOfSize(const FaultCase &faulty, SpeakerStep step, int use)
{
    const auto size = static_cast<uint32_t>(faulty.fault.result);
    if (faulty.fault.kind != Size) {
        return std::nullopt;
    }
    if (faulty.call.name == "IAudioClient::GetCurrentPadding") {
        const wchar_t *text = size == 0 ? L"AudioPlayerWas padding = 0 "
                                        : L"AudioPlayerWas Unable to get padding with 0 padding=4294967295";
        return Expectation{{{writeTag, text}}, {None}};
    }
    if (faulty.call.name == "IAudioClient::GetMixFormat") {
        return ExpectedOfFormat(faulty, step);
    }
    const bool probes = step == Probing || (step == Rebuilding && use == 1);
    if (faulty.call.name == "IAudioClient::GetBufferSize" && !probes && size == 0) {
        Expectation expected{{}, {DefaultChange}};
        if (faulty.lasting) {
            expected.lines.push_back({playTag, noRoom});
        }
        return expected;
    }
    return std::nullopt;
}

} // namespace

Expectation ExpectedOfSpeaker(const FaultCase &faulty, SpeakerStep step, int use, uint32_t bufferFrames)
{
    static const auto *rows = new Rows(MakeRows());
    if (step == Closing) { // after which there is no sound anyway
        return {{}, {Reopening}};
    }
    Expectation expected{{}, {None}};
    if (const auto special = ExpectedOfSize(faulty, step, use)) {
        expected = *special;
    } else if (const auto found = rows->Find(faulty, step, use)) {
        expected = *found;
    }
    const std::wstring result = std::to_wstring(faulty.fault.result);
    Fill(expected, L"$1", result);
    Fill(expected, L"$2", faulty.lasting ? result : L"0");
    Fill(expected, L"$B", std::to_wstring(bufferFrames));
    return expected;
}

} // namespace velto_test
