// Defines the interface ids that the fakes and tests use. The SDK headers define them only if initguid.h
// comes first; otherwise they declare them.
#include <initguid.h>

#include <windows.h>

#include <audioclient.h>
#include <mmdeviceapi.h>
