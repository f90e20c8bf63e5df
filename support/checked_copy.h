// A copy that knows how much room there is.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace velto {

// Copies `count` bytes. 0 on success (and for a count of 0); EINVAL for a null pointer, ERANGE
// when the destination is too small: then nothing is copied.
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
