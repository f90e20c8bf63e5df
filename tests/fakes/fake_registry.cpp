// The registry, in memory.
#include <algorithm>
#include <cwctype>
#include <map>
#include <mutex>
#include <set>

#include "tests/fakes/fake_registry.h"
#include "tests/fakes/fake_windows.h"
#include "tests/fakes/fake_windows_state.h"

namespace fakewin {
namespace {

struct Value {
    DWORD type;
    std::vector<BYTE> data;
};
using Values = std::map<std::wstring, Value>;

// A full path in lower case: the root ("user" or "machine"), then the subkeys.
using Path = std::wstring;

struct OpenKey {
    Path path;
    REGSAM access;
    bool deleted;
};

// Never destroyed: the module's static objects make calls when the process ends.
struct State {
    std::mutex mutex;
    std::map<Path, Values> keys;
    std::set<Path> volatileKeys;
    std::vector<REGSAM> requestedAccess;
    std::map<HKEY, OpenKey> openKeys;
    uintptr_t nextKey = 0x1000;
};

State &TheState()
{
    static auto *state = new State;
    return *state;
}

std::wstring LowerCase(std::wstring text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](wchar_t c) { return std::towlower(c); });
    return text;
}

bool IsRoot(HKEY key)
{
    return key == HKEY_CURRENT_USER || key == HKEY_LOCAL_MACHINE;
}

Path RootPath(HKEY root)
{
    return root == HKEY_CURRENT_USER ? L"user" : L"machine";
}

Path Join(const Path &parent, const std::wstring &subKey)
{
    return subKey.empty() ? parent : parent + L"\\" + LowerCase(subKey);
}

// Finds the path of `subKey` below `key`. Needs the lock.
LSTATUS Resolve(State &state, HKEY key, LPCWSTR subKey, Path &path)
{
    const std::wstring name = subKey != nullptr ? subKey : L"";
    if (!name.empty() && name.front() == L'\\') {
        return ERROR_BAD_PATHNAME;
    }
    if (IsRoot(key)) {
        path = Join(RootPath(key), name);
        return ERROR_SUCCESS;
    }
    const auto found = state.openKeys.find(key);
    if (found == state.openKeys.end()) {
        return ERROR_INVALID_HANDLE;
    }
    if (found->second.deleted) {
        return ERROR_KEY_DELETED;
    }
    path = Join(found->second.path, name);
    return ERROR_SUCCESS;
}

bool Exists(const State &state, const Path &path)
{
    return path.find(L'\\') == Path::npos || state.keys.count(path) != 0;
}

HKEY AddOpenKey(State &state, const Path &path, REGSAM access)
{
    const auto key = reinterpret_cast<HKEY>(state.nextKey += 4);
    state.openKeys[key] = {path, access, false};
    return key;
}

void CreateWithParents(State &state, const Path &path)
{
    for (size_t end = path.find(L'\\'); end != Path::npos; end = path.find(L'\\', end + 1)) {
        if (const Path parent = path.substr(0, end); parent.find(L'\\') != Path::npos) {
            state.keys[parent];
        }
    }
    state.keys[path];
}

LSTATUS CopyValue(const State &state, const Path &path, LPCWSTR name, LPDWORD type, void *data,
                  LPDWORD dataBytes)
{
    const auto values = state.keys.find(path);
    if (values == state.keys.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    const auto value = values->second.find(LowerCase(name != nullptr ? name : L""));
    if (value == values->second.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (type != nullptr) {
        *type = value->second.type;
    }
    const auto bytes = static_cast<DWORD>(value->second.data.size());
    const DWORD capacity = dataBytes != nullptr ? *dataBytes : 0;
    if (dataBytes != nullptr) {
        *dataBytes = bytes;
    }
    if (data != nullptr) {
        if (capacity < bytes) {
            return ERROR_MORE_DATA;
        }
        std::copy(value->second.data.begin(), value->second.data.end(), static_cast<BYTE *>(data));
    }
    return ERROR_SUCCESS;
}

void SetValueAt(State &state, const Path &path, const std::wstring &name, DWORD type, const void *data,
                size_t bytes)
{
    const auto *begin = static_cast<const BYTE *>(data);
    state.keys[path][LowerCase(name)] = {type, std::vector<BYTE>(begin, begin + bytes)};
}

// Resolves `subKey` below `key`, then runs `action(state, path)` under the lock. Returns the scripted result,
// the error of the resolution or the result of the action.
template <typename Action>
LSTATUS AccessKey(Call call, HKEY key, LPCWSTR subKey, Action action)
{
    if (const auto fault = Enter(call)) {
        return static_cast<LSTATUS>(*fault);
    }
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    Path path;
    if (const LSTATUS status = Resolve(state, key, subKey, path)) {
        return status;
    }
    return action(state, path);
}

// Needs the lock. Roots allow everything.
bool HasAccess(State &state, HKEY key, REGSAM access)
{
    return IsRoot(key) || (state.openKeys[key].access & access) != 0;
}

// Stores a value as another program would, creating its key.
void StoreValue(HKEY root, const std::wstring &path, const std::wstring &name, DWORD type, const void *data,
                size_t bytes)
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    const Path fullPath = Join(RootPath(root), path);
    CreateWithParents(state, fullPath);
    SetValueAt(state, fullPath, name, type, data, bytes);
}

} // namespace

