// A DLL that logs and uses the registry, as the module does: to be unloaded by a test.
#include "logging/logger.h"
#include "registry/registry.h"

extern "C" __declspec(dllexport) void UsePlatform(const wchar_t *key)
{
    static Logger logger("Probe");
    std::wstringstream message;
    message << L"from a module that will be unloaded";
    logger.Log(LOG_LEVEL_INFO, message);
    NrLogger::GetInstance().Log(LOG_LEVEL_INFO, message);
    DWORD value = 1;
    DE::Registry::SetValue(HKEY_CURRENT_USER, key, L"Probe", value, 0xF003F);
}
