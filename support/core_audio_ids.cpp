// Defines the interface and class ids that the module names: the SDK headers only declare them
// unless this header comes first.
#include <initguid.h>

#include <windows.h>

#include <audioclient.h>
#include <mmdeviceapi.h>
