// The microphone's outcome for each failing call.
#include "expectation_rows.h"
#include "microphone_scenario.h"
#include "support/com.h"

namespace velto_test {
namespace {

using enum MicrophoneMoment;
using enum FaultKind;
using enum Recovery;
using Rows = ExpectationRows<MicrophoneMoment>;

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

const wchar_t *const noCapturingCom = L"AudioCaptureAndEncodeThreadProc GetCOMLoadedStatus failed";
const wchar_t *const noNotifierEnumerator = L"GetDeviceCount pEnum is null";

constexpr const char *wholeOpening = "opening";
constexpr const char *whileSettingUp = "opening: encoder set-up";
constexpr const char *whileRegistering = "opening: registration for other default devices";
constexpr const char *whileUnregistered = "opening the device, before the registration";
constexpr const char *whileRegistered = "opening the device, after the registration";
constexpr const char *whileCapturing = "capturing";

// A failing capture thread stops the capture and ends the registration, if it exists already.
struct CaptureMoment {
    MicrophoneMoment moment;
    const char *name;
    Recovery recovery;
};
constexpr CaptureMoment captureMoments[] = {{Unregistered, whileUnregistered, DefaultChange},
                                            {Registered, whileRegistered, Reopening}};

Expectation NotFollowing(const std::wstring &text)
{
    return Rows::Expected(text, notifyTag, None, true);
}

// On RPC_E_CHANGED_MODE the module assumes that the thread is already in an apartment. After the injected
// error it is in none, so the next COM calls fail.
void AddCom(Rows &rows)
{
    const std::string changedMode = "RPC_E_CHANGED_MODE";
    const std::wstring notInitialised = L"Create IMMDeviceEnumerator failed, err=0x800401F0";
    const std::wstring noCom = L"GetEncodeParam GetCOMLoadedStatus failed";
    rows.During({SettingUp}, whileSettingUp);
    rows.AddNamed("CoInitializeEx", changedMode, Rows::Expected(notInitialised, micTag, DefaultChange));
    rows.Add("CoInitializeEx", Failure, noCom, paramTag, DefaultChange);
    // Neither the device is opened nor other default devices are followed.
    rows.During({Registering}, wholeOpening);
    rows.AddNamed("CoInitializeEx", changedMode, Rows::Expected(notInitialised, micTag, Reopening), 0,
                  Lasting::Always);
    rows.Add("CoInitializeEx", Failure, Rows::Expected(noCom, paramTag, Reopening), 0, Lasting::Always);
    for (const CaptureMoment &each : captureMoments) {
        rows.During({each.moment}, each.name);
        rows.AddNamed("CoInitializeEx", changedMode, Rows::Expected(notInitialised, micTag, each.recovery));
        rows.Add("CoInitializeEx", Failure, noCapturingCom, threadTag, DefaultChange);
    }
    rows.During({Registering}, whileRegistering);
    rows.AddNamed("CoInitializeEx", changedMode, NotFollowing(noNotifierEnumerator));
    rows.Add("CoInitializeEx", Failure, NotFollowing(L"GetCOMLoadedStatus failed"));
}

void AddThreads(Rows &rows)
{
    rows.During({Notifying}, "a change of the default device");
    rows.Add("CreateThread", Failure, L"Create restart thread failed, err=$E", changedTag, None);
    rows.During({Preparing}, "opening: start of the threads");
    rows.Add("CreateEvent", Failure, L"Create windows event failed! err=$E", prepareTag, DefaultChange);
    rows.Add("CreateThread", Failure, noInitThread, prepareTag, DefaultChange);
    rows.During({SettingUp}, whileSettingUp);
    rows.Add("CreateThread", Failure, noCaptureThread, initializeTag, DefaultChange);
}

void AddRegistration(Rows &rows)
{
    rows.During({Registering}, wholeOpening);
    for (const FaultKind kind : {Failure, Null}) {
        rows.Add("CoCreateInstance", kind, Rows::Expected(noEnumerator, micTag, Reopening), 0,
                 Lasting::Always);
    }
    // The notifier does not register without references to the endpoints' DLL and to this module.
    rows.Add("GetModuleHandleEx", Failure, NotFollowing(noReferenceToEndpointDll), 0, Lasting::Always);
    rows.During({Registering}, whileRegistering);
    for (const FaultKind kind : {Failure, Null}) {
        rows.Add("CoCreateInstance", kind, NotFollowing(noNotifierEnumerator));
    }
    rows.Add("IMMDeviceEnumerator::RegisterEndpointNotificationCallback", Failure, NotFollowing(L""));
    // An opening makes this call twice for its threads, then for the endpoints' DLL and for this module.
    rows.Add("GetModuleHandleEx", Failure, NotFollowing(noReferenceToEndpointDll), 3);
    rows.Add("GetModuleHandleEx", Failure, NotFollowing(noReferenceToThisModule));
}

void AddEndpoint(Rows &rows)
{
    for (const FaultKind kind : {Failure, Null}) {
        rows.During({SettingUp}, whileSettingUp);
        rows.Add("CoCreateInstance", kind, noEnumerator, micTag, DefaultChange);
        rows.Add("IMMDeviceEnumerator::GetDefaultAudioEndpoint", kind, noEndpoint, micTag, DefaultChange);
        rows.Add("IMMDevice::Activate", kind, noClient, micTag, DefaultChange);
        rows.Add("IAudioClient::GetMixFormat", kind, noFormat, micTag, DefaultChange);
        for (const CaptureMoment &each : captureMoments) {
            rows.During({each.moment}, each.name);
            rows.Add("CoCreateInstance", kind, noEnumerator, micTag, each.recovery);
            rows.Add("IMMDeviceEnumerator::GetDefaultAudioEndpoint", kind, noEndpoint, micTag, each.recovery);
            rows.Add("IMMDevice::Activate", kind, noVolume, openTag, each.recovery, 3);
            rows.Add("IMMDevice::Activate", kind, noClient, micTag, each.recovery);
            rows.Add("IAudioClient::GetMixFormat", kind, noFormat, micTag, each.recovery);
            rows.Add("IAudioClient::GetService", kind, L"Get audio capture service failed, err=$H", openTag,
                     each.recovery);
        }
    }
}

void AddStream(Rows &rows)
{
    for (const CaptureMoment &each : captureMoments) {
        rows.During({each.moment}, each.name);
        rows.Add("IAudioClient::GetMixFormat", Size, L"InitSwr failed! Err=-1", openTag, each.recovery);
        rows.Add("IAudioClient::Initialize", Failure, L"Initialize audio client failed, err=$H", openTag,
                 each.recovery);
        rows.Add("IAudioClient::Start", Failure, L"Start audio client failed! err=$H", threadTag,
                 each.recovery);
        rows.Add("swr_alloc_set_opts2", Failure, noConverter, swrTag, each.recovery);
        rows.Add("swr_init", Failure, noConverter, swrTag, each.recovery);
        for (const char *call : {"avcodec_send_frame", "avcodec_receive_packet"}) {
            rows.Add(call, Failure, L"Error code: -104", errorTag, each.recovery);
        }
    }
}

void AddLoop(Rows &rows)
{
    rows.During({Unregistered, Registered}, whileCapturing);
    const std::string client = "IAudioCaptureClient::";
    rows.Add(client + "GetBuffer", Failure, L"Capture audio frame failed! err=$H", loopTag, None);
    Expectation notOk = Rows::Expected(L"Capture audio frame failed! err=$H", loopTag, None);
    notOk.alsoLoggedWithoutFault = true;
    rows.Add(client + "GetBuffer", Success, notOk);
    rows.Add(client + "GetBuffer", Null, L"Error while converting", convertTag, None);
    rows.Add(client + "ReleaseBuffer", Failure, L"ReleaseBuffer Capture audio data failed! err=$H", loopTag,
             None);
    rows.Add(client + "GetNextPacketSize", Failure, L"Get next audio packet size failed! err=$H", loopTag,
             None);
    rows.Add("av_samples_alloc_array_and_samples", Failure, L"Could not allocate destination samples",
             convertTag, None);
    rows.Add("swr_convert", Failure, L"Error while converting", convertTag, None);
    rows.Add("av_samples_get_buffer_size", Failure, L"Could not get sample buffer size", convertTag, None);
}

Rows MakeRows()
{
    Rows rows;
    AddCom(rows);
    AddThreads(rows);
    AddRegistration(rows);
    AddEndpoint(rows);
    AddStream(rows);
    AddLoop(rows);
    return rows;
}

Rows &TheRows()
{
    static auto *rows = new Rows(MakeRows());
    return *rows;
}

} // namespace

Expectation ExpectedOfMicrophone(const FaultCase &faulty, MicrophoneStep step, MicrophoneMoment moment,
                                 int use)
{
    if (step == MicrophoneStep::Closing) { // closed, with or without a fault
        return Rows::Expected(L"", "", Reopening);
    }
    Expectation expected = TheRows().Find(faulty, moment, use).value_or(Expectation{});
    const std::string hex = velto::HresultText(static_cast<HRESULT>(faulty.fault.result));
    Fill(expected, L"$H", std::wstring(hex.begin(), hex.end()));
    Fill(expected, L"$E", std::to_wstring(faulty.fault.result));
    return expected;
}

std::vector<FaultRow> MicrophoneFaultRows()
{
    return TheRows().AsText();
}

} // namespace velto_test
