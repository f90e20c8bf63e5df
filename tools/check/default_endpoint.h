// The default loudspeaker and microphone of this PC.
#pragma once

#include <mmdeviceapi.h>

namespace velto::check {

// Finds the default endpoint of the console role. The caller's thread is in a COM apartment, and the caller
// releases the endpoint. Fails with E_NOTFOUND if this PC has no such endpoint.
HRESULT FindDefaultEndpoint(EDataFlow flow, IMMDevice **device);

} // namespace velto::check
