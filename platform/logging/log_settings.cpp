#include "logging/log_settings.h"

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#ifdef _WIN32
#include <windows.h>
#endif

namespace logging {
namespace {

using NativeString = std::filesystem::path::string_type;

// Value of an environment variable; empty if there is none. On Windows, reads the system's environment: the
// C runtime has a copy in narrow characters, which misses later changes.
NativeString EnvironmentVariable(const char *name)
{
#ifdef _WIN32
    const std::wstring wideName(name, name + std::char_traits<char>::length(name));
    std::wstring value(GetEnvironmentVariableW(wideName.c_str(), nullptr, 0), L'\0');
    const DWORD length =
        GetEnvironmentVariableW(wideName.c_str(), value.data(), static_cast<DWORD>(value.size()));
    value.resize(length < value.size() ? length : 0);
    return value;
#else
    const char *value = std::getenv(name);
    return value != nullptr ? value : "";
#endif
}

std::filesystem::path LocalApplicationData()
{
#ifdef _WIN32
    return EnvironmentVariable("LOCALAPPDATA");
#else
    if (const NativeString state = EnvironmentVariable("XDG_STATE_HOME"); !state.empty()) {
        return state;
    }
    const NativeString home = EnvironmentVariable("HOME");
    return home.empty() ? std::filesystem::path() : std::filesystem::path(home) / ".local" / "state";
#endif
}

std::optional<int> ParseLevel(const NativeString &text)
{
    std::string name;
    for (const auto unit : text) {
        if (static_cast<uint32_t>(unit) > 0x7F) {
            return std::nullopt; // cut to 8 bits, some letters would look like digits
        }
        const bool isCapital = unit >= 'A' && unit <= 'Z';
        name += static_cast<char>(isCapital ? unit - 'A' + 'a' : unit);
    }
    constexpr std::string_view names[] = {"trace", "debug", "info", "error", "off"};
    for (int level = 1; level <= levelOff; ++level) {
        if (name == names[level - 1] || (level < levelOff && name == std::to_string(level))) {
            return level;
        }
    }
    return std::nullopt;
}

} // namespace

LogSettings ReadLogSettings()
{
    LogSettings settings;
    settings.file = EnvironmentVariable("VELTO_LOG_FILE");
    if (settings.file.empty()) {
        const std::filesystem::path data = LocalApplicationData();
        if (!data.empty()) {
            settings.file = data / "VELTO" / "LibVeltoAudioHandler.log";
        }
    }
    const NativeString level = EnvironmentVariable("VELTO_LOG_LEVEL");
    if (!level.empty()) {
        const std::optional<int> parsed = ParseLevel(level);
        settings.levelIsInvalid = !parsed.has_value();
        settings.lowestLevel = parsed.value_or(settings.lowestLevel);
    }
    return settings;
}

} // namespace logging
