// Empty: the SDK's ksmedia.h needs this header first, but the module uses nothing of it.
#pragma once

#include <windows.h>
