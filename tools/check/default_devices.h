// Watches the default audio endpoints of the system.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

namespace velto::check {

// Enters the multi-threaded COM apartment for its thread; created and destroyed on one thread.
class DefaultDevices {
public:
    // Throws std::runtime_error if the system has no audio service.
    DefaultDevices();
    ~DefaultDevices();
    DefaultDevices(const DefaultDevices &) = delete;
    DefaultDevices &operator=(const DefaultDevices &) = delete;

    // How often the system has reported another default since the constructor. Any thread.
    uint32_t LoudspeakerChanges() const; // of the multimedia role
    uint32_t MicrophoneChanges() const;  // of the console role

    // The level of what the default loudspeaker of the multimedia role plays at this moment, 0 to 1. Null if
    // the system does not measure it.
    std::optional<float> LoudspeakerLevel() const;

private:
    class Client;
    class Com;

    std::unique_ptr<Com> m_com; // first, because the others need it
    std::unique_ptr<Client> m_client;
};

} // namespace velto::check
