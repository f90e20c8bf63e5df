// The platform's registry utility library, as this module calls it.
#pragma once

#include <windows.h>

#include <string>

namespace DE {

// Reads and writes 32-bit (DWORD) values, on any thread. Sub-keys may start with backslashes, which Windows'
// own functions refuse.
class Registry {
public:
    // Reads a value into `value`, which is unchanged on failure. The key stays open between calls, so that a
    // read takes one query. A key that was deleted meanwhile is reopened.
    static bool GetValue(HKEY root, const std::wstring &subKey, const std::wstring &name, DWORD &value,
                         REGSAM access);

    // Writes a value, creating a missing key. `value` is only read; the platform's interface takes a
    // non-const reference.
    static bool SetValue(HKEY root, const std::wstring &subKey, const std::wstring &name, DWORD &value,
                         REGSAM access);
};

} // namespace DE
