// The DLL exports a second function.
// breaks: ENT-1
// level: 1

#include "forwarding_module.h"

__declspec(dllexport) int32_t VELTOGetVersion(void)
{
    return VELTO_HEADER_VERSION;
}
