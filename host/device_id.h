// An id and its length, as every slot of the module takes them.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace velto::host {

struct DeviceId {
    explicit DeviceId(std::string text) : id(std::move(text)) {}
    const char *Text() const { return id.c_str(); }
    uint32_t Length() const { return static_cast<uint32_t>(id.size()); }

    std::string id;
};

} // namespace velto::host
