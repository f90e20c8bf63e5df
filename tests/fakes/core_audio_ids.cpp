// Defines the interface ids that fakes and tests name: the SDK headers only declare them unless
// this header comes first.
#include <initguid.h>

#include <windows.h>

#include <audioclient.h>
#include <mmdeviceapi.h>
