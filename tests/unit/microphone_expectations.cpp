// The microphone's outcome for each failing call.
#include "expectation_rows.h"
#include "microphone_scenario.h"
#include "support/com.h"

namespace velto_test {
namespace {

using enum MicrophoneStep;
using enum FaultKind;
using enum Recovery;
using Rows = ExpectationRows<MicrophoneStep>;

constexpr char prepareTag[] = "AudioCapture::Prepare";
constexpr char initializeTag[] = "AudioCapture::Initialize";
constexpr char paramTag[] = "AudioCapture::GetEncodeParam";
constexpr char micTag[] = "AudioCapture::GetDefaultMicAudioClient";
constexpr char openTag[] = "AudioCapture::GetLoopBackAudioCapture";
constexpr char swrTag[] = "AudioCapture::InitSwr";
constexpr char threadTag[] = "AudioCapture::AudioCaptureAndEncodeThreadProc";
constexpr char loopTag[] = "AudioCapture::LoopGetAudioBuffer";
constexpr char convertTag[] = "AudioCapture::AudioFormatConvert";
constexpr char errorTag[] = "AudioCapture::OnError";
constexpr char changedTag[] = "AudioCapture::OnAudioStateChanged";
constexpr char notifyTag[] = "AudioDeviceNotify::Initialize";

// Placeholders in the texts: $H is the result of the failing use in hexadecimal, $E in decimal.
const wchar_t *const noEnumerator = L"Create IMMDeviceEnumerator failed, err=$H";
const wchar_t *const noEndpoint = L"GetDefaultAudioEndpoint failed, err=$H";
const wchar_t *const noClient = L"Activate AudioClient failed, err=$H";
const wchar_t *const noVolume = L"Get IAudioEndpointVolume interface failed! Err=$H";
const wchar_t *const noFormat = L"Get audio mix format failed, err=$H";
const wchar_t *const noConverter = L"Failed to initialize the resampling context";
const wchar_t *const noInitThread = L"Create init thread failed!err=$E";
const wchar_t *const noCaptureThread = L"Create audio capture and encoder thread failed, err=$E";

const wchar_t *const noReferenceToEndpointDll =
    L"Cannot hold the endpoints' DLL, default device changes are not followed! err=$E";
const wchar_t *const noReferenceToThisModule =
    L"Cannot hold this module, default device changes are not followed! err=$E";

// A failing capture thread stops the capture and unregisters its notifier, if it is registered. During an
// opening the scenario registers after the thread has failed; during a restart either may come first.
const std::vector<Recovery> &RecoveryAfterStop(MicrophoneStep step)
{
    static const std::vector<Recovery> stillRegistered{DefaultChange};
    static const std::vector<Recovery> either{DefaultChange, Reopening};
    static const std::vector<Recovery> unregistered{Reopening};
    return step == Opening ? stillRegistered : step == Restarting ? either : unregistered;
}

// The order of the uses: first the init thread, then the capture thread, then the notifier's registration.
void AddOpening(Rows &rows)
{
    rows.During({Opening});
    rows.Add("CoInitializeEx", Failure, L"GetEncodeParam GetCOMLoadedStatus failed", paramTag,
             {DefaultChange}, 1);
    rows.Add("CoInitializeEx", Failure, L"AudioCaptureAndEncodeThreadProc GetCOMLoadedStatus failed",
             threadTag, {DefaultChange}, 2);
    rows.Add("CoInitializeEx", Failure, {{{notifyTag, L"GetCOMLoadedStatus failed"}}, {None}, true}, 3);
    rows.Add("CreateThread", Failure, noInitThread, prepareTag, {DefaultChange}, 1);
    rows.Add("CreateThread", Failure, noCaptureThread, initializeTag, {DefaultChange}, 2);
    for (const FaultKind kind : {Failure, Null}) {
        rows.Add("CoCreateInstance", kind, noEnumerator, micTag, {DefaultChange}, 1);
        rows.Add("CoCreateInstance", kind, noEnumerator, micTag, {DefaultChange}, 2);
        rows.Add("CoCreateInstance", kind, {{{notifyTag, L"GetDeviceCount pEnum is null"}}, {None}, true}, 3);
    }
}

void AddRestarting(Rows &rows)
{
    rows.During({Restarting});
    rows.Add("CoInitializeEx", Failure, L"GetEncodeParam GetCOMLoadedStatus failed", paramTag,
             {DefaultChange}, 1);
    rows.Add("CoInitializeEx", Failure,
             {{{threadTag, L"AudioCaptureAndEncodeThreadProc GetCOMLoadedStatus failed"},
               {notifyTag, L"GetCOMLoadedStatus failed"}},
              {DefaultChange, None},
              true});
    rows.Add("CreateThread", Failure, L"Create restart thread failed, err=$E", changedTag, {None}, 1);
    rows.Add("CreateThread", Failure, noInitThread, prepareTag, {DefaultChange}, 2);
    rows.Add("CreateThread", Failure, noCaptureThread, initializeTag, {DefaultChange}, 3);
    for (const FaultKind kind : {Failure, Null}) {
        rows.Add("CoCreateInstance", kind, noEnumerator, micTag, {DefaultChange}, 1);
        rows.Add("CoCreateInstance", kind,
                 {{{micTag, noEnumerator}, {notifyTag, L"GetDeviceCount pEnum is null"}},
                  {DefaultChange, Reopening, None},
                  true});
    }
}

void AddBoth(Rows &rows)
{
    rows.During({Opening, Restarting});
    rows.Add("CreateEvent", Failure, L"Create windows event failed! err=$E", prepareTag, {DefaultChange});
    rows.Add("IMMDeviceEnumerator::RegisterEndpointNotificationCallback", Failure, {{}, {None}, true});
    for (const MicrophoneStep step : {Opening, Restarting}) {
        const std::vector<Recovery> &recovery = RecoveryAfterStop(step);
        rows.During({step});
        for (const FaultKind kind : {Failure, Null}) {
            rows.Add("IMMDeviceEnumerator::GetDefaultAudioEndpoint", kind, noEndpoint, micTag, recovery);
            rows.Add("IMMDevice::Activate", kind, noVolume, openTag, recovery, 3);
            rows.Add("IMMDevice::Activate", kind, noClient, micTag, recovery);
            rows.Add("IAudioClient::GetMixFormat", kind, noFormat, micTag, recovery);
            rows.Add("IAudioClient::GetService", kind, L"Get audio capture service failed, err=$H", openTag,
                     recovery);
        }
        rows.Add("IAudioClient::GetMixFormat", Size, L"InitSwr failed! Err=-1", openTag, recovery, 2);
        rows.Add("IAudioClient::Initialize", Failure, L"Initialize audio client failed, err=$H", openTag,
                 recovery);
        rows.Add("IAudioClient::Start", Failure, L"Start audio client failed! err=$H", threadTag, recovery);
        rows.Add("swr_alloc_set_opts2", Failure, noConverter, swrTag, recovery);
        rows.Add("swr_init", Failure, noConverter, swrTag, recovery);
    }
}

// A thread that gets no module reference starts all the same. The notifier does not register without its two
// references.
void AddModuleReferences(Rows &rows)
{
    for (const MicrophoneStep step : {Opening, Restarting}) {
        rows.During({step});
        const int threads = step == Opening ? 2 : 3;
        for (int thread = 1; thread <= threads; ++thread) {
            rows.Add("GetModuleHandleEx", Failure, {{}, {None}}, thread);
        }
        rows.Add("GetModuleHandleEx", Failure, {{{notifyTag, noReferenceToEndpointDll}}, {None}, true},
                 threads + 1);
        rows.Add("GetModuleHandleEx", Failure, {{{notifyTag, noReferenceToThisModule}}, {None}, true},
                 threads + 2);
    }
}

// The capture loop polls during all steps.
void AddLoop(Rows &rows)
{
    rows.During({Opening, Capturing, Restarting});
    const std::string client = "IAudioCaptureClient::";
    rows.Add(client + "GetBuffer", Failure, L"Capture audio frame failed! err=$H", loopTag, {None});
    rows.Add(client + "GetBuffer", Success,
             {{{loopTag, L"Capture audio frame failed! err=$H"}}, {None}, false, true});
    rows.Add(client + "GetBuffer", Null, L"Error while converting", convertTag, {None});
    rows.Add(client + "ReleaseBuffer", Failure, L"ReleaseBuffer Capture audio data failed! err=$H", loopTag,
             {None});
    rows.Add(client + "GetNextPacketSize", Failure, L"Get next audio packet size failed! err=$H", loopTag,
             {None});
    rows.Add("av_samples_alloc_array_and_samples", Failure, L"Could not allocate destination samples",
             convertTag, {None});
    rows.Add("swr_convert", Failure, L"Error while converting", convertTag, {None});
    rows.Add("av_samples_get_buffer_size", Failure, L"Could not get sample buffer size", convertTag, {None});

    for (const char *call : {"avcodec_send_frame", "avcodec_receive_packet"}) {
        rows.During({Opening}); // the loop starts before the registration and continues after it
        rows.Add(call, Failure, L"Error code: -104", errorTag, RecoveryAfterStop(Restarting));
        rows.During({Capturing});
        rows.Add(call, Failure, L"Error code: -104", errorTag, RecoveryAfterStop(Capturing));
    }
    rows.During({Restarting}); // the failing use may belong to the old capture, which is ending
    rows.Add("avcodec_send_frame", Failure, {{}, {None, DefaultChange, Reopening}});
    rows.Add("avcodec_receive_packet", Failure, {{}, {None, DefaultChange, Reopening}});
}

Rows MakeRows()
{
    Rows rows;
    AddOpening(rows);
    AddRestarting(rows);
    AddBoth(rows);
    AddModuleReferences(rows);
    AddLoop(rows);
    return rows;
}

// On RPC_E_CHANGED_MODE the module assumes that the thread is already in an apartment. After the injected
// error it is in none, so the next COM calls fail. A lasting fault also affects the capture thread and the
// notifier.
std::optional<Expectation> ExpectedOfSpecial(const FaultCase &faulty)
{
    const std::string &call = faulty.call.name;
    if (faulty.fault.name == "RPC_E_CHANGED_MODE") {
        return Expectation{{{micTag, L"Create IMMDeviceEnumerator failed, err=0x800401F0"},
                            {notifyTag, L"GetDeviceCount pEnum is null"}},
                           {DefaultChange, Reopening, None},
                           true};
    }
    if (!faulty.lasting || faulty.fault.kind == Success) {
        return std::nullopt;
    }
    if (call == "CoInitializeEx") {
        return Expectation{{{paramTag, L"GetEncodeParam GetCOMLoadedStatus failed"}}, {Reopening}};
    }
    if (call == "CoCreateInstance") {
        return Expectation{{{micTag, noEnumerator}}, {Reopening}};
    }
    if (call == "GetModuleHandleEx") {
        return Expectation{{{notifyTag, noReferenceToEndpointDll}}, {None}, true};
    }
    if (call == "IAudioClient::GetMixFormat" && faulty.fault.kind == Size) {
        return Expectation{{{openTag, L"InitSwr failed! Err=-1"}}, {DefaultChange}};
    }
    return std::nullopt;
}

} // namespace

Expectation ExpectedOfMicrophone(const FaultCase &faulty, MicrophoneStep step, int use)
{
    static const auto *rows = new Rows(MakeRows());
    if (step == Closing) {
        return {{}, {Reopening}};
    }
    Expectation expected =
        ExpectedOfSpecial(faulty).value_or(rows->Find(faulty, step, use).value_or(Expectation{{}, {None}}));
    const std::string hex = velto::HresultText(static_cast<HRESULT>(faulty.fault.result));
    Fill(expected, L"$H", std::wstring(hex.begin(), hex.end()));
    Fill(expected, L"$E", std::to_wstring(faulty.fault.result));
    return expected;
}

} // namespace velto_test
