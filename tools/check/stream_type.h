// The registry keys in which the module publishes the stream type.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace velto::check {

// The registry value "StreamType". Null if there is none.
std::optional<int32_t> StoredStreamType();

struct RegistryValue {
    std::string name; // with its key
    std::vector<uint8_t> data;
};

// All values below the platform's key of the current user, except "StreamType", in the order of the registry.
// Other programs of the platform write there, too.
std::vector<RegistryValue> ValuesOfModuleKeys();

// What happened to each value, by its name: "new registry value", "changed registry value" or "deleted
// registry value".
std::map<std::string, std::string> ChangesOf(const std::vector<RegistryValue> &before,
                                             const std::vector<RegistryValue> &after);

} // namespace velto::check
