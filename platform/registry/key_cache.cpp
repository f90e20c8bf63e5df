#include "registry/key_cache.h"

#include <algorithm>

namespace DE {

KeyCache::~KeyCache()
{
    // Not locked: at unload, no other thread runs this module's code; at the end of the process, a killed
    // thread may own the lock.
    for (Entry &entry : m_entries) {
        Close(entry);
    }
}

bool KeyCache::IsStale(LSTATUS status)
{
    return status == ERROR_KEY_DELETED || status == ERROR_INVALID_HANDLE;
}

LSTATUS KeyCache::Open(Entry &entry, OpenKey open)
{
    // The system calls refuse a sub-key that starts with a backslash.
    const std::size_t start = std::min(entry.subKey.find_first_not_of(L'\\'), entry.subKey.size());
    HKEY key = nullptr;
    const LSTATUS status = open(entry.root, entry.subKey.c_str() + start, entry.access, key);
    if (status == ERROR_SUCCESS) {
        entry.key = key;
    }
    return status;
}

void KeyCache::Close(Entry &entry)
{
    if (entry.key != nullptr) {
        RegCloseKey(entry.key);
        entry.key = nullptr;
    }
}

KeyCache::Entry &KeyCache::EntryOf(HKEY root, const std::wstring &subKey, REGSAM access)
{
    for (Entry &entry : m_entries) {
        if (entry.root == root && entry.access == access && entry.subKey == subKey) {
            return entry;
        }
    }
    return m_entries.emplace_back(Entry{root, access, subKey, nullptr});
}

} // namespace DE
