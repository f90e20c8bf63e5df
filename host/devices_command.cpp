#include <initguid.h> // first: gives the interface ids and property keys below a home

#include "host/devices_command.h"

#include <windows.h>

#include <audioclient.h>
#include <functiondiscoverykeys_devpkey.h>
#include <mmdeviceapi.h>

#include <array>
#include <string>
#include <utility>

#include "host/utf8.h"

namespace velto::host {
namespace {

// An interface pointer that is released with its scope.
template <typename Interface>
class Held {
public:
    Held() = default;
    ~Held()
    {
        if (m_object != nullptr) {
            m_object->Release();
        }
    }
    Held(const Held &) = delete;
    Held &operator=(const Held &) = delete;
    Interface **operator&() { return &m_object; }
    Interface *operator->() const { return m_object; }
    void **AsVoid() { return reinterpret_cast<void **>(&m_object); }

private:
    Interface *m_object = nullptr;
};

class ComApartment {
public:
    ComApartment() : m_entered(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
    ~ComApartment()
    {
        if (m_entered) {
            CoUninitialize();
        }
    }
    ComApartment(const ComApartment &) = delete;
    ComApartment &operator=(const ComApartment &) = delete;

private:
    bool m_entered;
};

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
    std::string text = Narrow(id);
    CoTaskMemFree(id);
    return text;
}

std::string NameOf(IMMDevice &device)
{
    Held<IPropertyStore> properties;
    if (FAILED(device.OpenPropertyStore(STGM_READ, &properties))) {
        return {};
    }
    PROPVARIANT value;
    PropVariantInit(&value);
    std::string name;
    if (SUCCEEDED(properties->GetValue(PKEY_Device_FriendlyName, &value)) && value.vt == VT_LPWSTR) {
        name = Narrow(value.pwszVal);
    }
    PropVariantClear(&value);
    return name;
}

// Null for an endpoint that is not active, or refuses.
Json MixFormatOf(IMMDevice &device)
{
    Held<IAudioClient> client;
    WAVEFORMATEX *format = nullptr;
    if (FAILED(device.Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, client.AsVoid())) ||
        FAILED(client->GetMixFormat(&format))) {
        return nullptr;
    }
    Json mix{{"sampleRate", uint32_t{format->nSamplesPerSec}},
             {"channels", uint32_t{format->nChannels}},
             {"bitsPerSample", uint32_t{format->wBitsPerSample}},
             {"formatTag", uint32_t{format->wFormatTag}}};
    CoTaskMemFree(format);
    return mix;
}

Json DefaultRoles(IMMDeviceEnumerator &enumerator, EDataFlow flow, const std::string &id)
{
    Json held = Json::array();
    for (const auto &[role, name] : roles) {
        Held<IMMDevice> device;
        if (SUCCEEDED(enumerator.GetDefaultAudioEndpoint(flow, role, &device)) &&
            IdOf(*device.operator->()) == id) {
            held.push_back(name);
        }
    }
    return held;
}

Json Describe(IMMDeviceEnumerator &enumerator, EDataFlow flow, IMMDevice &device)
{
    DWORD state = 0;
    device.GetState(&state);
    const std::string id = IdOf(device);
    return {{"id", id},
            {"name", NameOf(device)},
            {"flow", flow == eRender ? "render" : "capture"},
            {"state", StateName(state)},
            {"mixFormat", state == DEVICE_STATE_ACTIVE ? MixFormatOf(device) : Json(nullptr)},
            {"defaultFor", DefaultRoles(enumerator, flow, id)}};
}

void Print(const Json &device, const Output &output)
{
    std::string defaults;
    for (const Json &role : device["defaultFor"]) {
        defaults += (defaults.empty() ? ", default for " : " + ") + role.get<std::string>();
    }
    output.Say("{}\n    {}, {}{}\n    {}", device["name"].get<std::string>(),
               device["flow"].get<std::string>(), device["state"].get<std::string>(), defaults,
               device["id"].get<std::string>());
    const Json &mix = device["mixFormat"];
    if (!mix.is_null()) {
        output.Say("    mix format {} Hz, {} channel(s), {} bit", mix["sampleRate"].get<uint32_t>(),
                   mix["channels"].get<uint32_t>(), mix["bitsPerSample"].get<uint32_t>());
    }
}

ExitCode Refused(const char *call, HRESULT result, const Output &output)
{
    output.Complain("{}: {}", call, SystemErrorText(static_cast<uint32_t>(result)));
    output.Result({{"error", call}, {"result", result}, {"exitCode", int{EXIT_FAILED}}});
    return EXIT_FAILED;
}

} // namespace

ExitCode ShowDevices(const Output &output)
{
    const ComApartment apartment;
    Held<IMMDeviceEnumerator> enumerator;
    HRESULT result = CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                      __uuidof(IMMDeviceEnumerator), enumerator.AsVoid());
    if (FAILED(result)) {
        return Refused("cannot create the device enumerator", result, output);
    }
    Json devices = Json::array();
    for (const EDataFlow flow : {eRender, eCapture}) {
        Held<IMMDeviceCollection> collection;
        UINT count = 0;
        result = enumerator->EnumAudioEndpoints(flow, DEVICE_STATEMASK_ALL, &collection);
        if (FAILED(result) || FAILED(result = collection->GetCount(&count))) {
            return Refused("cannot list the endpoints", result, output);
        }
        for (UINT i = 0; i < count; ++i) {
            Held<IMMDevice> device;
            if (SUCCEEDED(collection->Item(i, &device))) {
                devices.push_back(Describe(*enumerator.operator->(), flow, *device.operator->()));
                Print(devices.back(), output);
            }
        }
    }
    if (devices.empty()) {
        output.Say("There is no sound endpoint.");
    }
    output.Result({{"devices", devices}, {"exitCode", int{EXIT_OK}}});
    return EXIT_OK;
}

} // namespace velto::host
