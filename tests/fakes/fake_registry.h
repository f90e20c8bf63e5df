// What the module did with the registry's keys. The calls themselves are in fake_windows.h.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace fakewin {

// The access of each key that was opened or created, since the last Reset.
std::vector<REGSAM> RequestedRegistryAccess();
// True for a key that exists and that Windows would keep when it restarts.
bool IsPermanentRegistryKey(HKEY root, const std::wstring &path);

} // namespace fakewin
