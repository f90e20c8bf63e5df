#include <initguid.h> // first, so that the other headers define the interface ids and property keys

#include "velto-host/device_commands.h"

#include <windows.h>

#include <audioclient.h>
#include <functiondiscoverykeys_devpkey.h>
#include <mmdeviceapi.h>
#include <wrl/client.h>

#include <array>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "velto-host/com_apartment.h"
#include "velto-host/windows_text.h"

namespace velto::host {
namespace {

using Microsoft::WRL::ComPtr;

std::string DeviceTypeName(uint32_t type)
{
    switch (type) {
    case VELTO_DEVICE_TYPE_SPEAKER:
        return "speaker";
    case VELTO_DEVICE_TYPE_MIC:
        return "microphone";
    case VELTO_DEVICE_TYPE_MODEM_SPEAKER:
        return "call speaker";
    case VELTO_DEVICE_TYPE_MODEM_MIC:
        return "call microphone";
    default:
        return "unknown";
    }
}

// 0 for an unknown code.
uint32_t ChannelsOf(uint32_t code)
{
    switch (code) {
    case VELTO_CHANNEL_MONO:
    case VELTO_CHANNEL_MONO_IN:
        return 1;
    case VELTO_CHANNEL_STEREO:
    case VELTO_CHANNEL_STEREO_IN:
        return 2;
    default:
        return 0;
    }
}

uint32_t BitsOf(uint32_t code)
{
    switch (code) {
    case VELTO_FORMAT_U8:
        return 8;
    case VELTO_FORMAT_S16:
        return 16;
    case VELTO_FORMAT_S24:
        return 24;
    case VELTO_FORMAT_S32:
        return 32;
    default:
        return 0;
    }
}

std::string CodecName(uint32_t code)
{
    return code == VELTO_CODEC_AAC ? "AAC (audio/mp4a-latm)" : "unknown";
}

Json Describe(const AudioCapabilityItem &item)
{
    Json profiles = Json::Array();
    for (const AudioCapabilityProfile &profile : std::span(item.profiles, item.profileCount)) {
        profiles.Append({{"sampleRate", profile.sampleRate},
                         {"channel", profile.channel},
                         {"channels", ChannelsOf(profile.channel)},
                         {"format", profile.format},
                         {"bitsPerSample", BitsOf(profile.format)}});
    }
    Json codecs = Json::Array();
    for (const uint32_t codec : std::span(item.codecs, item.codecCount)) {
        codecs.Append({{"code", codec}, {"name", CodecName(codec)}});
    }
    return {{"id", std::string(item.name, item.nameLength)},
            {"type", item.deviceType},
            {"typeName", DeviceTypeName(item.deviceType)},
            {"profiles", profiles},
            {"codecs", codecs}};
}

void Print(const AudioCapabilityItem &item, const Output &output)
{
    output.Say("{}  type {} ({})", std::string(item.name, item.nameLength), item.deviceType,
               DeviceTypeName(item.deviceType));
    for (const AudioCapabilityProfile &profile : std::span(item.profiles, item.profileCount)) {
        output.Say("    profile  {} Hz, {} channel(s) (code {}), {} bit (code {})", profile.sampleRate,
                   ChannelsOf(profile.channel), profile.channel, BitsOf(profile.format), profile.format);
    }
    for (const uint32_t codec : std::span(item.codecs, item.codecCount)) {
        output.Say("    codec    {} (code {})", CodecName(codec), codec);
    }
}

constexpr std::array<std::pair<ERole, const char *>, 3> roles{
    {{eConsole, "console"}, {eMultimedia, "multimedia"}, {eCommunications, "communications"}}};

std::string StateName(DWORD state)
{
    switch (state) {
    case DEVICE_STATE_ACTIVE:
        return "active";
    case DEVICE_STATE_DISABLED:
        return "disabled";
    case DEVICE_STATE_NOTPRESENT:
        return "not present";
    case DEVICE_STATE_UNPLUGGED:
        return "unplugged";
    default:
        return "unknown";
    }
}

std::string IdOf(IMMDevice &device)
{
    wchar_t *id = nullptr;
    if (FAILED(device.GetId(&id))) {
        return {};
    }
    std::string text = ToUtf8(id);
    CoTaskMemFree(id);
    return text;
}

std::string NameOf(IMMDevice &device)
{
    ComPtr<IPropertyStore> properties;
    if (FAILED(device.OpenPropertyStore(STGM_READ, &properties))) {
        return {};
    }
    PROPVARIANT value;
    PropVariantInit(&value);
    std::string name;
    if (SUCCEEDED(properties->GetValue(PKEY_Device_FriendlyName, &value)) && value.vt == VT_LPWSTR) {
        name = ToUtf8(value.pwszVal);
    }
    PropVariantClear(&value);
    return name;
}

// The format of an endpoint in shared mode.
struct MixFormat {
    uint32_t sampleRateHz = 0; // 0: the endpoint is not active, or has no format
    uint32_t channels = 0;
    uint32_t bitsPerSample = 0;
    uint32_t formatTag = 0;
};

MixFormat MixFormatOf(IMMDevice &device)
{
    ComPtr<IAudioClient> client;
    WAVEFORMATEX *format = nullptr;
    if (FAILED(device.Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, &client)) ||
        FAILED(client->GetMixFormat(&format))) {
        return {};
    }
    const MixFormat mix{format->nSamplesPerSec, format->nChannels, format->wBitsPerSample,
                        format->wFormatTag};
    CoTaskMemFree(format);
    return mix;
}

std::vector<std::string> DefaultRoles(IMMDeviceEnumerator &enumerator, EDataFlow flow, const std::string &id)
{
    std::vector<std::string> defaults;
    for (const auto &[role, name] : roles) {
        ComPtr<IMMDevice> device;
        if (SUCCEEDED(enumerator.GetDefaultAudioEndpoint(flow, role, &device)) && IdOf(*device.Get()) == id) {
            defaults.emplace_back(name);
        }
    }
    return defaults;
}

struct Endpoint {
    std::string id;
    std::string name;
    std::string flow;
    std::string state;
    MixFormat mix;
    std::vector<std::string> defaultFor;
};

Endpoint Examine(IMMDeviceEnumerator &enumerator, EDataFlow flow, IMMDevice &device)
{
    DWORD state = 0;
    device.GetState(&state);
    const std::string id = IdOf(device);
    return {id,
            NameOf(device),
            flow == eRender ? "render" : "capture",
            StateName(state),
            state == DEVICE_STATE_ACTIVE ? MixFormatOf(device) : MixFormat(),
            DefaultRoles(enumerator, flow, id)};
}

Json Describe(const Endpoint &endpoint)
{
    Json mix;
    if (endpoint.mix.sampleRateHz != 0) {
        mix = {{"sampleRate", endpoint.mix.sampleRateHz},
               {"channels", endpoint.mix.channels},
               {"bitsPerSample", endpoint.mix.bitsPerSample},
               {"formatTag", endpoint.mix.formatTag}};
    }
    return {{"id", endpoint.id},       {"name", endpoint.name}, {"flow", endpoint.flow},
            {"state", endpoint.state}, {"mixFormat", mix},      {"defaultFor", endpoint.defaultFor}};
}

void Print(const Endpoint &endpoint, const Output &output)
{
    std::string defaults;
    for (const std::string &role : endpoint.defaultFor) {
        defaults += (defaults.empty() ? ", default for " : " + ") + role;
    }
    output.Say("{}\n    {}, {}{}\n    {}", endpoint.name, endpoint.flow, endpoint.state, defaults,
               endpoint.id);
    if (endpoint.mix.sampleRateHz != 0) {
        output.Say("    mix format {} Hz, {} channel(s), {} bit", endpoint.mix.sampleRateHz,
                   endpoint.mix.channels, endpoint.mix.bitsPerSample);
    }
}

// A failed call, and its result.
class CallError : public std::runtime_error {
public:
    CallError(const char *call, HRESULT result) : std::runtime_error(call), m_result(result) {}
    HRESULT Result() const { return m_result; }

private:
    HRESULT m_result;
};

// Throws CallError.
std::vector<Endpoint> ListEndpoints()
{
    ComPtr<IMMDeviceEnumerator> enumerator;
    HRESULT result = CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                      __uuidof(IMMDeviceEnumerator), &enumerator);
    if (FAILED(result)) {
        throw CallError("cannot create the device enumerator", result);
    }
    std::vector<Endpoint> endpoints;
    for (const EDataFlow flow : {eRender, eCapture}) {
        ComPtr<IMMDeviceCollection> collection;
        UINT count = 0;
        result = enumerator->EnumAudioEndpoints(flow, DEVICE_STATEMASK_ALL, &collection);
        if (FAILED(result) || FAILED(result = collection->GetCount(&count))) {
            throw CallError("cannot list the endpoints", result);
        }
        for (UINT i = 0; i < count; ++i) {
            ComPtr<IMMDevice> device;
            if (SUCCEEDED(collection->Item(i, &device))) {
                endpoints.push_back(Examine(*enumerator.Get(), flow, *device.Get()));
            }
        }
    }
    return endpoints;
}

