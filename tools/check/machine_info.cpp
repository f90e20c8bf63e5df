#include "check/machine_info.h"

#include <windows.h>

#include <algorithm>
#include <string_view>
#include <variant>

#include "check/portable/module_commit.h"
#include "velto-host/device_commands.h"
#include "velto-host/json.h"
#include "velto-host/log_files.h"
#include "velto-host/output.h"
#include "velto-host/version_info.h"
#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

using host::Json;

constexpr uint32_t formatTagOfFloat = 3;
constexpr uint32_t formatTagOfExtensible = 0xFFFE;

// A member of an object; null if there is none.
const Json *Find(const Json &object, std::string_view key)
{
    const auto *members = std::get_if<Json::Members>(&object.Get());
    if (members == nullptr) {
        return nullptr;
    }
    const auto found = std::find_if(members->begin(), members->end(),
                                    [&](const Json::Member &member) { return member.key == key; });
    return found == members->end() ? nullptr : &found->value;
}

std::string TextOf(const Json &object, std::string_view key)
{
    const Json *member = Find(object, key);
    const auto *text = member == nullptr ? nullptr : std::get_if<std::string>(&member->Get());
    return text == nullptr ? std::string() : *text;
}

uint64_t NumberOf(const Json &object, std::string_view key)
{
    const Json *member = Find(object, key);
    const auto *number = member == nullptr ? nullptr : std::get_if<uint64_t>(&member->Get());
    return number == nullptr ? 0 : *number;
}

// "48000 Hz, 2 channels, 32-bit float"; empty without a format. Shared mode mixes 32-bit float, so an
// extensible format of 32 bits is called float, too.
std::string FormatText(const Json &mix)
{
    const uint64_t rateHz = NumberOf(mix, "sampleRate");
    if (rateHz == 0) {
        return {};
    }
    const uint64_t channels = NumberOf(mix, "channels");
    const uint64_t bits = NumberOf(mix, "bitsPerSample");
    const uint64_t tag = NumberOf(mix, "formatTag");
    const bool isFloat = tag == formatTagOfFloat || (tag == formatTagOfExtensible && bits == 32);
    return host::Format("{} Hz, {} channel{}, {}-bit{}", rateHz, channels, channels == 1 ? "" : "s", bits,
                        isFloat ? " float" : "");
}

std::string RolesText(const Json &endpoint)
{
    const Json *roles = Find(endpoint, "defaultFor");
    const auto *names = roles == nullptr ? nullptr : std::get_if<Json::Elements>(&roles->Get());
    std::string text;
    if (names != nullptr) {
        for (const Json &name : *names) {
            text += (text.empty() ? "" : ", ") + std::get<std::string>(name.Get());
        }
    }
    return text;
}

} // namespace

std::string ProcessorText()
{
    wchar_t name[128] = {};
    DWORD bytes = sizeof(name);
    const bool hasName =
        RegGetValueW(HKEY_LOCAL_MACHINE, L"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0",
                     L"ProcessorNameString", RRF_RT_REG_SZ, nullptr, name, &bytes) == ERROR_SUCCESS;
    std::string text = hasName ? host::ToUtf8(name) : "";
    text.erase(text.find_last_not_of(' ') + 1); // Intel's names end with spaces
    const DWORD count = GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
    return host::Format("{}, {} processor{}", text.empty() ? "unknown processor" : text, count,
                        count == 1 ? "" : "s");
}

std::vector<EndpointInfo> ListEndpoints(bool withNames)
{
    const Json described = host::DescribeEndpoints(withNames);
    std::vector<EndpointInfo> endpoints;
    // An object instead of a list has the reason why there is no list.
    if (const auto *list = std::get_if<Json::Elements>(&described.Get())) {
        for (const Json &endpoint : *list) {
            if (TextOf(endpoint, "state") == "active") {
                const Json *mix = Find(endpoint, "mixFormat");
                endpoints.push_back({TextOf(endpoint, "flow"),
                                     withNames ? TextOf(endpoint, "name") : std::string(),
                                     RolesText(endpoint), mix == nullptr ? std::string() : FormatText(*mix)});
            }
        }
    }
    return endpoints;
}

std::string CommitInLog(const std::filesystem::path &log, uintmax_t earlierBytes)
{
    try {
        std::string content;
        host::ReadBlocks(log, [&](std::string_view block) { content += block; });
        return ModuleCommit(
            std::string_view(content).substr(std::min<uintmax_t>(earlierBytes, content.size())));
    } catch (const host::FileError &) {
        return {};
    }
}

void DescribeMachine(Run &run, bool withNames)
{
    run.system = host::SystemVersion();
    run.processor = ProcessorText();
    run.endpoints = ListEndpoints(withNames);
    run.checkerVersion = host::ProgramVersion();
}

} // namespace velto::check
