#include "check/stream_type.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "velto-host/windows_text.h"

namespace velto::check {
namespace {

constexpr wchar_t platformKey[] = L"SOFTWARE\\NORVEL";
constexpr wchar_t streamTypeKey[] = L"SOFTWARE\\NORVEL\\NRAudio\\NrMirror";
constexpr wchar_t streamTypeName[] = L"StreamType";

class RegistryKey {
public:
    RegistryKey(HKEY parent, const wchar_t *path)
    {
        if (RegOpenKeyExW(parent, path, 0, KEY_READ, &m_key) != ERROR_SUCCESS) {
            m_key = nullptr;
        }
    }
    ~RegistryKey()
    {
        if (m_key != nullptr) {
            RegCloseKey(m_key);
        }
    }
    RegistryKey(const RegistryKey &) = delete;
    RegistryKey &operator=(const RegistryKey &) = delete;

    HKEY Get() const { return m_key; }

private:
    HKEY m_key = nullptr;
};

void AddValues(HKEY key, const std::string &path, std::vector<RegistryValue> &values)
{
    std::vector<wchar_t> name(16384); // the longest name of a value, with its terminator
    std::vector<uint8_t> data(65536);
    for (DWORD i = 0;;) {
        auto nameLength = static_cast<DWORD>(name.size());
        auto bytes = static_cast<DWORD>(data.size());
        const LSTATUS result =
            RegEnumValueW(key, i, name.data(), &nameLength, nullptr, nullptr, data.data(), &bytes);
        if (result == ERROR_MORE_DATA && bytes > data.size()) {
            data.resize(bytes);
            continue;
        }
        if (result != ERROR_SUCCESS) {
            return;
        }
        const std::wstring text(name.data(), nameLength);
        if (text != streamTypeName) {
            values.push_back({path + "\\" + host::ToUtf8(text), {data.begin(), data.begin() + bytes}});
        }
        ++i;
    }
}

void AddTree(HKEY parent, const std::wstring &name, const std::string &path,
             std::vector<RegistryValue> &values)
{
    const RegistryKey key(parent, name.c_str());
    if (key.Get() == nullptr) {
        return;
    }
    AddValues(key.Get(), path, values);
    std::array<wchar_t, 256> child{}; // the longest name of a key, with its terminator
    for (DWORD i = 0;; ++i) {
        auto length = static_cast<DWORD>(child.size());
        if (RegEnumKeyExW(key.Get(), i, child.data(), &length, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            return;
        }
        const std::wstring childName(child.data(), length);
        AddTree(key.Get(), childName, path + "\\" + host::ToUtf8(childName), values);
    }
}

const RegistryValue *Find(const std::vector<RegistryValue> &values, const std::string &name)
{
    const auto found = std::find_if(values.begin(), values.end(),
                                    [&](const RegistryValue &value) { return value.name == name; });
    return found != values.end() ? &*found : nullptr;
}

} // namespace

std::optional<int32_t> StoredStreamType()
{
    DWORD value = 0;
    DWORD bytes = sizeof value;
    if (RegGetValueW(HKEY_CURRENT_USER, streamTypeKey, streamTypeName, RRF_RT_REG_DWORD, nullptr, &value,
                     &bytes) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return static_cast<int32_t>(value);
}

std::vector<RegistryValue> ValuesOfModuleKeys()
{
    std::vector<RegistryValue> values;
    AddTree(HKEY_CURRENT_USER, platformKey, "HKEY_CURRENT_USER\\" + host::ToUtf8(platformKey), values);
    return values;
}

std::map<std::string, std::string> ChangesOf(const std::vector<RegistryValue> &before,
                                             const std::vector<RegistryValue> &after)
{
    std::map<std::string, std::string> changes;
    for (const RegistryValue &value : after) {
        const RegistryValue *old = Find(before, value.name);
        if (old == nullptr || old->data != value.data) {
            changes[value.name] = old == nullptr ? "new registry value" : "changed registry value";
        }
    }
    for (const RegistryValue &value : before) {
        if (Find(after, value.name) == nullptr) {
            changes[value.name] = "deleted registry value";
        }
    }
    return changes;
}

} // namespace velto::check
