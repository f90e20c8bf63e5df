#include "host/capabilities_command.h"

#include <span>
#include <string>

namespace velto::host {
namespace {

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

// 0 for a code without a meaning.
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
    Json device{{"id", std::string(item.name, item.nameLength)},
                {"type", item.deviceType},
                {"typeName", DeviceTypeName(item.deviceType)},
                {"profiles", Json::array()},
                {"codecs", Json::array()}};
    for (const AudioCapabilityProfile &profile : std::span(item.profiles, item.profileCount)) {
        device["profiles"].push_back({{"sampleRate", profile.sampleRate},
                                      {"channel", profile.channel},
                                      {"channels", ChannelsOf(profile.channel)},
                                      {"format", profile.format},
                                      {"bitsPerSample", BitsOf(profile.format)}});
    }
    for (const uint32_t codec : std::span(item.codecs, item.codecCount)) {
        device["codecs"].push_back({{"code", codec}, {"name", CodecName(codec)}});
    }
    return device;
}

void Print(const Json &device, const Output &output)
{
    output.Say("{}  type {} ({})", device["id"].get<std::string>(), device["type"].get<uint32_t>(),
               device["typeName"].get<std::string>());
    for (const Json &profile : device["profiles"]) {
        output.Say("    profile  {} Hz, {} channel(s) (code {}), {} bit (code {})",
                   profile["sampleRate"].get<uint32_t>(), profile["channels"].get<uint32_t>(),
                   profile["channel"].get<uint32_t>(), profile["bitsPerSample"].get<uint32_t>(),
                   profile["format"].get<uint32_t>());
    }
    for (const Json &codec : device["codecs"]) {
        output.Say("    codec    {} (code {})", codec["name"].get<std::string>(),
                   codec["code"].get<uint32_t>());
    }
}

} // namespace

ExitCode ShowCapabilities(const Module &module, const Output &output)
{
    AudioCapabilityItem *list = nullptr;
    uint32_t count = 0;
    const int32_t result = module->GetAudioCapability(&list, &count);
    if (result != VELTO_OK) {
        output.Complain("GetAudioCapability returned {}", result);
        output.Result({{"module", module.Path()}, {"result", result}, {"exitCode", int{EXIT_FAILED}}});
        return EXIT_FAILED;
    }
    Json devices = Json::array();
    for (const AudioCapabilityItem &item : std::span(list, count)) {
        devices.push_back(Describe(item));
        Print(devices.back(), output);
    }
    module->Release(VELTO_RELEASE_CAPABILITIES, list, count);
    output.Result({{"module", module.Path()}, {"devices", devices}, {"exitCode", int{EXIT_OK}}});
    return EXIT_OK;
}

} // namespace velto::host
