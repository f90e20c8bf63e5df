// The renderer's outcome for each failing call.
#include "expectation_rows.h"
#include "render_fixture.h"
#include "speaker_scenario.h"

namespace velto_test {
namespace {

using enum SpeakerStep;
using enum FaultKind;
using enum Recovery;
using Rows = ExpectationRows<SpeakerStep>;

constexpr char openTag[] = "AudioPlayerWas::Open";
constexpr char initTag[] = "AudioPlayerWas::InitDefaultAudioDevice";
constexpr char activateTag[] = "AudioPlayerWas::ActivateWasClient";
constexpr char deviceTag[] = "AudioPlayerWas::OnAudioDeviceChanged";
constexpr char writeTag[] = "AudioPlayerWas::AudioWriteToWasClient";
constexpr char resampleTag[] = "AudioPlayerWas::Resample";
constexpr char resampleInitTag[] = "AudioPlayerWas::ResampleInit";

// Placeholders in the texts: $1 is the result of the failing use, $2 the result of the repeated call, $B the
// size of the endpoint buffer in frames.
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
const wchar_t *const noBuffer = L"AudioPlayerWas CheckDeviceChanged failed audioBufferSize=0";

// Without an enumerator or a registration the renderer receives no notifications and has to be reopened.
// Without a client it continues once the default device changes.
void AddOpening(Rows &rows)
{
    const std::string enumerator = "IMMDeviceEnumerator::";
    rows.During({Opening}, "opening");
    rows.Add("CoInitializeEx", Failure, Fails(270), openTag, Reopening);
    rows.Add("CoCreateInstance", Failure, Fails(272), openTag, Reopening);
    rows.Add("CoCreateInstance", Null, MemoryFail(275), openTag, Reopening);
    rows.Add(enumerator + "RegisterEndpointNotificationCallback", Failure, Fails(276), openTag, Reopening);
    rows.Add(enumerator + "GetDefaultAudioEndpoint", Failure, Fails(296), initTag, DefaultChange);
    rows.Add(enumerator + "GetDefaultAudioEndpoint", Null, MemoryFail(296), initTag, DefaultChange);
    rows.Add("IMMDevice::GetId", Failure, Fails(297), initTag, DefaultChange);
    rows.Add("IMMDevice::GetState", Size, L"AudioPlayerWas endpointDevice is not active", initTag,
             DefaultChange);
    rows.Add("IMMDevice::Activate", Failure, Fails(307), initTag, DefaultChange);
    rows.Add("IMMDevice::Activate", Null, MemoryFail(307), initTag, DefaultChange);
    rows.Add("IAudioClient::GetMixFormat", Failure, Fails(308), initTag, DefaultChange);
    rows.Add("IAudioClient::GetMixFormat", Null, MemoryFail(309), initTag, DefaultChange);
    rows.Add("IAudioClient::Initialize", Failure, Fails(315), initTag, DefaultChange);
    rows.Add("swr_alloc", Failure, MemoryFail(318), initTag, DefaultChange);
    rows.Add("swr_init", Failure, Fails(319), initTag, DefaultChange);
    rows.Add("IAudioClient::SetEventHandle", Failure, Fails(320), initTag, DefaultChange);
    rows.Add("IAudioClient::GetBufferSize", Failure, Fails(321), initTag, DefaultChange);
    rows.Add("IAudioClient::GetService", Failure, Fails(323), initTag, DefaultChange);
    rows.Add("IAudioClient::GetService", Null, MemoryFail(323), initTag, DefaultChange);
    // Use 1 creates the buffer event, which only Open does; use 2 the wait event.
    rows.Add("CreateEvent", Failure, FunctionFail(E_INVALIDARG, 320), initTag, Reopening, 1);
    rows.Add("CreateEvent", Failure, MemoryFail(327), initTag, DefaultChange, 2);
}

// The renderer keeps the endpoint's device, so the next property change makes it create a new client.
void AddReactivation(Rows &rows)
{
    rows.During({Switching, Rebuilding}, "another device, or a new client");
    rows.Add("IMMDevice::Activate", Failure, Fails(175), activateTag, PropertyChange);
    rows.Add("IMMDevice::Activate", Null, MemoryFail(175), activateTag, PropertyChange);
    rows.Add("IAudioClient::GetMixFormat", Failure, Fails(177), activateTag, PropertyChange);
    rows.Add("IAudioClient::GetMixFormat", Null, L"", "", DefaultChange); // keeps an unusable client
    rows.Add("IAudioClient::Initialize", Failure, Fails(186), activateTag, PropertyChange);
    rows.Add("swr_init", Failure, noConverter, resampleInitTag, DefaultChange);
    rows.Add("IAudioClient::SetEventHandle", Failure, Fails(188), activateTag, PropertyChange);
    rows.Add("IAudioClient::GetService", Failure, Fails(191), activateTag, PropertyChange);
    rows.Add("IAudioClient::GetService", Null, MemoryFail(191), activateTag, PropertyChange);

    rows.During({Switching}, "another device");
    rows.Add("IAudioClient::GetBufferSize", Failure, Fails(189), activateTag, PropertyChange);
    rows.Add("IMMDeviceEnumerator::GetDefaultAudioEndpoint", Failure,
             L"AudioPlayer GetDefaultAudioEndpoint fail with $1. Just return", deviceTag, None);
    rows.Add("IMMDeviceEnumerator::GetDefaultAudioEndpoint", Null,
             L"AudioPlayer GetDefaultAudioEndpoint fail with 0. Just return", deviceTag, None);
    rows.Add("IMMDevice::GetId", Failure, L"AudioPlayer function fail with $2. Just return", deviceTag, None);

    rows.During({Rebuilding}, "a new client"); // the first GetBufferSize asks the old endpoint's client
    rows.Add("IAudioClient::GetBufferSize", Failure, Fails(189), activateTag, PropertyChange, 2);
}

// The renderer ignores the result of Start, so a client that does not run stays until the default changes.
void AddAnyActivation(Rows &rows)
{
    rows.During({Opening, Switching, Rebuilding}, "any activation");
    rows.Add("IAudioClient::Start", Failure, L"", "", DefaultChange);
    // Use 1 allocates the input buffer, which is not retried; use 2 the output buffer, which every block
    // retries.
    rows.Add("av_samples_alloc_array_and_samples", Failure, L"", "", DefaultChange, 1);
    rows.Add("av_samples_alloc_array_and_samples", Failure, L"", "", None, 2);
}

// These failures cost one block at most.
void AddPlaying(Rows &rows)
{
    rows.During({Playing, Switching, Rebuilding, Probing}, "playing");
    rows.Add("IAudioClient::GetCurrentPadding", Failure, paddingFails, writeTag, None);
    rows.Add("IAudioRenderClient::GetBuffer", Failure, RenderFails(458), writeTag, None);
    rows.Add("IAudioRenderClient::ReleaseBuffer", Failure, RenderFails(464), writeTag, None);
    rows.Add("swr_convert", Failure, noConversion, resampleTag, None);
    rows.Add("av_samples_get_buffer_size", Failure, L"AudioPlayerWas Could not get sample buffer size",
             resampleTag, None);
}

// Initialize refuses a format of zeros or of huge numbers. If the fake accepts it, FFmpeg refuses both
// formats on opening, but only zeros on reactivation. Huge numbers log no line there: the converter refuses
// the options and keeps their old values.
void AddUnusualFormats(Rows &rows)
{
    const std::string call = "IAudioClient::GetMixFormat";
    const auto add = [&](const char *format, const std::wstring &text, const char *tag, Recovery recovery) {
        rows.AddNamed(call, format, Rows::Expected(text, tag, recovery));
    };
    const char *const zeros = "a format of zeros";
    const char *const huge = "a format of huge numbers";
    const char *const acceptedZeros = "a format of zeros that Initialize accepts";
    const char *const acceptedHuge = "a format of huge numbers that Initialize accepts";
    rows.During({Opening}, "opening");
    for (const char *format : {zeros, huge}) {
        add(format, FunctionFail(E_INVALIDARG, 315), initTag, DefaultChange);
    }
    for (const char *format : {acceptedZeros, acceptedHuge}) {
        add(format, FunctionFail(AVERROR(EINVAL), 319), initTag, DefaultChange);
    }
    rows.During({Switching, Rebuilding}, "another device, or a new client");
    for (const char *format : {zeros, huge}) {
        add(format, FunctionFail(E_INVALIDARG, 186), activateTag, PropertyChange);
    }
    add(acceptedZeros, noConverter, resampleInitTag, DefaultChange);
    add(acceptedHuge, L"", "", DefaultChange);
}

void AddUnusualSizes(Rows &rows)
{
    rows.During({Playing, Switching, Rebuilding, Probing}, "playing");
    rows.AddNamed("IAudioClient::GetCurrentPadding", "0 frames",
                  Rows::Expected(L"AudioPlayerWas padding = 0 ", writeTag, None));
    rows.AddNamed(
        "IAudioClient::GetCurrentPadding", "4294967295 frames",
        Rows::Expected(L"AudioPlayerWas Unable to get padding with 0 padding=4294967295", writeTag, None));

    const auto add = [&](int use) {
        rows.AddNamed("IAudioClient::GetBufferSize", "0 frames", Rows::Expected(L"", "", DefaultChange), use,
                      Lasting::Once);
    };
    rows.During({Opening}, "opening");
    rows.AddNamed("IAudioClient::GetBufferSize", "0 frames", Rows::Expected(noBuffer, playTag, DefaultChange),
                  0, Lasting::Always);
    add(0);
    rows.During({Switching}, "another device");
    add(0);
    rows.During({Rebuilding}, "a new client"); // the first use queries the old client
    add(2);
}

Rows MakeRows()
{
    Rows rows;
    AddOpening(rows);
    AddReactivation(rows);
    AddAnyActivation(rows);
    AddPlaying(rows);
    AddUnusualFormats(rows);
    AddUnusualSizes(rows);
    return rows;
}

Rows &TheRows()
{
    static auto *rows = new Rows(MakeRows());
    return *rows;
}

} // namespace

Expectation ExpectedOfSpeaker(const FaultCase &faulty, SpeakerStep step, int use, uint32_t bufferFrames)
{
    if (step == Closing) { // a closed renderer is silent until it is reopened, with or without a fault
        return Rows::Expected(L"", "", Reopening);
    }
    Expectation expected = TheRows().Find(faulty, step, use).value_or(Expectation{});
    const std::wstring result = std::to_wstring(faulty.fault.result);
    Fill(expected, L"$1", result);
    Fill(expected, L"$2", faulty.lasting ? result : L"0");
    Fill(expected, L"$B", std::to_wstring(bufferFrames));
    return expected;
}

std::vector<FaultRow> SpeakerFaultRows()
{
    return TheRows().AsText();
}

} // namespace velto_test