// Equal for equal ids, so that two reports of one PC can be compared.
std::string ShortChecksum(const std::string &text)
{
    uint32_t hash = 2166136261U; // FNV-1a
    for (const char c : text) {
        hash = (hash ^ static_cast<uint8_t>(c)) * 16777619U;
    }
    return Format("{:08x}", hash);
}

} // namespace

Json DescribeCapabilities(Module &module)
{
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 0;
    const int32_t result = module->GetAudioCapability(&list, &count);
    if (result != VELTO_OK) {
        return {{"error", Format("GetAudioCapability returned {}", result)}};
    }
    Json devices = Json::Array();
    for (const AudioCapabilityItem &item : std::span(list, count)) {
        devices.Append(Describe(item));
    }
    module->Release(VELTO_RELEASE_CAPABILITIES, list, count);
    return devices;
}

Json DescribeEndpoints(bool withNames)
{
    const ComApartment apartment;
    try {
        Json endpoints = Json::Array();
        uint32_t number = 0;
        for (Endpoint &endpoint : ListEndpoints()) {
            ++number;
            if (!withNames) {
                endpoint.name = Format("endpoint {}", number);
                endpoint.id = "checksum " + ShortChecksum(endpoint.id);
            }
            endpoints.Append(Describe(endpoint));
        }
        return endpoints;
    } catch (const CallError &error) {
        return {{"error",
                 std::string(error.what()) + ": " + SystemErrorText(static_cast<uint32_t>(error.Result()))}};
    }
}

