// A DLL that logs and uses the registry, as the module does. unload_test.cpp loads and unloads it.
#include "logging/logger.h"
#include "registry/registry.h"

extern "C" __declspec(dllexport) void UsePlatform(const wchar_t *key)
{
    static Logger logger("Probe");
    std::wstringstream message;
    message << L"from the unload probe";
    logger.Log(LOG_LEVEL_INFO, message);
    NrLogger::GetInstance().Log(LOG_LEVEL_INFO, message);
    DWORD value = 1;
    DE::Registry::SetValue(HKEY_CURRENT_USER, key, L"Probe", value, 0xF003F);
}
