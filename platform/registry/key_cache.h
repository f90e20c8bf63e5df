// Registry keys that stay open between calls. Every write of a speaker unit makes a query, and opening the
// key for each would take longer than the query.
#pragma once

#include <windows.h>

#include <mutex>
#include <string>
#include <vector>

namespace DE {

// Any thread may call it. A call locks the cache during its query or write, so that no other call closes the
// key meanwhile.
class KeyCache {
public:
    // Opens a key with RegOpenKeyExW, or with RegCreateKeyExW if a missing key is to be created. `subKey` has
    // no leading backslash. Returns a Windows error code.
    using OpenKey = LSTATUS (*)(HKEY root, const wchar_t *subKey, REGSAM access, HKEY &key);

    KeyCache() = default;
    ~KeyCache();
    KeyCache(const KeyCache &) = delete;
    KeyCache &operator=(const KeyCache &) = delete;

    // Calls `use(key)` with the open key, opening it first if needed. If `use` reports that the key was
    // deleted meanwhile, reopens the key and calls `use` once more. Returns the error code of opening or of
    // `use`. `subKey` may start with backslashes.
    template <typename Use>
    LSTATUS WithKey(HKEY root, const std::wstring &subKey, REGSAM access, OpenKey open, Use use)
    {
        const std::lock_guard lock(m_mutex);
        Entry &entry = EntryOf(root, subKey, access);
        if (entry.key != nullptr) {
            const LSTATUS status = use(entry.key);
            if (!IsStale(status)) {
                return status;
            }
            Close(entry);
        }
        const LSTATUS opened = Open(entry, open);
        return opened == ERROR_SUCCESS ? use(entry.key) : opened;
    }

private:
    struct Entry {
        HKEY root;
        REGSAM access;
        std::wstring subKey; // as the caller passes it, with any leading backslash
        HKEY key;            // null: not open
    };

    static bool IsStale(LSTATUS status);
    static LSTATUS Open(Entry &entry, OpenKey open);
    static void Close(Entry &entry);
    Entry &EntryOf(HKEY root, const std::wstring &subKey, REGSAM access);

    std::mutex m_mutex;
    std::vector<Entry> m_entries; // guarded by m_mutex; searched linearly, because the module uses one key
};

} // namespace DE
