// Queries about the registry's keys. The fake calls are declared in fake_windows.h.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace fakewin {

// Stores a value of any type and size, as another program would, creating its key.
void SetRegistryBytes(HKEY root, const std::wstring &path, const std::wstring &name, DWORD type,
                      const std::vector<BYTE> &bytes);
// The access rights that were requested when keys were opened or created, since the last Reset.
std::vector<REGSAM> RequestedRegistryAccess();
// True for a key that exists and that Windows would keep when it restarts.
bool IsPermanentRegistryKey(HKEY root, const std::wstring &path);

} // namespace fakewin
