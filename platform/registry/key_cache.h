// Registry keys that stay open between calls: opening one costs twice what a query does, and
// the query is on the path of every frame.
#pragma once

#include <windows.h>

#include <mutex>
#include <string>
#include <vector>

namespace DE {

// Any thread: a call holds the cache's lock for one query or one write, so that no other call
// closes the key under it.
class KeyCache {
public:
    // Opens a key: RegOpenKeyExW, or RegCreateKeyExW where there may be none. `subKey` has no
    // leading backslash. Returns a Windows error code.
    using OpenKey = LSTATUS (*)(HKEY root, const wchar_t *subKey, REGSAM access, HKEY &key);

    KeyCache() = default;
    ~KeyCache();
    KeyCache(const KeyCache &) = delete;
    KeyCache &operator=(const KeyCache &) = delete;

    // Runs `use(key)` on the open key, opening it first where needed. A key that turns out to
    // have been deleted meanwhile is opened anew, once. Returns the error code of the opening
    // or of `use`. `subKey` may start with backslashes.
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
        std::wstring subKey; // as the caller writes it
        HKEY key;            // null: not open
    };

    static bool IsStale(LSTATUS status);
    static LSTATUS Open(Entry &entry, OpenKey open);
    static void Close(Entry &entry);
    Entry &EntryOf(HKEY root, const std::wstring &subKey, REGSAM access);

    std::mutex m_mutex;
    std::vector<Entry> m_entries; // guarded by m_mutex; a module uses very few keys
};

} // namespace DE
