// The microphone's scenario for the fault walk: three rounds of opening, reading, moving to another default
// device and closing, on the module's own threads.
#pragma once

#include "fault_walk.h"

namespace velto_test {

// The steps of each round.
enum class MicrophoneStep { Opening, Capturing, Restarting, Closing };

// The two threads that race when a recording starts or restarts: the capture thread opens the device, and the
// thread that has called Prepare registers for other default devices by calling Start.
enum class RaceOrder {
    DeviceFirst,       // Start begins once the capture thread captures or has failed
    RegistrationFirst, // the capture thread begins once Start has returned
};

// Where in the module's work a call fails.
enum class MicrophoneMoment {
    Notifying,    // the notification of another default device
    Preparing,    // Prepare, on the host's thread or on that of a restart
    SettingUp,    // the init thread
    Unregistered, // the capture thread, before Start has registered
    Registered,   // the capture thread, later
    Ending,       // the capture thread of a recording that has been stopped
    Registering,  // Start
};

std::unique_ptr<Scenario> MakeMicrophoneDeviceFirst();
std::unique_ptr<Scenario> MakeMicrophoneRegistrationFirst();

// Returns the outcome of a fault at this moment. `use`: within the step.
Expectation ExpectedOfMicrophone(const FaultCase &faulty, MicrophoneStep step, MicrophoneMoment moment,
                                 int use);
// The microphone's rows of the table of faults.
std::vector<FaultRow> MicrophoneFaultRows();

} // namespace velto_test
