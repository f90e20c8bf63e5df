// Lets the non-throwing `new` find no memory.
#pragma once

#include <cstddef>

namespace fakes {

// While one exists, `new (std::nothrow)` of exactly `bytes` bytes gives null, on every thread.
class FailingNew {
public:
    explicit FailingNew(std::size_t bytes);
    ~FailingNew();
    FailingNew(const FailingNew &) = delete;
    FailingNew &operator=(const FailingNew &) = delete;
};

} // namespace fakes
