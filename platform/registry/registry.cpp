#include "registry/registry.h"

#include <atomic>

#include "registry/key_cache.h"

namespace DE {
namespace {

// The key cache that all threads share until the module unloads.
class SharedKeys {
public:
    SharedKeys() { current = &m_keys; }
    ~SharedKeys() { current = nullptr; }
    SharedKeys(const SharedKeys &) = delete;
    SharedKeys &operator=(const SharedKeys &) = delete;

    // Null before this object is constructed and after it is destroyed, when other static objects of the
    // module can still call the library. Constant-initialised and never destroyed.
    static constinit inline std::atomic<KeyCache *> current = nullptr;

private:
    KeyCache m_keys;
};
SharedKeys sharedKeys;

LSTATUS OpenExisting(HKEY root, const wchar_t *subKey, REGSAM access, HKEY &key)
{
    return RegOpenKeyExW(root, subKey, 0, access, &key);
}

LSTATUS OpenOrCreate(HKEY root, const wchar_t *subKey, REGSAM access, HKEY &key)
{
    return RegCreateKeyExW(root, subKey, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr, &key, nullptr);
}

template <typename Use>
bool UseKey(HKEY root, const std::wstring &subKey, REGSAM access, KeyCache::OpenKey open, Use use)
{
    try {
        if (KeyCache *shared = SharedKeys::current; shared != nullptr) {
            return shared->WithKey(root, subKey, access, open, use) == ERROR_SUCCESS;
        }
        KeyCache temporary;
        return temporary.WithKey(root, subKey, access, open, use) == ERROR_SUCCESS;
    } catch (...) {
        return false; // out of memory
    }
}

} // namespace

bool Registry::GetValue(HKEY root, const std::wstring &subKey, const std::wstring &name, DWORD &value,
                        REGSAM access)
{
    DWORD stored{};
    DWORD type{};
    DWORD bytes{};
    const auto query = [&](HKEY key) {
        bytes = sizeof(stored);
        return RegQueryValueExW(key, name.c_str(), nullptr, &type, reinterpret_cast<BYTE *>(&stored), &bytes);
    };
    if (!UseKey(root, subKey, access, &OpenExisting, query) || type != REG_DWORD || bytes != sizeof(stored)) {
        return false;
    }
    value = stored;
    return true;
}

bool Registry::SetValue(HKEY root, const std::wstring &subKey, const std::wstring &name, DWORD &value,
                        REGSAM access)
{
    const auto write = [&](HKEY key) {
        return RegSetValueExW(key, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE *>(&value),
                              sizeof(value));
    };
    return UseKey(root, subKey, access, &OpenOrCreate, write);
}

} // namespace DE