ExitCode ShowCapabilities(Module &module, const Output &output)
{
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 0;
    const int32_t result = module->GetAudioCapability(&list, &count);
    if (result != VELTO_OK) {
        output.Complain("GetAudioCapability returned {}", result);
        output.Result({{"error", "GetAudioCapability failed"},
                       {"module", module.Path()},
                       {"result", result},
                       {"exitCode", int{EXIT_FAILED}}});
        return EXIT_FAILED;
    }
    Json devices = Json::Array();
    for (const AudioCapabilityItem &item : std::span(list, count)) {
        devices.Append(Describe(item));
        Print(item, output);
    }
    module->Release(VELTO_RELEASE_CAPABILITIES, list, count);
    module.Unload();
    output.Result({{"module", module.Path()}, {"devices", devices}, {"exitCode", int{EXIT_OK}}});
    return EXIT_OK;
}

ExitCode ShowDevices(const Output &output)
{
    const ComApartment apartment;
    try {
        Json devices = Json::Array();
        const std::vector<Endpoint> endpoints = ListEndpoints();
        for (const Endpoint &endpoint : endpoints) {
            devices.Append(Describe(endpoint));
            Print(endpoint, output);
        }
        if (endpoints.empty()) {
            output.Say("There is no sound endpoint.");
        }
        output.Result({{"devices", devices}, {"exitCode", int{EXIT_OK}}});
        return EXIT_OK;
    } catch (const CallError &error) {
        output.Complain("{}: {}", error.what(), SystemErrorText(static_cast<uint32_t>(error.Result())));
        output.Result(
            {{"error", error.what()}, {"result", int32_t{error.Result()}}, {"exitCode", int{EXIT_FAILED}}});
        return EXIT_FAILED;
    }
}

} // namespace velto::host