void ResetRegistry()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    state.keys.clear();
    state.volatileKeys.clear();
    state.requestedAccess.clear();
    for (auto &[handle, key] : state.openKeys) {
        key.deleted = true;
    }
}

LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result)
{
    if (options != 0) {
        AddViolation("RegOpenKeyExW with options");
    }
    return AccessKey(Call::RegOpenKeyExW, key, subKey, [&](State &state, const Path &path) -> LSTATUS {
        state.requestedAccess.push_back(access);
        if (!Exists(state, path)) {
            return ERROR_FILE_NOT_FOUND;
        }
        *result = AddOpenKey(state, path, access);
        return ERROR_SUCCESS;
    });
}

LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR, DWORD options, REGSAM access,
                        const SECURITY_ATTRIBUTES *, PHKEY result, LPDWORD disposition)
{
    if (reserved != 0) {
        AddViolation("RegCreateKeyExW with a reserved argument that is not 0");
    }
    return AccessKey(Call::RegCreateKeyExW, key, subKey, [&](State &state, const Path &path) -> LSTATUS {
        state.requestedAccess.push_back(access);
        constexpr DWORD createdNew = 1;
        constexpr DWORD openedExisting = 2;
        if (disposition != nullptr) {
            *disposition = Exists(state, path) ? openedExisting : createdNew;
        }
        if (!Exists(state, path) && options != REG_OPTION_NON_VOLATILE) {
            state.volatileKeys.insert(path);
        }
        CreateWithParents(state, path);
        *result = AddOpenKey(state, path, access);
        return ERROR_SUCCESS;
    });
}

LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD dataBytes)
{
    return AccessKey(Call::RegQueryValueExW, key, nullptr, [&](State &state, const Path &path) -> LSTATUS {
        if (!HasAccess(state, key, KEY_QUERY_VALUE)) {
            return ERROR_ACCESS_DENIED;
        }
        return CopyValue(state, path, name, type, data, dataBytes);
    });
}

LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE *data, DWORD dataBytes)
{
    if (reserved != 0) {
        AddViolation("RegSetValueExW with a reserved argument that is not 0");
    }
    return AccessKey(Call::RegSetValueExW, key, nullptr, [&](State &state, const Path &path) -> LSTATUS {
        if (!HasAccess(state, key, KEY_SET_VALUE)) {
            return ERROR_ACCESS_DENIED;
        }
        SetValueAt(state, path, name != nullptr ? name : L"", type, data, dataBytes);
        return ERROR_SUCCESS;
    });
}

LSTATUS RegCloseKey(HKEY key)
{
    Enter(Call::RegCloseKey);
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    if (state.openKeys.erase(key) == 0 && !IsRoot(key)) {
        AddViolation("RegCloseKey of a key that is not open");
        return ERROR_INVALID_HANDLE;
    }
    return ERROR_SUCCESS;
}

void SetRegistryDword(HKEY root, const std::wstring &path, const std::wstring &name, DWORD value)
{
    StoreValue(root, path, name, REG_DWORD, &value, sizeof(value));
}

void SetRegistryString(HKEY root, const std::wstring &path, const std::wstring &name,
                       const std::wstring &value)
{
    StoreValue(root, path, name, REG_SZ, value.c_str(), (value.size() + 1) * sizeof(wchar_t));
}

void SetRegistryBytes(HKEY root, const std::wstring &path, const std::wstring &name, DWORD type,
                      const std::vector<BYTE> &bytes)
{
    StoreValue(root, path, name, type, bytes.data(), bytes.size());
}

std::optional<DWORD> RegistryDword(HKEY root, const std::wstring &path, const std::wstring &name)
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    DWORD type = REG_NONE;
    DWORD value = 0;
    DWORD bytes = sizeof(value);
    if (CopyValue(state, Join(RootPath(root), path), name.c_str(), &type, &value, &bytes) != ERROR_SUCCESS ||
        type != REG_DWORD) {
        return std::nullopt;
    }
    return value;
}

std::vector<REGSAM> RequestedRegistryAccess()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.requestedAccess;
}

bool IsPermanentRegistryKey(HKEY root, const std::wstring &path)
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    const Path fullPath = Join(RootPath(root), path);
    return Exists(state, fullPath) && state.volatileKeys.count(fullPath) == 0;
}

int LiveRegistryKeys()
{
    State &state = TheState();
    const std::lock_guard lock(state.mutex);
    return static_cast<int>(state.openKeys.size());
}

} // namespace fakewin
