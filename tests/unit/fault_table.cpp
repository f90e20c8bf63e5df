#include "fault_table.h"

#include <algorithm>
#include <stdexcept>

#include "tests/fakes/fake_endpoint.h"
#include "tests/fakes/fake_ffmpeg.h"
#include "tests/fakes/fake_windows.h"

namespace velto_test {
namespace {

using fakes::Method;
using fakewin::Call;
using enum FaultKind;
using Faults = std::vector<Fault>;

// Builds an AUDCLNT error from its number, because not every SDK has a name for each.
constexpr int64_t Audclnt(uint32_t code)
{
    return static_cast<int32_t>(0x88890000U | code);
}

const Fault pointer{"E_POINTER", Failure, E_POINTER};
const Fault invalidArgument{"E_INVALIDARG", Failure, E_INVALIDARG};
const Fault outOfMemory{"E_OUTOFMEMORY", Failure, E_OUTOFMEMORY};
const Fault noInterface{"E_NOINTERFACE", Failure, E_NOINTERFACE};
const Fault notFound{"E_NOTFOUND", Failure, E_NOTFOUND};
const Fault invalidated{"AUDCLNT_E_DEVICE_INVALIDATED", Failure, Audclnt(0x4)};
const Fault serviceStopped{"AUDCLNT_E_SERVICE_NOT_RUNNING", Failure, Audclnt(0x10)};
const Fault notInitialized{"AUDCLNT_E_NOT_INITIALIZED", Failure, Audclnt(0x1)};
const Fault wrongEndpoint{"AUDCLNT_E_WRONG_ENDPOINT_TYPE", Failure, Audclnt(0x3)};
const Fault outOfOrder{"AUDCLNT_E_OUT_OF_ORDER", Failure, Audclnt(0x7)};
const Fault invalidSize{"AUDCLNT_E_INVALID_SIZE", Failure, Audclnt(0x9)};
const Fault pending{"AUDCLNT_E_BUFFER_OPERATION_PENDING", Failure, Audclnt(0xB)};
const Fault bufferSizeError{"AUDCLNT_E_BUFFER_SIZE_ERROR", Failure, Audclnt(0x16)};
const Fault bufferError{"AUDCLNT_E_BUFFER_ERROR", Failure, Audclnt(0x18)};
const Fault resourcesInvalidated{"AUDCLNT_E_RESOURCES_INVALIDATED", Failure, Audclnt(0x26)};
const Fault accessDenied{"E_ACCESSDENIED", Failure, E_ACCESSDENIED};
const Fault null{"no object", Null, fakes::nullResult};
const Fault sFalse{"S_FALSE", Success, S_FALSE};

Fault Sized(const std::string &name, uint32_t size)
{
    return {name, FaultKind::Size, fakes::SizeResult(size)};
}

Fault AcceptedFormat(const std::string &name, uint32_t size)
{
    return {name, FaultKind::Size, fakes::AcceptedFormatResult(size)};
}

Fault Error(const std::string &name, int64_t code)
{
    return {name, Failure, code};
}

FaultyCall OfEndpoint(const std::string &name, Method method, Faults faults)
{
    auto &audio = fakes::AudioSystem::Instance();
    return {name, [&audio, method] { return audio.Count(method); },
            [&audio, method](int64_t result, int nth, int times) { audio.Fail(method, result, nth, times); },
            [&audio, method](auto action, int nth) { audio.Before(method, std::move(action), nth); },
            std::move(faults)};
}

FaultyCall OfWindows(const std::string &name, Call call, Faults faults)
{
    return {name, [call] { return fakewin::Count(call); },
            [call](int64_t result, int nth, int times) { fakewin::Fail(call, result, nth, times); },
            [call](auto action, int nth) { fakewin::Before(call, std::move(action), nth); },
            std::move(faults)};
}

// FFmpeg functions that allocate, convert or encode.
FaultyCall OfFFmpeg(const std::string &name, fakeffmpeg::Call call, Faults faults)
{
    return {
        name, [call] { return fakeffmpeg::Script().Count(call); },
        [call](int64_t result, int nth, int times) { fakeffmpeg::Script().Fail(call, result, nth, times); },
        [call](auto action, int nth) { fakeffmpeg::Script().Before(call, std::move(action), nth); },
        std::move(faults)};
}

void AddEndpointCalls(std::vector<FaultyCall> &calls)
{
    calls.insert(calls.end(),
                 {OfEndpoint("IMMDeviceEnumerator::GetDefaultAudioEndpoint", Method::GetDefaultAudioEndpoint,
                             {pointer, invalidArgument, notFound, outOfMemory, null, sFalse}),
                  OfEndpoint("IMMDeviceEnumerator::RegisterEndpointNotificationCallback",
                             Method::RegisterCallback, {pointer, outOfMemory, sFalse}),
                  OfEndpoint("IMMDeviceEnumerator::UnregisterEndpointNotificationCallback",
                             Method::UnregisterCallback, {pointer, notFound, sFalse}),
                  OfEndpoint("IMMDevice::Activate", Method::Activate,
                             {noInterface, pointer, invalidArgument, outOfMemory, invalidated, accessDenied,
                              serviceStopped, null, sFalse}),
                  OfEndpoint("IMMDevice::GetId", Method::GetId, {outOfMemory, pointer, null, sFalse}),
                  OfEndpoint("IMMDevice::GetState", Method::GetState,
                             {pointer, Sized("DEVICE_STATE_DISABLED", 2), Sized("DEVICE_STATE_NOTPRESENT", 4),
                              Sized("DEVICE_STATE_UNPLUGGED", 8), Sized("no state", 0), sFalse}),
                  OfEndpoint("IAudioClient::GetMixFormat", Method::GetMixFormat,
                             {invalidated, resourcesInvalidated, serviceStopped, pointer, outOfMemory, null,
                              Sized("a format of zeros", 0), Sized("a format of huge numbers", 0xFFFFFFFF),
                              AcceptedFormat("a format of zeros that Initialize accepts", 0),
                              AcceptedFormat("a format of huge numbers that Initialize accepts", 0xFFFFFFFF),
                              sFalse})});
}

void AddClientCalls(std::vector<FaultyCall> &calls)
{
    calls.insert(
        calls.end(),
        {OfEndpoint("IAudioClient::Initialize", Method::Initialize,
                    {Error("AUDCLNT_E_ALREADY_INITIALIZED", Audclnt(0x2)), wrongEndpoint,
                     Error("AUDCLNT_E_UNSUPPORTED_FORMAT", Audclnt(0x8)),
                     Error("AUDCLNT_E_DEVICE_IN_USE", Audclnt(0xA)),
                     Error("AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED", Audclnt(0xE)),
                     Error("AUDCLNT_E_ENDPOINT_CREATE_FAILED", Audclnt(0xF)),
                     Error("AUDCLNT_E_BUFDURATION_PERIOD_NOT_EQUAL", Audclnt(0x13)), bufferSizeError,
                     Error("AUDCLNT_E_CPUUSAGE_EXCEEDED", Audclnt(0x17)),
                     Error("AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED", Audclnt(0x19)),
                     Error("AUDCLNT_E_INVALID_DEVICE_PERIOD", Audclnt(0x20)), invalidated,
                     resourcesInvalidated, accessDenied, serviceStopped, pointer, invalidArgument,
                     outOfMemory, sFalse}),
         OfEndpoint("IAudioClient::SetEventHandle", Method::SetEventHandle,
                    {Error("AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED", Audclnt(0x11)), notInitialized, invalidated,
                     serviceStopped, resourcesInvalidated, invalidArgument, sFalse}),
         OfEndpoint("IAudioClient::GetBufferSize", Method::GetBufferSize,
                    {notInitialized, invalidated, resourcesInvalidated, serviceStopped, pointer,
                     Sized("0 frames", 0), Sized("1 frame", 1), Sized("4294967295 frames", 0xFFFFFFFF),
                     sFalse}),
         OfEndpoint("IAudioClient::GetService", Method::GetService,
                    {pointer, noInterface, notInitialized, wrongEndpoint, invalidated, resourcesInvalidated,
                     serviceStopped, null, sFalse}),
         OfEndpoint("IAudioClient::Start", Method::Start,
                    {notInitialized, Error("AUDCLNT_E_NOT_STOPPED", Audclnt(0x5)),
                     Error("AUDCLNT_E_EVENTHANDLE_NOT_SET", Audclnt(0x14)), invalidated, resourcesInvalidated,
                     serviceStopped, Error("AUDCLNT_E_DEVICE_IN_USE", Audclnt(0xA)), sFalse}),
         OfEndpoint("IAudioClient::Stop", Method::Stop,
                    {notInitialized, invalidated, resourcesInvalidated, serviceStopped, sFalse}),
         OfEndpoint("IAudioClient::GetCurrentPadding", Method::GetCurrentPadding,
                    {notInitialized, invalidated, resourcesInvalidated, serviceStopped, pointer,
                     Sized("0 frames", 0), Sized("4294967295 frames", 0xFFFFFFFF), sFalse})});
}

void AddBufferCalls(std::vector<FaultyCall> &calls)
{
    calls.insert(
        calls.end(),
        {OfEndpoint("IAudioRenderClient::GetBuffer", Method::GetBuffer,
                    {bufferError, Error("AUDCLNT_E_BUFFER_TOO_LARGE", Audclnt(0x6)), bufferSizeError,
                     outOfOrder, invalidated, resourcesInvalidated, pending, serviceStopped, pointer, null,
                     sFalse}),
         OfEndpoint("IAudioRenderClient::ReleaseBuffer", Method::ReleaseBuffer,
                    {invalidSize, bufferSizeError, outOfOrder, invalidated, resourcesInvalidated,
                     serviceStopped, invalidArgument, sFalse}),
         OfEndpoint("IAudioCaptureClient::GetBuffer", Method::CaptureGetBuffer,
                    {bufferError,
                     outOfOrder,
                     invalidated,
                     resourcesInvalidated,
                     pending,
                     serviceStopped,
                     pointer,
                     null,
                     Sized("0 frames", 0),
                     Sized("4026531840 frames", 0xF0000000),
                     Sized("4294967295 frames", 0xFFFFFFFF),
                     {"AUDCLNT_S_BUFFER_EMPTY", Success, 0x08890001},
                     sFalse}),
         OfEndpoint("IAudioCaptureClient::ReleaseBuffer", Method::CaptureReleaseBuffer,
                    {invalidSize, outOfOrder, invalidated, resourcesInvalidated, serviceStopped, sFalse}),
         OfEndpoint("IAudioCaptureClient::GetNextPacketSize", Method::GetNextPacketSize,
                    {invalidated, resourcesInvalidated, serviceStopped, pointer, Sized("0 frames", 0),
                     Sized("4294967295 frames", 0xFFFFFFFF), sFalse}),
         OfEndpoint("IAudioEndpointVolume::GetMute", Method::GetMute, {pointer, invalidated, sFalse})});
}

void AddWindowsCalls(std::vector<FaultyCall> &calls)
{
    const Fault noMemory = Error("ERROR_NOT_ENOUGH_MEMORY", ERROR_NOT_ENOUGH_MEMORY);
    const Fault noResources = Error("ERROR_NO_SYSTEM_RESOURCES", 1450);
    const Fault invalidHandle = Error("ERROR_INVALID_HANDLE", ERROR_INVALID_HANDLE);
    // Not lasting: with a permanently invalid handle no thread could be woken or awaited.
    const Fault invalidOnce{"ERROR_INVALID_HANDLE", Failure, ERROR_INVALID_HANDLE, false};
    const Fault waitFailed{"WAIT_FAILED", Failure, 0xFFFFFFFF, false};
    const Fault denied = Error("ERROR_ACCESS_DENIED", ERROR_ACCESS_DENIED);
    const Fault deleted = Error("ERROR_KEY_DELETED", ERROR_KEY_DELETED);
    const Fault missing = Error("ERROR_FILE_NOT_FOUND", ERROR_FILE_NOT_FOUND);
    calls.insert(
        calls.end(),
        {OfWindows("CoInitializeEx", Call::CoInitializeEx,
                   {Error("RPC_E_CHANGED_MODE", RPC_E_CHANGED_MODE), invalidArgument, outOfMemory,
                    Error("E_UNEXPECTED", E_UNEXPECTED), sFalse}),
         OfWindows("CoCreateInstance", Call::CoCreateInstance,
                   {Error("REGDB_E_CLASSNOTREG", REGDB_E_CLASSNOTREG),
                    Error("CLASS_E_NOAGGREGATION", static_cast<int32_t>(0x80040110U)), noInterface, pointer,
                    outOfMemory, null, sFalse}),
         OfWindows("CreateEvent", Call::CreateEventW, {noMemory, noResources}),
         OfWindows("SetEvent", Call::SetEvent, {invalidOnce}),
         OfWindows("ResetEvent", Call::ResetEvent, {invalidOnce}),
         OfWindows("WaitForSingleObject", Call::WaitForSingleObject, {waitFailed}),
         OfWindows("CreateThread", Call::CreateThread,
                   {noMemory, Error("ERROR_MAX_THRDS_REACHED", 164), denied}),
         OfWindows("GetModuleHandleEx", Call::GetModuleHandleExW,
                   {Error("ERROR_MOD_NOT_FOUND", 126), noMemory}),
         OfWindows("RegOpenKeyEx", Call::RegOpenKeyExW, {missing, denied, deleted, noMemory}),
         OfWindows("RegCreateKeyEx", Call::RegCreateKeyExW, {denied, deleted, noMemory, noResources}),
         OfWindows("RegQueryValueEx", Call::RegQueryValueExW,
                   {missing, denied, deleted, invalidHandle, Error("ERROR_MORE_DATA", ERROR_MORE_DATA)}),
         OfWindows("RegSetValueEx", Call::RegSetValueExW, {denied, deleted, invalidHandle, noResources})});
}

void AddFFmpegCalls(std::vector<FaultyCall> &calls)
{
    using fakeffmpeg::Call;
    const Fault noMemory = Error("ENOMEM", AVERROR(ENOMEM));
    const Fault invalid = Error("EINVAL", AVERROR(EINVAL));
    calls.insert(calls.end(),
                 {OfFFmpeg("swr_alloc", Call::swr_alloc, {noMemory}),
                  OfFFmpeg("swr_alloc_set_opts2", Call::swr_alloc_set_opts2, {noMemory, invalid}),
                  OfFFmpeg("swr_init", Call::swr_init, {noMemory, invalid}),
                  OfFFmpeg("swr_convert", Call::swr_convert, {noMemory, invalid}),
                  OfFFmpeg("av_samples_alloc_array_and_samples", Call::av_samples_alloc_array_and_samples,
                           {noMemory, invalid}),
                  OfFFmpeg("av_samples_get_buffer_size", Call::av_samples_get_buffer_size, {invalid}),
                  OfFFmpeg("avcodec_send_frame", Call::avcodec_send_frame, {noMemory, invalid}),
                  OfFFmpeg("avcodec_receive_packet", Call::avcodec_receive_packet, {invalid})});
}

} // namespace

const std::vector<FaultyCall> &FaultyCalls()
{
    static const auto *all = [] {
        auto *calls = new std::vector<FaultyCall>;
        AddWindowsCalls(*calls);
        AddEndpointCalls(*calls);
        AddClientCalls(*calls);
        AddBufferCalls(*calls);
        AddFFmpegCalls(*calls);
        return calls;
    }();
    return *all;
}

const FaultyCall &FaultyCallNamed(const std::string &name)
{
    const auto &calls = FaultyCalls();
    const auto found =
        std::find_if(calls.begin(), calls.end(), [&](const FaultyCall &call) { return call.name == name; });
    if (found == calls.end()) {
        throw std::invalid_argument(name);
    }
    return *found;
}

void ClearAllFaults()
{
    fakewin::ClearFaults();
    fakes::AudioSystem::Instance().ClearFaults();
    fakeffmpeg::Script().ClearFaults();
}

} // namespace velto_test
