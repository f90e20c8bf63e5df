// The platform's registry utility library, as this module calls it.
#pragma once

#include <windows.h>

#include <string>

namespace DE {

// Reads and writes 32-bit (DWORD) values. Sub-keys may start with a backslash, which the system
// calls refuse. Both calls may be made from any thread.
class Registry {
public:
    // Reads a value into `value`, which is left alone on failure. The key stays open between
    // calls, so that a read costs one query; a key that was deleted meanwhile is reopened.
    static bool GetValue(HKEY root, const std::wstring &subKey, const std::wstring &name, DWORD &value,
                         REGSAM access);

    // Writes a value, creating the key when there is none. `value` is only read: the reference is the
    // library's interface.
    static bool SetValue(HKEY root, const std::wstring &subKey, const std::wstring &name, DWORD &value,
                         REGSAM access);
};

} // namespace DE
