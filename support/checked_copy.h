// A memcpy that checks the size of the destination.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace velto {

// Copies `count` bytes and returns 0, also for 0 bytes. Otherwise copies nothing and returns EINVAL for a
// null pointer or ERANGE for a destination that is too small.
inline int CheckedCopy(void *destination, size_t capacity, const void *source, size_t count)
{
    if (count == 0) {
        return 0;
    }
    if (destination == nullptr || source == nullptr) {
        return EINVAL;
    }
    if (capacity < count) {
        return ERANGE;
    }
    std::memcpy(destination, source, count);
    return 0;
}

} // namespace velto
